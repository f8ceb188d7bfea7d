#pragma once

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>

namespace korvel {

/// The station's one host thread: documents, managers, notifications and the delivery of datagrams
/// all run on it.
///
/// Two lanes lead to it. Tasks (commands, timers' work) are never lost. Deliveries (datagrams) are
/// bounded in count and in bytes, and refused beyond that, so that a flood cannot take the
/// machine's memory. run() takes from the two in turn, each in order, so that neither starves the
/// other.
class HostThread {
 public:
  using Task = std::function<void()>;

  static constexpr std::size_t kMaxDeliveries = 400'000;
  static constexpr std::size_t kMaxDeliveryBytes = 256u << 20;

  /// Queues a task. Any thread.
  void post(Task task);

  /// Queues a task once `delay` has passed. Any thread.
  void postAfter(std::chrono::milliseconds delay, Task task);

  /// Queues the delivery of something of `bytes` size; false when the lane is full and nothing was
  /// queued. Any thread.
  bool postDelivery(Task delivery, std::size_t bytes);

  /// Runs what is queued on the calling thread, which is the host thread from now on, until stop()
  /// was called.
  void run();

  /// Runs what is queued now and returns; for tests and for the end of the program.
  void runPending();

  /// Makes run() return after the current task. Any thread, and signal-safe it is not.
  void stop();

 private:
  struct Delivery {
    Task task;
    std::size_t bytes;
  };

  using Clock = std::chrono::steady_clock;

  bool takeNext(Task& next, bool wait);
  void waitForWork(std::unique_lock<std::mutex>& lock);
  void queueWhatIsDue();

  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Task> tasks_;
  std::multimap<Clock::time_point, Task> later_;
  std::deque<Delivery> deliveries_;
  std::size_t deliveryBytes_ = 0;
  bool deliveryTurn_ = false;
  bool stopped_ = false;
};

}  // namespace korvel
