#pragma once

#include <string>

#include "station/wire/MessageFields.h"
#include "tools/base/Tool.h"
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

/// What a message is about, in a few words: the object, and what happened to it.
std::string objectText(const MessageFields& fields);

}  // namespace korvel
