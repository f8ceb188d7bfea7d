#pragma once

#include "host/base/Cookie.h"

namespace korvel {

class EditFile;

/// Who is told what becomes of the local user's unsaved changes. Host thread.
class iUnsavedObserver {
 public:
  virtual ~iUnsavedObserver() = default;

  /// An edit has an unsaved change more.
  virtual void changed(const EditFile& edit) = 0;

  /// An edit has no unsaved changes any more: they were saved, or the user dropped them.
  virtual void settled(const Cookie& cookie) = 0;

  /// An edit is about to lose its unsaved changes without the user's wish.
  virtual void dropping(const EditFile& edit) = 0;
};

}  // namespace korvel
