#pragma once

#include "station/containers/CookieListManager.h"

namespace korvel {

/// The open project's racks, each the file <cookie>.json of the project's folder. Building one
/// makes it the host's RackManager. Host thread.
class Racks : public CookieListManager<RackManager, RackData> {
 public:
  Racks();
  ~Racks() override;

  /// The one built last, or null.
  static Racks* instance();
};

}  // namespace korvel
