#pragma once

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
