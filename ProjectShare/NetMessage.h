#pragma once

#include <cstdint>
#include <string_view>

#include "ProjectShare/ContainerModification.h"
#include "host/base/Cookie.h"
#include "host/base/LightweightString.h"
#include "host/edit/EditModification.h"

/// The one record that workstations exchange about a shared project.
///
/// Wire text: fields, each followed by the byte 0xAC. Nothing is escaped, so a payload that holds
/// that byte arrives split there.
///
///     d AC type AC project AC | cookie AC                           2 3 4 6 14
///                             | cookie AC modification AC           1
///                             | cookie AC data AC                   5
///                             | cookie AC container AC              7 15
///                             | data AC                             8 9
///                             | sender AC target AC data AC         10 13
///                             | sender AC target AC cookie AC       11 12
///
/// A plain value: copying copies every field. A constructor that is given a type outside its set
/// reports an assertion and builds the record all the same. Host thread, for the project and the
/// user it asks for.
class NetMessage {
 public:
  /// What a message is about; the number travels. 16 and above are invalid.
  enum Type : std::int32_t {
    eNone = 0,                   ///< empty or rejected: to be ignored
    eEditModification = 1,       ///< an edit or log was changed
    eEditSaved = 2,              ///< an edit or log was saved
    eEditDeleted = 3,            ///< an edit was deleted
    eProjdbRecChange = 4,        ///< the project database record of an object changed
    ePermissionsChange = 5,      ///< an object's permissions changed; `data` holds the new ones
    eRoomChange = 6,             ///< the occupancy of rooms changed
    eContainerModification = 7,  ///< a bin or rack changed
    eAddMaterial = 8,            ///< a media file became available; `data` is its path
    eRemoveMaterial = 9,         ///< a media file went away; `data` is its path
    eUserMessage = 10,           ///< a text from one user to another or to all
    eBinTransfer = 11,           ///< a bin sent to a user
    eClipTransfer = 12,          ///< a clip sent to a user
    eActionRequest = 13,         ///< a request that one machine run a named command
    eEditCreated = 14,           ///< a log or edit was created
    eFilterModification = 15     ///< a project filter changed
  };

  /// An object's message; any type but eEditModification.
  NetMessage(Type t, const Cookie& object);

  /// An object's message with a text; any type but eEditModification.
  NetMessage(Type t, const Cookie& object, const LightweightString<char>& text);

  /// Material: eAddMaterial or eRemoveMaterial with the file's path.
  NetMessage(Type t, const LightweightString<char>& path);

  /// eUserMessage with the recipient's name and the words, or eActionRequest with the machine's
  /// number and the command.
  NetMessage(Type t, const LightweightString<char>& recipient, const LightweightString<char>& text);

  /// eBinTransfer or eClipTransfer with the recipient's name.
  NetMessage(Type t, const LightweightString<char>& recipient, const Cookie& object);

  /// A bin's or rack's change.
  NetMessage(const Cookie& object, const ContainerModification& modification);

  /// An edit's change. The modification is copied field by field, its range put in order.
  NetMessage(const Cookie& edit, const EditModification& modification);

  /// Reads a wire text. Never fails: what cannot be understood leaves a record of type eNone, or
  /// one that holds what was read so far. A first field other than "d" writes a warning to the log.
  explicit NetMessage(const LightweightString<char>& wireText);

  /// Takes the host's current project as the message's.
  void init();

  /// The wire text. The sender's name is always the local user's, never `source`.
  [[nodiscard]] LightweightString<char> asString() const;

  /// Writes the record to the log and the console under a heading.
  void log(LightweightString<char> heading) const;

  Type type = eNone;
  Cookie cookie;                      ///< the object concerned; null where the type has none
  Cookie projectCookie;               ///< the project that was current at the sender
  EditModification editModification;  ///< type 1 alone
  LightweightString<char> data;       ///< main text, UTF-8
  ContainerModification containerModification;  ///< types 7 and 15 alone
  LightweightString<char> target;  ///< recipient: a user or "<All>"; a machine number (13)
  LightweightString<char> source;  ///< the sender's name; filled by parsing alone

 private:
  using Fields = Vector<std::string_view>;

  void readFields(const Fields& fields);
  void readModification(const Fields& fields);
  void readPermissions(const Fields& fields);
  void readContainer(const Fields& fields);
  void logDetails() const;
};
