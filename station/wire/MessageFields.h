#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/base/Events.h"
#include "station/base/Json.h"
#include "station/wire/MessageType.h"

namespace korvel {

/// The station's own view of a datagram's text, for its events and for tools: the fields as they
/// stand on the wire.
///
///     d <sep> type <sep> project <sep> the type's fields, each followed by <sep>
///
/// `<sep>` is the byte 0xAC. Bytes are kept as they are, UTF-8 or not. Which type has which fields
/// is the table of MessageType.
struct MessageFields {
  bool valid = false;        ///< stations that it concerns do what its type is for
  int type = 0;              ///< the number on the wire; 0 for a text of another version
  std::string typeName;      ///< "EditSaved" and its like; "unknown" for a number without a name
  std::string project;       ///< cookie text
  std::string cookie;        ///< cookie text
  std::string source;        ///< the sending user
  std::string target;        ///< user or machine addressed
  std::string data;          ///< owner, path, words or command
  std::string modification;  ///< the change's text form
  std::string container;     ///< the container value's text
  std::size_t count = 0;     ///< fields that the text has, version and all

  /// Whether a text of it holds the separator: the message has more fields than its type.
  [[nodiscard]] bool isCut() const;
};

/// Splits a text at its separators as every station does: a text without one is a single field; an
/// empty field before a leading separator does not count (unless the text is that one byte), nor
/// does one after a trailing separator.
std::vector<std::string> splitFields(std::string_view text);

/// Reads a datagram's text up to its first zero byte, if it has one, as receivers do.
MessageFields readMessage(std::string_view wireText);

/// The type of a datagram, as readMessage() has it, without reading the rest.
int typeOnWire(std::string_view wireText);

/// The number that a text begins with, as receivers read it; 0 for none.
long numberAtStart(const std::string& text);

/// Whether receivers take a text for a container value: what they read of it is one of
/// kContainerValues. Negative numbers wrap to high ones.
bool isContainerValue(const std::string& text);

/// The text of a request that the machine with this number runs a command, from `user`, sent while
/// `project` (a cookie's text) is open.
std::string composeActionRequest(const std::string& project, const std::string& user, int machine,
                                 const std::string& command);

/// The keys under which an event shows a message: type, type_name, project, cookie, target and data
/// always; source, modification and container where the message has them.
std::vector<JsonValue::Member> messageMembers(const MessageFields& message);

/// The keys under which an event shows a datagram's bytes: text_hex, of kMostHexBytes at most, and
/// text_bytes with the whole number where there are more.
std::vector<JsonValue::Member> datagramMembers(const std::string& wireText);

inline constexpr std::size_t kMostHexBytes = 2048;

/// A datagram that is being delivered: the currentMessage().
struct ReceivedMessage {
  std::string wireText;
  MessageFields fields;       ///< what it says, read once for all of this station
  Notification words;         ///< its text for people
  bool isUnverified = false;  ///< nobody vouches for its sender, though he could have sealed it

  void markUnverified() { isUnverified = words.isUnverified = true; }
};

/// A text as a notification, of the current message's sender where it is what the sender wrote.
/// Host thread.
inline Notification notificationOf(const std::string& text) {
  const ReceivedMessage* const message = currentMessage();
  return message && message->words.text == text ? message->words : Notification{{}, text};
}

/// Reads a datagram. Any thread.
ReceivedMessage receivedMessage(std::string wireText);

/// Hands a datagram to the plug-in: tells the station's events first, and marks everything that the
/// plug-in does as another station's change. Words for this user that the plug-in showed nowhere
/// become a notification. Host thread.
void deliverMessage(iNetMessageReceiver& receiver, const ReceivedMessage& message);

/// The same for a message whose file the station has waited for already: the plug-in looks for it
/// as often as ever, and does not wait in between.
void deliverAfterWait(iNetMessageReceiver& receiver, const ReceivedMessage& message);

}  // namespace korvel
