#pragma once

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "tools/capture/HeardMessage.h"

namespace korvel {

/// The messages that were not heard, by why.
struct MissedMessages {
  std::uint64_t bySystem = 0;  ///< the system's buffer was full
  std::uint64_t byQueue = 0;   ///< what reads the output, or the disk, was too slow

  [[nodiscard]] std::uint64_t total() const { return bySystem + byQueue; }
};

/// Messages on their way from the thread that hears them to the one that shows them, and what went
/// wrong on that way. Bounded. Any thread.
class CaptureQueue {
 public:
  /// How many bytes wait at most.
  static constexpr std::size_t kMaxWaiting = 64u << 20;

  /// Adds a message; where there is no room, it is missed.
  void add(HeardMessage message);

  /// How many the system has dropped so far.
  void systemDropped(std::uint64_t total) { bySystem_ = total; }

  /// Nothing more is heard, for this reason.
  void fail(std::string problem);

  /// Takes all that waits, after waiting for some as long as the limit; wake() ends the wait.
  std::vector<HeardMessage> take(std::chrono::milliseconds limit);

  void wake();

  [[nodiscard]] MissedMessages missed() const { return {bySystem_, byQueue_}; }

  /// Why nothing more is heard; empty while all is well.
  [[nodiscard]] std::string problem() const;

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<HeardMessage> waiting_;
  std::size_t bytes_ = 0;
  std::string problem_;
  bool isWoken_ = false;
  std::atomic<std::uint64_t> bySystem_{0};
  std::atomic<std::uint64_t> byQueue_{0};
};

}  // namespace korvel
