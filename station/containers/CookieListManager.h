#pragma once

#include "station/containers/ContainerNotifier.h"
#include "station/containers/CookieLists.h"

namespace korvel {

/// The host's manager of a kind of container that holds cookies: bins and racks. Host thread.
template <typename Manager, typename Data>
class CookieListManager : public ContainerNotifier<Manager, Data, CookieLists> {
 public:
  using ContainerNotifier<Manager, Data, CookieLists>::ContainerNotifier;

  void destroy(const Cookie& cookie, const LightweightString<char>& /*reason*/) override {
    this->forget(cookie);
  }
  void reload(const Cookie& cookie) override { this->readAgain(cookie); }
};

}  // namespace korvel
