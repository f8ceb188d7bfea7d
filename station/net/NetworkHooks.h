#pragma once

#include <cstdint>

#include "station/net/Ipv4.h"

namespace korvel {

/// Is told whom a network service hears, and that it sends. Any thread; must not wait.
class iTrafficObserver {
 public:
  virtual ~iTrafficObserver() = default;

  /// A message came from this sender; once for each way by which it came.
  virtual void heard(Ipv4 address, std::uint16_t port) = 0;

  /// A message left.
  virtual void sent() = 0;

  /// A message was sent; whether it left for all destinations.
  virtual void reached(bool everywhere) { static_cast<void>(everywhere); }
};

}  // namespace korvel
