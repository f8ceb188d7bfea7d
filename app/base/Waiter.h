#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>

namespace korvel {

/// What the console's thread waits on: changes that other threads make, and the wish to end. Any
/// thread.
class Waiter {
 public:
  using Clock = std::chrono::steady_clock;

  Waiter();
  Waiter(const Waiter&) = delete;
  Waiter& operator=(const Waiter&) = delete;
  ~Waiter();

  /// Makes a change under the lock and wakes who waits.
  template <typename Change>
  void change(const Change& make) {
    {
      const std::lock_guard lock(mutex_);
      make();
    }
    changed_.notify_all();
  }

  /// Waits until the condition, asked under the lock, holds; false at the deadline, and at once
  /// when the program is to end.
  template <typename Condition>
  bool await(Clock::time_point deadline, const Condition& condition) {
    std::unique_lock lock(mutex_);
    bool holds = false;
    changed_.wait_until(lock, deadline, [&] { return (holds = condition()) || ending_; });
    return holds;
  }

  /// Asks everything that waits to end.
  void end();

  [[nodiscard]] bool isEnding() const;

  /// A descriptor that is readable once end() was called, to poll beside others.
  [[nodiscard]] int descriptor() const { return descriptor_; }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool ending_ = false;
  int descriptor_ = -1;
};

}  // namespace korvel
