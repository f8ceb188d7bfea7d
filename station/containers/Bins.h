#pragma once

#include "station/base/HostParts.h"
#include "station/containers/CookieListManager.h"

namespace korvel {

/// The open project's bins, each the file <cookie>.json of the project's folder. Building one makes
/// it the host's BinManager. Host thread.
class Bins : public CookieListManager<BinManager, BinData> {
 public:
  Bins();
  ~Bins() override;

 private:
  const HostEntry<Bins> entry_{&HostParts::bins, *this};
};

}  // namespace korvel
