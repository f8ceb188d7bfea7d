#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
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
class DuplicateFilter {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr auto kWindow = std::chrono::milliseconds(100);

  /// More messages than this within the window, and the oldest are forgotten early.
  static constexpr std::size_t kMaxRemembered = 65'536;

  /// Whether the datagram is a copy of a message that was taken already; else it is a message, and
  /// is remembered.
  bool isDuplicate(const Datagram& datagram, Time now);

  [[nodiscard]] std::size_t remembered() const { return ages_.size(); }

 private:
  using Way = std::pair<Ipv4, unsigned>;

  /// How often a message was taken, and how many of these each way has brought.
  struct Message {
    std::size_t forgotten = 0;  ///< times taken that are out of the window
    std::size_t taken = 0;      ///< times taken within it
    std::vector<std::pair<Way, std::size_t>> brought;
  };

  void forgetBefore(Time time);
  void forgetOldest();

  std::unordered_map<std::uint64_t, Message> messages_;
  std::deque<std::pair<Time, std::uint64_t>> ages_;
};

}  // namespace korvel
