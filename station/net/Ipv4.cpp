#include "station/net/Ipv4.h"

#include <arpa/inet.h>

#include <charconv>

namespace korvel {

std::optional<Ipv4> parseIpv4(std::string_view text) {
  in_addr address{};
  if (inet_pton(AF_INET, std::string(text).c_str(), &address) != 1) return std::nullopt;
  return Ipv4{ntohl(address.s_addr)};
}

std::string textOf(Ipv4 address) {
  std::string text;
  for (int shift = 24; shift >= 0; shift -= 8) {
    if (!text.empty()) text += '.';
    text += std::to_string(address.value >> shift & 0xFF);
  }
  return text;
}

bool Ipv4Network::contains(Ipv4 other) const {
  const std::uint32_t mask = prefix == 0 ? 0 : ~std::uint32_t{0} << (32 - prefix);
  return (other.value & mask) == (address.value & mask);
}

std::optional<Ipv4Network> parseIpv4Network(std::string_view text) {
  const auto slash = text.find('/');
  const auto address = parseIpv4(text.substr(0, slash));
  if (!address) return std::nullopt;
  if (slash == text.npos) return Ipv4Network{*address, 32};
  const auto digits = text.substr(slash + 1);
  unsigned prefix = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), prefix);
  if (error != std::errc() || end != digits.data() + digits.size() || prefix > 32)
    return std::nullopt;
  return Ipv4Network{*address, prefix};
}

}  // namespace korvel
