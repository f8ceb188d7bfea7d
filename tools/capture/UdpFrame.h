#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "tools/capture/HeardMessage.h"

namespace korvel {

/// The link types, as captures number them, from which datagrams can be read.
enum LinkType : int {
  eLinkNull = 0,
  eLinkEthernet = 1,
  eLinkRaw = 12,
  eLinkRawInFiles = 101,
  eLinkLoop = 108,
  eLinkCooked = 113,
  eLinkIpv4 = 228,
  eLinkCooked2 = 276,
};

/// Whether frames of this link type can be read.
bool isKnownLink(int linkType);

/// The UDP datagram over IPv4 that a captured frame holds, without its time; nothing for any other
/// frame, for a fragment, and for one that was captured in part.
std::optional<HeardMessage> datagramInFrame(int linkType, std::string_view frame);

/// Whether the frame is a fragment of a larger IPv4 packet.
bool isFragment(int linkType, std::string_view frame);

/// The IPv4 packet that carries the message: a frame of link type eLinkIpv4.
std::string ipv4PacketOf(const HeardMessage& message);

}  // namespace korvel
