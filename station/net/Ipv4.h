#pragma once

#include <compare>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace korvel {

/// An IPv4 address, in the host's byte order. A plain value.
struct Ipv4 {
  std::uint32_t value = 0;

  [[nodiscard]] bool isMulticast() const { return value >> 28 == 0xE; }
  [[nodiscard]] bool isLoopback() const { return value >> 24 == 127; }
  [[nodiscard]] bool isLimitedBroadcast() const { return value == 0xFFFFFFFF; }

  friend auto operator<=>(const Ipv4&, const Ipv4&) = default;
};

/// Four decimal numbers with dots, without leading zeros; nothing for any other text.
std::optional<Ipv4> parseIpv4(std::string_view text);

/// "192.168.1.7"
std::string textOf(Ipv4 address);

/// All addresses that share their first `prefix` bits with `address`.
struct Ipv4Network {
  Ipv4 address;
  unsigned prefix = 32;

  [[nodiscard]] bool contains(Ipv4 other) const;
};

/// "192.168.1.0/24", or one address alone; nothing for any other text.
std::optional<Ipv4Network> parseIpv4Network(std::string_view text);

}  // namespace korvel
