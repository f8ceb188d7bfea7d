#pragma once

#include <chrono>
#include <compare>
#include <cstdint>
#include <functional>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

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

  [[nodiscard]] std::uint32_t mask() const { return prefix == 0 ? 0 : ~0U << (32 - prefix); }
  [[nodiscard]] bool contains(Ipv4 other) const;

  friend auto operator<=>(const Ipv4Network&, const Ipv4Network&) = default;
};

/// "192.168.1.0/24", or one address alone; nothing for any other text.
std::optional<Ipv4Network> parseIpv4Network(std::string_view text);

/// One address of a network interface that is up.
struct NetworkInterface {
  std::string name;
  unsigned index = 0;
  Ipv4 address;
  Ipv4 broadcast;  ///< the directed broadcast address; 0.0.0.0 where the interface cannot broadcast
  bool isLoopback = false;
};

/// The addresses of this machine's interfaces that are up now; empty when the system does not say.
std::vector<NetworkInterface> readNetworkInterfaces();

/// Where a datagram goes: an address, and the interface by which it leaves; 0 leaves that to the
/// system's routes.
struct Destination {
  Ipv4 address;
  unsigned interface = 0;

  friend auto operator<=>(const Destination&, const Destination&) = default;
};

/// The machine's interfaces as they come and go with cables, private networks and sleep. Any
/// thread.
class Interfaces {
 public:
  using Reader = std::function<std::vector<NetworkInterface>()>;

  explicit Interfaces(Reader reader = readNetworkInterfaces);

  /// The destinations that addresses stand for. None means the directed broadcast address of every
  /// interface, loopback's where there is no other. A multicast address or 255.255.255.255 leaves
  /// by every interface, by loopback where there is no other; any other address goes once, wherever
  /// it is routed. The list is re-read when it is older than a second.
  std::vector<Destination> destinations(const std::vector<Ipv4>& addresses);

  /// Whether an address is one of this machine's.
  bool isOwn(Ipv4 address);

  /// All that isOwn() holds for.
  std::vector<Ipv4Network> own();

  /// Reads the list again, since a send failed; no more than fifty times a second.
  void reread();

  /// An interface's name, or its number where it has gone; empty for 0.
  std::string nameOf(unsigned index);

 private:
  using Clock = std::chrono::steady_clock;

  /// The list, re-read when it is older than `age`.
  std::vector<NetworkInterface> list(Clock::duration age);

  Reader reader_;
  std::mutex mutex_;
  std::vector<NetworkInterface> list_;
  Clock::time_point readAt_;
  bool wasRead_ = false;
};

}  // namespace korvel
