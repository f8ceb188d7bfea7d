#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string_view>

#include "station/net/Interfaces.h"

namespace korvel {

/// The one socket by which this station sends. It is bound once to a port that the system chooses
/// and keeps it for life: by that port the station knows its own datagrams. Any thread.
class SenderSocket {
 public:
  /// The largest text that one datagram can carry, in bytes.
  static constexpr std::size_t kMaxBytes = 65'507;

  /// Opens the socket; where that fails, every send tries again.
  SenderSocket();
  SenderSocket(const SenderSocket&) = delete;
  SenderSocket& operator=(const SenderSocket&) = delete;
  ~SenderSocket();

  /// The port that the socket is bound to; 0 while there is none.
  [[nodiscard]] std::uint16_t port() const { return port_; }

  /// Sends one datagram. 0, or the errno value that tells why it did not leave. Waits a few
  /// milliseconds at most where the system's own queue is full.
  int send(const Destination& destination, std::uint16_t port, std::string_view bytes);

 private:
  int open();

  std::mutex mutex_;
  std::atomic<int> socket_{-1};
  std::atomic<std::uint16_t> port_{0};
};

}  // namespace korvel
