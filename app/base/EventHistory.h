#pragma once

#include <cstddef>
#include <deque>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "app/base/EventSinks.h"
#include "app/base/Waiter.h"

namespace korvel {

/// Which event somebody waits for.
struct EventPattern {
  std::string event;  ///< its name

  /// Keys, and the texts that will do for each: a text as it stands, all else as JSON writes it.
  std::vector<std::pair<std::string, std::set<std::string>>> keys;

  [[nodiscard]] bool matches(const JsonValue& value) const;
};

/// The latest events that nobody waited for yet, oldest first, for `wait`. Bounded in count and
/// bytes: the oldest are forgotten.
class EventHistory : public iEventSink {
 public:
  static constexpr std::size_t kMaxEvents = 20'000;
  static constexpr std::size_t kMaxBytes = 8u << 20;

  explicit EventHistory(Waiter& waiter) : waiter_(waiter) {}

  void take(const StationEvent& event) override;

  /// The oldest event that matches; it will not be found again. Waits for it until the deadline;
  /// nothing when none came, or when the program is to end. Any thread.
  std::optional<JsonValue> await(const EventPattern& pattern, Waiter::Clock::time_point deadline);

 private:
  struct Kept {
    StationEvent event;  ///< without its value, which the line holds
    [[nodiscard]] std::size_t bytes() const { return event.line.size() + event.datagram.size(); }
  };

  std::optional<JsonValue> takeMatch(const EventPattern& pattern, std::size_t& seen);
  void forgetOldest();

  Waiter& waiter_;  ///< its lock guards all below
  std::deque<Kept> kept_;
  std::size_t bytes_ = 0;
  std::size_t forgotten_ = 0;  ///< how many were taken off the front, ever
};

}  // namespace korvel
