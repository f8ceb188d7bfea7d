#include "app/base/EventHistory.h"

#include <algorithm>

namespace korvel {

namespace {

std::string comparedText(const JsonValue& value) {
  return value.isString() ? value.asString() : writeJson(value);
}

}  // namespace

bool EventPattern::matches(const JsonValue& value) const {
  return std::ranges::all_of(keys, [&value](const auto& wanted) {
    const JsonValue* found = value.find(wanted.first);
    return found && wanted.second.contains(comparedText(*found));
  });
}

void EventHistory::take(const StationEvent& event) {
  waiter_.change([&] {
    kept_.push_back({{event.name, {}, event.line, event.datagram}});
    bytes_ += kept_.back().bytes();
    while (kept_.size() > kMaxEvents || bytes_ > kMaxBytes) forgetOldest();
  });
}

std::optional<JsonValue> EventHistory::await(const EventPattern& pattern,
                                             Waiter::Clock::time_point deadline) {
  std::optional<JsonValue> found;
  std::size_t seen = 0;
  waiter_.await(deadline, [&] { return (found = takeMatch(pattern, seen)).has_value(); });
  return found;
}

// `seen` counts events from the first ever, so that each is looked at once however often the waiter
// wakes.
std::optional<JsonValue> EventHistory::takeMatch(const EventPattern& pattern, std::size_t& seen) {
  for (seen = std::max(seen, forgotten_); seen - forgotten_ < kept_.size(); ++seen) {
    const auto kept = kept_.begin() + static_cast<std::ptrdiff_t>(seen - forgotten_);
    if (kept->event.name != pattern.event) continue;
    auto value = parseJson(kept->event.wholeLine());
    if (!value || !pattern.matches(*value)) continue;
    bytes_ -= kept->bytes();
    kept_.erase(kept);
    return *value;
  }
  return std::nullopt;
}

void EventHistory::forgetOldest() {
  bytes_ -= kept_.front().bytes();
  kept_.pop_front();
  ++forgotten_;
}

}  // namespace korvel
