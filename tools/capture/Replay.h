#pragma once

#include <cstdint>
#include <optional>
#include <random>
#include <vector>

#include "tools/capture/HeardMessage.h"

namespace korvel {

/// The faults of a network. Chances are from 0 to 1.
struct WayFaults {
  double loss = 0;
  double duplicate = 0;
  double reorder = 0;  ///< that a message arrives behind the next one
  int delay = 0;       ///< up to as many milliseconds later; order is kept
  std::uint64_t seed = 1;
};

/// A message, and the nanoseconds after the beginning at which it is sent.
struct Departure {
  std::int64_t due = 0;
  HeardMessage message;
};

/// Loses, doubles, delays and reorders messages like a bad network. The same seed does the same to
/// the same messages. A fault of a message does not depend on the other faults. One thread.
class FaultInjector {
 public:
  explicit FaultInjector(const WayFaults& faults) : faults_(faults), random_(faults.seed) {}

  /// Takes a message and returns those to send now, in order. Messages must come in the order of
  /// `due`.
  std::vector<Departure> take(Departure departure);

  /// Returns the messages still held back, at the end.
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
