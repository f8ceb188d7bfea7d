#pragma once

#include <cstdint>
#include <string>

#include "station/net/Ipv4.h"

namespace korvel {

/// A datagram as it was heard or captured. A plain value.
struct HeardMessage {
  std::int64_t time = 0;  ///< nanoseconds since 1970, UTC
  Ipv4 sender;
  std::uint16_t senderPort = 0;
  Ipv4 target;             ///< where it was sent; 0.0.0.0 where that is not known
  std::uint16_t port = 0;  ///< the port it was sent to
  unsigned interface = 0;  ///< the one by which it came; 0 where that is not known
  std::string bytes;
};

/// The sender as "192.168.1.7:41000".
inline std::string senderText(const HeardMessage& message) {
  return textOf(message.sender) + ":" + std::to_string(message.senderPort);
}

}  // namespace korvel
