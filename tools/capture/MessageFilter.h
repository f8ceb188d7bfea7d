#pragma once

#include <set>
#include <string>
#include <vector>

#include "station/base/Result.h"
#include "station/net/Ipv4.h"
#include "station/wire/MessageFields.h"
#include "tools/base/CommandLine.h"
#include "tools/capture/HeardMessage.h"

namespace korvel {

// What lines of monitor have in place of a type's name.
inline constexpr const char* kNotValid = "not valid";
inline constexpr const char* kUnknownType = "unknown";

/// The words of a command line that say which messages are meant. Of each kind any one may fit.
struct FilterWords {
  std::vector<std::string> types;     ///< numbers, names, kNotValid or kUnknownType
  std::vector<std::string> projects;  ///< cookies
  std::vector<std::string> users;
  std::vector<std::string> senders;  ///< addresses, with ":" and a port or without, or networks
};

/// Declares --type, --project, --user and --sender.
void declareFilter(CommandOptions& options, FilterWords& filter);

/// Which messages are meant. One thread.
class MessageFilter {
 public:
  /// Failure: the word that makes no sense.
  static Result<MessageFilter> of(const FilterWords& words);

  /// Whether a message is meant. A user's messages are those that name the user as sender,
  /// recipient or owner, and all of a sender that gave itself that user's name before. Capitals do
  /// not matter.
  bool takes(const HeardMessage& message, const MessageFields& fields);

 private:
  struct Sender {
    Ipv4Network network;
    int port = 0;  ///< 0 for any
  };

  Result<void> readTypes(const std::vector<std::string>& words);
  Result<void> readProjects(const std::vector<std::string>& words);
  Result<void> readSenders(const std::vector<std::string>& words);
  [[nodiscard]] bool isOfType(const MessageFields& fields) const;
  bool isOfUser(const HeardMessage& message, const MessageFields& fields);
  [[nodiscard]] bool isFrom(const HeardMessage& message) const;

  std::set<int> types_;
  std::set<std::string> states_;  ///< kNotValid, kUnknownType
  std::set<std::string> projects_;
  std::set<std::string> users_;
  std::vector<Sender> senders_;
  std::set<std::string> known_;  ///< senders that named themselves one of the users
};

}  // namespace korvel
