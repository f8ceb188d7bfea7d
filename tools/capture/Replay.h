#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "tools/capture/HeardMessage.h"

namespace korvel {

/// How bad the way of messages is. Chances are from 0 to 1.
struct WayFaults {
  double loss = 0;
  double duplicate = 0;
  double reorder = 0;  ///< that a message arrives behind the next one
  int delay = 0;       ///< up to as many milliseconds later; order is kept
  std::uint64_t seed = 1;
};

/// A message that leaves, so many nanoseconds after the beginning.
struct Departure {
  std::int64_t due = 0;
  HeardMessage message;
};

/// Does to messages what a bad network does. The same seed does the same to the same messages, and
/// what one fault does to a message does not depend on the other faults. One thread.
class FaultInjector {
 public:
  explicit FaultInjector(const WayFaults& faults) : faults_(faults), random_(faults.seed) {}

  /// Lets a message go its way: what leaves now, in order. Messages come in the order of `due`.
  std::vector<Departure> take(Departure departure);

  /// What was held back to be late, at the end.
  std::vector<Departure> finish();

  [[nodiscard]] std::uint64_t lost() const { return lost_; }
  [[nodiscard]] std::uint64_t duplicated() const { return duplicated_; }
  [[nodiscard]] std::uint64_t reordered() const { return reordered_; }

 private:
  double chance();

  WayFaults faults_;
  std::mt19937_64 random_;
  std::vector<Departure> held_;
  std::int64_t latest_ = 0;
  std::uint64_t lost_ = 0;
  std::uint64_t duplicated_ = 0;
  std::uint64_t reordered_ = 0;
};

}  // namespace korvel
