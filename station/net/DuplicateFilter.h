#pragma once

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "station/net/Ipv4.h"

namespace korvel {

/// One received datagram; the bytes belong to whoever read it.
struct Datagram {
  Ipv4 source;
  std::uint16_t port = 0;  ///< the sender's
  unsigned interface = 0;  ///< the one by which it came
  std::string_view bytes;
  Ipv4 target{};  ///< the address it was sent to; 0.0.0.0 where the system did not say
};

/// Recognises the copies of one message that two networks in common deliver: the same bytes from
/// the same sender's port by another way (source address or interface) within 100 ms. The same
/// bytes by the same way are a message said again, however fast. One thread.
///
/// Messages are told apart by a hash of 128 bits with a key of this object's own, so that nobody
/// can send bytes that pass for a copy of another message, or that make the table slow.
class DuplicateFilter {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr auto kWindow = std::chrono::milliseconds(100);

  /// More messages than this within the window, and the oldest are forgotten early.
  static constexpr std::size_t kMaxRemembered = 65'536;

  /// More ways than any facility has. What comes by further ones, of a message that was taken, is a
  /// copy: a stranger that invents addresses does not make each message slower than the last.
  static constexpr std::size_t kMaxWays = 16;

  DuplicateFilter();

  /// Whether the datagram is a copy of a message that was taken already; else it is a message, and
  /// is remembered.
  bool isDuplicate(const Datagram& datagram, Time now);

  [[nodiscard]] std::size_t remembered() const { return ages_.size(); }

  /// How many ways are remembered of the message whose copy the datagram is.
  [[nodiscard]] std::size_t waysOf(const Datagram& datagram) const;

 private:
  using Way = std::pair<Ipv4, unsigned>;
  using Key = std::array<std::uint64_t, 2>;

  /// The key's bits are as good as random already.
  struct HashOfKey {
    std::size_t operator()(const Key& key) const { return key[0]; }
  };

  /// How often a message was taken, and how many of these each way has brought.
  struct Message {
    std::size_t forgotten = 0;  ///< times taken that are out of the window
    std::size_t taken = 0;      ///< times taken within it
    std::vector<std::pair<Way, std::size_t>> brought;
  };

  [[nodiscard]] Key keyOf(const Datagram& datagram) const;
  void forgetBefore(Time time);
  void forgetOldest();

  std::array<unsigned char, 32> secret_;
  std::unordered_map<Key, Message, HashOfKey> messages_;
  std::deque<std::pair<Time, Key>> ages_;
};

}  // namespace korvel
