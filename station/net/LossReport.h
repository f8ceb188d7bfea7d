#pragma once

#include <chrono>
#include <cstdint>

namespace korvel {

/// Counts datagrams that this station lost, by why, and tells each kind in one event when a flood
/// is over. One thread.
class LossReport {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// A flood is over when nothing was lost for this long.
  static constexpr auto kQuiet = std::chrono::milliseconds(200);

  /// A flood that does not end is told this often.
  static constexpr auto kLongest = std::chrono::seconds(10);

  /// The station's own queue took no more.
  void queueRefused(Time now);

  /// A datagram was larger than any can be, and is dropped whole.
  void wasTooLarge(Time now);

  /// The system's count of what it dropped stands at `total` (modulo 2^32); counts stand still or
  /// rise.
  void systemDropped(std::uint32_t total, Time now);

  [[nodiscard]] bool isPending() const { return queue_ + tooLarge_ + system_ > 0; }

  /// Tells what is pending if its flood is over.
  void tellIfOver(Time now);

  /// Tells what is pending.
  void tell();

 private:
  void note(Time now);

  std::uint64_t queue_ = 0;
  std::uint64_t tooLarge_ = 0;
  std::uint64_t system_ = 0;
  std::uint32_t systemTotal_ = 0;
  Time first_;
  Time last_;
};

}  // namespace korvel
