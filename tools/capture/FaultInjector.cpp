#include "tools/capture/FaultInjector.h"

#include <algorithm>
#include <utility>

namespace korvel {

namespace {

constexpr double kNanosecondsAMillisecond = 1e6;

}  // namespace

std::vector<Departure> FaultInjector::take(Departure departure) {
  // All four are drawn for every message, so that none depends on which others are asked for.
  const bool isLost = chance() < faults_.loss;
  const bool isDoubled = chance() < faults_.duplicate;
  const bool isLate = chance() < faults_.reorder;
  const double delay = chance() * faults_.delay * kNanosecondsAMillisecond;
  if (isLost) {
    ++lost_;
    return {};
  }
  latest_ = std::max(latest_, departure.due + static_cast<std::int64_t>(delay));
  departure.due = latest_;
  std::vector<Departure> group(isDoubled ? 2 : 1, std::move(departure));
  if (isDoubled) ++duplicated_;
  if (isLate && held_.empty()) {
    ++reordered_;
    held_ = std::move(group);
    return {};
  }
  for (Departure& late : std::exchange(held_, {})) {
    late.due = latest_;
    group.push_back(std::move(late));
  }
  return group;
}

std::vector<Departure> FaultInjector::finish() { return std::exchange(held_, {}); }

double FaultInjector::chance() {
  constexpr double kSteps = 9007199254740992.0;  // 2^53
  return static_cast<double>(random_() >> 11) / kSteps;
}

}  // namespace korvel
