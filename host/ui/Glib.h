#pragma once

// Drawing as a whole. A tool that is rebuilt (an icon becomes a panel) changes many widgets;
// without a deferrer each change would reach the screen by itself, and the user would see it
// flicker.

#include "host/base/HostApi.h"

/// The toolkit's drawing. User-interface thread.
class KV_HOST_API Glib {
 public:
  /// Holds screen updates back for as long as it lives; deferrers nest, and what was drawn
  /// meanwhile reaches the screen at once when the last one goes.
  class KV_HOST_API UpdateDeferrer {
   public:
    UpdateDeferrer();
    UpdateDeferrer(const UpdateDeferrer&) = delete;
    UpdateDeferrer& operator=(const UpdateDeferrer&) = delete;
    ~UpdateDeferrer();
  };
};
