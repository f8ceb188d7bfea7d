#include "station/net/Interfaces.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

#include <algorithm>
#include <charconv>
#include <memory>
#include <utility>

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
  return (other.value & mask()) == (address.value & mask());
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

namespace {

// Reading the list asks the kernel for every interface. A burst of messages reads it once a second;
// a failed send reads it sooner, since a cable may have changed, and still not at every message.
constexpr auto kListAge = std::chrono::seconds(1);
constexpr auto kListAgeAfterFailure = std::chrono::milliseconds(20);
constexpr Ipv4 kLoopbackBroadcast{0x7FFFFFFF};

Ipv4 ipv4Of(const sockaddr* address) {
  if (!address || address->sa_family != AF_INET) return {};
  return Ipv4{ntohl(reinterpret_cast<const sockaddr_in*>(address)->sin_addr.s_addr)};
}

bool isUsable(const ifaddrs& entry) {
  constexpr unsigned kWanted = IFF_UP | IFF_RUNNING;
  return entry.ifa_addr && entry.ifa_addr->sa_family == AF_INET &&
         (entry.ifa_flags & kWanted) == kWanted;
}

NetworkInterface interfaceOf(const ifaddrs& entry) {
  NetworkInterface interface;
  interface.name = entry.ifa_name;
  interface.index = if_nametoindex(entry.ifa_name);
  interface.address = ipv4Of(entry.ifa_addr);
  interface.isLoopback = (entry.ifa_flags & IFF_LOOPBACK) != 0;
  if (entry.ifa_flags & IFF_BROADCAST) interface.broadcast = ipv4Of(entry.ifa_broadaddr);
  // An interface with a single address (/32) names itself as its broadcast address.
  if (interface.broadcast == interface.address) interface.broadcast = {};
  return interface;
}

void addOnce(std::vector<Destination>& list, Destination destination) {
  if (std::find(list.begin(), list.end(), destination) == list.end()) list.push_back(destination);
}

std::vector<Destination> broadcastsOf(const std::vector<NetworkInterface>& interfaces) {
  std::vector<Destination> result;
  for (const auto& interface : interfaces) {
    if (interface.isLoopback || interface.broadcast == Ipv4{}) continue;
    addOnce(result, {interface.broadcast, interface.index});
  }
  // Without a network the stations of this machine still hear each other: 127.255.255.255 stays
  // here.
  if (result.empty()) result.push_back({kLoopbackBroadcast, 0});
  return result;
}

void addByEveryInterface(std::vector<Destination>& result, Ipv4 address,
                         const std::vector<NetworkInterface>& interfaces) {
  // 255.255.255.255 and multicast leave by one interface only, and fail without a route. So each
  // interface is named.
  const bool onlyLoopback = std::all_of(interfaces.begin(), interfaces.end(),
                                        [](const auto& interface) { return interface.isLoopback; });
  for (const auto& interface : interfaces) {
    if (interface.isLoopback == onlyLoopback) addOnce(result, {address, interface.index});
  }
  if (interfaces.empty()) addOnce(result, {address, 0});
}

}  // namespace

std::vector<NetworkInterface> readNetworkInterfaces() {
  ifaddrs* first = nullptr;
  if (getifaddrs(&first) != 0) return {};
  const std::unique_ptr<ifaddrs, void (*)(ifaddrs*)> owner(first, freeifaddrs);
  std::vector<NetworkInterface> result;
  for (const ifaddrs* entry = first; entry; entry = entry->ifa_next) {
    if (isUsable(*entry)) result.push_back(interfaceOf(*entry));
  }
  return result;
}

Interfaces::Interfaces(Reader reader) : reader_(std::move(reader)) {}

std::vector<Destination> Interfaces::destinations(const std::vector<Ipv4>& addresses) {
  if (addresses.empty()) return broadcastsOf(list(kListAge));
  std::vector<Destination> result;
  for (const Ipv4 address : addresses) {
    if (address.isMulticast() || address.isLimitedBroadcast()) {
      addByEveryInterface(result, address, list(kListAge));
    } else {
      addOnce(result, {address, 0});
    }
  }
  return result;
}

bool Interfaces::isOwn(Ipv4 address) {
  if (address.isLoopback()) return true;
  const auto interfaces = list(kListAge);
  return std::any_of(interfaces.begin(), interfaces.end(),
                     [&](const auto& interface) { return interface.address == address; });
}

std::vector<Ipv4Network> Interfaces::own() {
  std::vector<Ipv4Network> networks{{Ipv4{0x7F000000}, 8}};
  const auto interfaces = list(kListAge);
  for (const auto& interface : interfaces) {
    if (!interface.address.isLoopback()) networks.push_back({interface.address, 32});
  }
  std::ranges::sort(networks);
  return networks;
}

void Interfaces::reread() { list(kListAgeAfterFailure); }

std::string Interfaces::nameOf(unsigned index) {
  if (index == 0) return {};
  for (const auto& interface : list(kListAge)) {
    if (interface.index == index) return interface.name;
  }
  return "interface " + std::to_string(index);
}

std::vector<NetworkInterface> Interfaces::list(Clock::duration age) {
  const std::lock_guard lock(mutex_);
  const auto now = Clock::now();
  if (!wasRead_ || now - readAt_ >= age) {
    list_ = reader_();
    readAt_ = now;
    wasRead_ = true;
  }
  return list_;
}

}  // namespace korvel
