#pragma once

#include <array>
#include <cstddef>
#include <span>
#include <string>

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

/// The target of a message to everybody.
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
enum ContainerValue : int { eNothing = 0, eRewritten = 1, eReloadNow = 2, eDestroyed = 3 };

/// What each container value means, from 0 on; stations drop a message with a higher one.
inline constexpr std::array kContainerValues{"nothing", "rewritten", "reload now", "destroyed"};

/// The types from kFirst to kLast, in their order.
std::span<const MessageType> messageTypes();

/// The row of a type; null for a number without one, 0 among them.
const MessageType* messageType(int number);

/// The name of a message type: "EditSaved" for 2, "None" for 0; "unknown" for a number without one.
const char* messageTypeName(int number);

}  // namespace korvel
