#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/base/Events.h"
#include "station/base/Json.h"

namespace korvel {

struct MessageFields;

/// One kind of field behind a message's head.
struct WireField {
  const char* name;                  ///< as in events and reports: "cookie"
  std::string MessageFields::*text;  ///< where readMessage() puts it
  const char* option;                ///< of `kv-share send`; null: it knows the value
  const char* meaning;               ///< what the option is to hold
};

inline constexpr std::size_t kMostTypeFields = 3;

/// How people are shown what a message is about: texts, each before a field. A part whose field is
/// empty is left out where `before` is only a gap.
struct ShownPart {
  const char* before = nullptr;
  const WireField* field = nullptr;
};

/// One row of the table of the wire: a type of message, its layout, and what stations do with it.
///
/// Everything that knows the layout takes it from here: reading, events, reports, `send`, what
/// people are shown. The dissector and docs/wire-format.md are compared with it by tests.
struct MessageType {
  enum Number : int {
    eNone = 0,
    eEditModification = 1,
    eEditSaved = 2,
    eEditDeleted = 3,
    eProjdbRecChange = 4,
    ePermissionsChange = 5,
    eRoomChange = 6,
    eContainerModification = 7,
    eAddMaterial = 8,
    eRemoveMaterial = 9,
    eUserMessage = 10,
    eBinTransfer = 11,
    eClipTransfer = 12,
    eActionRequest = 13,
    eEditCreated = 14,
    eFilterModification = 15,
  };
  static constexpr int kFirst = eEditModification;
  static constexpr int kLast = eFilterModification;

  Number number;
  const char* name;                                      ///< "EditSaved"
  std::array<const WireField*, kMostTypeFields> layout;  ///< in their order; null behind the last
  std::size_t actedFrom;  ///< fields behind the head from which on stations do what the type is for
  const char* fewer;      ///< what they do with fewer than the layout has; null where none can be
  std::array<ShownPart, kMostTypeFields> shown;

  /// The fields of the layout.
  [[nodiscard]] std::span<const WireField* const> fields() const;

  /// Whether the layout has a field of this kind.
  [[nodiscard]] bool has(const WireField& field) const;
};

/// Fields before those of the type: version, type, project.
inline constexpr std::size_t kHeadFields = 3;

/// Stations do nothing with a text that has fewer fields in all.
inline constexpr std::size_t kLeastFields = kHeadFields + 1;

/// The byte that follows every field.
inline constexpr char kFieldSeparator = '\xAC';

/// The version of the text, its first field.
inline constexpr const char* kWireVersion = "d";

/// The target of a message to all users.
inline constexpr const char* kEverybody = "<All>";

extern const WireField kCookieField;
extern const WireField kModificationField;
extern const WireField kDataField;
extern const WireField kOwnerField;  ///< the data of a type whose text is an owner's name
extern const WireField kContainerField;
extern const WireField kSourceField;
extern const WireField kTargetField;
extern const WireField kMachineField;         ///< the target of a type that is for one machine
extern const WireField kTransferTargetField;  ///< a target that stations read as the cookie
extern const WireField kTransferCookieField;  ///< a cookie that no station reads

/// What a container message says of its object.
enum class ContainerValue { eNothing = 0, eRewritten = 1, eReloadNow = 2, eDestroyed = 3 };

/// What each container value means, from 0 on; stations drop a message with a higher one.
inline constexpr std::array kContainerValues{"nothing", "rewritten", "reload now", "destroyed"};

/// The types from kFirst to kLast, in their order.
std::span<const MessageType> messageTypes();

/// The row of a type; null for a number without one, 0 among them.
const MessageType* messageType(int number);

/// The name of a message type: "EditSaved" for 2, "None" for 0; "unknown" for a number without one.
const char* messageTypeName(int number);

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

/// The text of words from one user to another, or to kEverybody.
std::string composeUserMessage(const std::string& project, const std::string& user,
                               const std::string& to, const std::string& words);

/// Whether a text is words for the user of this station. The plug-in compares names byte by byte
/// with letters, and so misses a user whose name is not ASCII.
bool isForThisUser(const MessageFields& message);

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
  bool isUnverified = false;  ///< its sender is not proven, though he could have sealed it
  std::string by{};           ///< the user whose station sent it; empty where that is not known
  std::string from{};         ///< its sender's address and port; empty where that is not known
  std::chrono::steady_clock::time_point arrived{};  ///< at this machine; zero where it is not known

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
