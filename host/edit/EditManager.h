#pragma once

// All edits and logs of the open project, as other stations' messages concern them.
//
// Most functions here are called because of messages, each of one type, and say what of it the host
// takes. A message is a hint: it may be lost, doubled, late, or sent by a stranger. So the host
// compares with the file before it forgets anything, and writes nothing because of one.

#include "host/base/Cookie.h"

/// The host's edits and logs as a whole. Host thread. An unknown cookie is ignored.
class KV_HOST_API EditManager {
 public:
  /// Takes the wire text of a type 1 message and applies its modification to the edit, if it is
  /// open here, as a change that is not yet saved. The host reads the modification from the text
  /// itself.
  static void addNetMessage(const Cookie& cookie, const LightweightString<char>& wireText);

  /// Forgets an edit that another station deleted; closes it if it is open. One whose file is still
  /// there stays, and so do unsaved changes of the local user's.
  static void handleNetDelete(const Cookie& cookie);

  /// Reads the project database record of an object again: its name, kind and owner in the lists.
  static void updateProjdbRec(const Cookie& cookie);

  /// An object's owner was announced by another station: `owner` is its name in UTF-8. The host
  /// takes an edit's owner from its file, and writes nothing.
  static void updateLocalPermissions(const Cookie& cookie, const LightweightString<char>& owner);

  /// Whether the user has the edit open here.
  static bool isOpen(const Cookie& cookie);

  /// The project that is open, or the null cookie.
  static Cookie getCurrentProjectID();

  /// Writes the object's own configuration to its file, leaving the file's other content as it
  /// stands there. Because of a message nothing is written.
  static void flushChanges(const Cookie& cookie);
};

/// The file of a log or edit, which need not exist. A null `project` means the open one; an object
/// that it does not hold is looked for in the project that the message being delivered names. Empty
/// when no project is known.
KV_HOST_API LightweightString<wchar_t> getFilenameForCookie(const Cookie& cookie,
                                                            const Cookie& project);
