#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "station/base/Result.h"
#include "station/net/Interfaces.h"
#include "station/wire/MessageTable.h"
#include "tools/base/CommandLine.h"

namespace korvel {

inline constexpr std::int64_t kNanosecondsASecond = 1'000'000'000;

/// A received or captured datagram. A plain value.
struct HeardMessage {
  std::int64_t time = 0;  ///< nanoseconds since 1970, UTC
  Ipv4 sender;
  std::uint16_t senderPort = 0;
  Ipv4 target;             ///< where it was sent; 0.0.0.0 where that is not known
  std::uint16_t port = 0;  ///< the port it was sent to
  unsigned interface = 0;  ///< the one by which it came; 0 where that is not known
  std::string bytes;
};

/// The sender as "192.168.1.7:41000".
inline std::string senderText(const HeardMessage& message) {
  return textOf(message.sender) + ":" + std::to_string(message.senderPort);
}

// Captured frames. Link types are those of libpcap (DLT_EN10MB and its like).

/// Whether frames of this link type can be read.
bool isKnownLink(int linkType);

/// The UDP datagram over IPv4 that a captured frame holds, without its time; nothing for any other
/// frame, for a fragment, and for one that was captured in part.
std::optional<HeardMessage> datagramInFrame(int linkType, std::string_view frame);

/// Whether the frame is a fragment of a larger IPv4 packet.
bool isFragment(int linkType, std::string_view frame);

/// The IPv4 packet that carries the message: a frame of link type DLT_IPV4.
std::string ipv4PacketOf(const HeardMessage& message);

// Shown by monitor in place of a type's name.
inline constexpr const char* kNotValid = "not valid";
inline constexpr const char* kUnknownType = "unknown";

/// The filter options of a command line. Of each kind any one may fit.
struct FilterWords {
  std::vector<std::string> types;     ///< numbers, names, kNotValid or kUnknownType
  std::vector<std::string> projects;  ///< cookies
  std::vector<std::string> users;
  std::vector<std::string> senders;  ///< addresses, with ":" and a port or without, or networks
};

/// Declares --type, --project, --user and --sender.
void declareFilter(CommandOptions& options, FilterWords& filter);

/// Decides which messages a command takes. One thread.
class MessageFilter {
 public:
  /// Failure: names the word that cannot be understood.
  static Result<MessageFilter> of(const FilterWords& words);

  /// Whether the command takes a message. A user's messages are those that name the user as sender,
  /// recipient or owner, and all of a sender that named itself by that user before. Letter case
  /// does not matter.
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
