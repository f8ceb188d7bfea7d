#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <string>

namespace korvel {

/// The page that a measurement's processes share: when each message was sent, and when each peer
/// took it. Times are nanoseconds of the monotonic clock, which is one for the whole machine.
struct Board {
  static constexpr std::uint32_t kMessages = 512;
  static constexpr std::size_t kPeers = 17;

  /// What one peer has received.
  struct Peer {
    std::atomic<std::uint32_t> count;
    std::atomic<std::int64_t> lastAt;
    std::array<std::atomic<std::int64_t>, kMessages> latency;
  };

  std::atomic<std::int64_t> firstSentAt;
  std::array<std::atomic<std::int64_t>, kMessages> sentAt;
  std::array<Peer, kPeers> peers;

  static std::int64_t now();

  /// Notes that a message is about to be sent.
  void sending(std::uint32_t number);

  /// Notes that a peer has taken a message.
  void arrived(std::size_t peer, std::uint32_t number);
};

/// The board in a file, shared by all that map it; unmapped at the end. One that cannot be had ends
/// the process with a message.
class SharedBoard {
 public:
  explicit SharedBoard(const std::string& path);
  SharedBoard(const SharedBoard&) = delete;
  SharedBoard& operator=(const SharedBoard&) = delete;
  ~SharedBoard();

  Board& operator*() const { return *board_; }
  Board* operator->() const { return board_; }

 private:
  Board* board_;
};

}  // namespace korvel
