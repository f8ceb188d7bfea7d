#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

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

// Captured frames. Link types are those of libpcap (DLT_EN10MB and its like).

/// Whether frames of this link type can be read.
bool isKnownLink(int linkType);

/// The UDP datagram over IPv4 that a captured frame holds, without its time; nothing for any other
/// frame, for a fragment, and for one that was captured in part.
std::optional<HeardMessage> datagramInFrame(int linkType, std::string_view frame);

/// Whether the frame is a fragment of a larger IPv4 packet.
bool isFragment(int linkType, std::string_view frame);

/// The IPv4 packet that carries the message: a frame of link type DLT_IPV4.
std::string ipv4PacketOf(const HeardMessage& message);
}  // namespace korvel
