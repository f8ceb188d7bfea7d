#pragma once

#include <chrono>
#include <cstddef>
#include <deque>
#include <string>

/// A text that reached this station and that no panel took.
struct Notification {
  std::chrono::system_clock::time_point time;
  std::string text;  ///< as it came: UTF-8, if its sender wrote that

  /// The time as "2024-02-29T23:59:59Z".
  [[nodiscard]] std::string timeText() const;
};

/// The notifications so far, the oldest first. The newest kMaxKept are kept, so that a flood does
/// not take the machine's memory.
class Notifications {
 public:
  static constexpr std::size_t kMaxKept = 10'000;

  void add(std::string text);
  [[nodiscard]] const std::deque<Notification>& all() const { return kept_; }

 private:
  std::deque<Notification> kept_;
};
