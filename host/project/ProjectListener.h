#pragma once

// How the host tells of changes that the local user made.
//
// This is where all that other stations learn begins: the plug-in is a listener, and turns each
// call into one message.
//
//     user saves -> the host writes the file -> handleLogStorage() -> a message to the others
//
// The calls come after the fact: a file that is announced as written can be read, an object that is
// announced as deleted is gone. A listener that answers with messages must keep quiet while it
// handles a message itself; otherwise two stations would answer each other without end.

#include "host/base/Cookie.h"
#include "host/edit/EditModification.h"

/// Hears of the local project and its logs and edits. The host calls every living listener, in the
/// order of construction, on the host thread, after the fact. A handler of the base does nothing.
class KV_HOST_API ProjectListener {
 public:
  /// Begins and ends the delivery of events.
  ProjectListener();
  ProjectListener(const ProjectListener&) = delete;
  ProjectListener& operator=(const ProjectListener&) = delete;

  /// Several logs were changed at once.
  virtual void handleLogsModification(const CookieVec&) {}

  /// A log or edit was changed, in memory, as described.
  virtual void handleLogModification(const Cookie&, const EditModification&) {}

  /// Logs or edits were deleted; the text says by what.
  virtual void handleLogsDeletion(const CookieVec&, LightweightString<char>) {}

  /// A log or edit that had no unsaved change has one now.
  virtual void handleLogDirtied(const Cookie&) {}

  /// A log or edit was written to its file; true when it is new.
  virtual void handleLogStorage(const Cookie&, bool) {}

  /// A project was entered, and is the current one.
  virtual void handleProjectEntry() {}

  /// The current project is about to be left.
  virtual void handleProjectExit() {}

  virtual ~ProjectListener();
};
