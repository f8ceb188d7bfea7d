#pragma once

#include "station/base/HostParts.h"
#include "station/containers/CookieListManager.h"

namespace korvel {

/// The open project's racks, each the file <cookie>.json of the project's folder. Building one
/// makes it the host's RackManager. Host thread.
class Racks : public CookieListManager<RackManager, RackData> {
 public:
  Racks();
  ~Racks() override;

 private:
  const HostEntry<Racks> entry_{&HostParts::racks, *this};
};

}  // namespace korvel
