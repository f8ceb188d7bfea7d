#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>

#include "station/base/Json.h"
#include "station/wire/MessageTable.h"
#include "tools/base/Tool.h"
#include "tools/capture/CaptureSource.h"
#include "tools/capture/HeardMessage.h"

namespace korvel {

/// Shows messages for people, one a line in columns that line up: time, sender, type, project,
/// object. Nothing of a message reaches a terminal as a control character. One thread.
class MessageLine {
 public:
  explicit MessageLine(Colours colours) : colours_(colours) {}

  /// The titles of the columns.
  [[nodiscard]] std::string heading();

  [[nodiscard]] std::string of(const HeardMessage& message, const MessageFields& fields);

 private:
  std::string column(const std::string& text, std::size_t& width, const char* colour) const;

  Colours colours_;
  std::size_t senderWidth_ = 21;  // the longest that there can be
  std::size_t typeWidth_ = 21;
  std::size_t projectWidth_ = 33;  // a whole cookie
};

/// The object of a message, and what happened to it, in a few words.
std::string objectText(const MessageFields& fields);

/// Finds the names of the projects and objects of a projects directory: messages hold only cookies.
/// Reads on a thread of its own, so that a share that hangs delays the output only once, by a third
/// of a second. One thread.
class NameBook {
 public:
  explicit NameBook(const std::string& directory);
  NameBook(const NameBook&) = delete;
  NameBook& operator=(const NameBook&) = delete;
  ~NameBook();

  /// The same message with names before its cookies: "Feature (P0001)". A cookie stays alone where
  /// its name does not exist or is not read within a third of a second.
  [[nodiscard]] MessageFields withNames(MessageFields fields);

 private:
  struct Shared;

  /// `isNew`: what is known of it is out of date.
  std::string nameOf(const std::string& path, bool isNew);

  std::string directory_;
  std::shared_ptr<Shared> shared_;
};

/// Counts of one sender.
struct SenderCount {
  std::string user;  ///< the name it gave itself last; empty while it gave none
  std::uint64_t messages = 0;
  std::uint64_t notValid = 0;
  std::int64_t first = 0;  ///< when it was heard first and last, in nanoseconds since 1970
  std::int64_t last = 0;
  std::map<std::string, std::uint64_t> types;
};

/// Counts the messages of each sender. One thread.
class SenderCounts {
 public:
  /// Called for every message, with the counts of its sender so far.
  using Observer = std::function<void(const HeardMessage&, const SenderCount&)>;

  explicit SenderCounts(std::int64_t start, Observer observer = {});

  void count(const HeardMessage& message, const MessageFields& fields);

  /// A message came once more, over another network.
  void countCopy() { ++copies_; }

  [[nodiscard]] std::uint64_t messages() const { return messages_; }
  [[nodiscard]] std::size_t senders() const { return senders_.size(); }

  /// The counts as one object: seconds, messages, copies, missed, senders.
  [[nodiscard]] JsonValue report(std::int64_t now, const MissedMessages& missed) const;

  /// The same for people: a table of the senders and a line about all of them.
  [[nodiscard]] std::string table(std::int64_t now, const MissedMessages& missed) const;

 private:
  std::int64_t start_;
  Observer observer_;
  std::uint64_t messages_ = 0;
  std::uint64_t copies_ = 0;
  std::map<std::pair<Ipv4, std::uint16_t>, SenderCount> senders_;
};

/// "3 messages missed: ..." with the reason; empty when none were.
std::string missedText(const MissedMessages& missed);

}  // namespace korvel
