#pragma once

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
