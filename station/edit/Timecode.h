#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "station/base/Result.h"

namespace korvel {

/// Times as editors read and type them, at one frame rate:
///
///     01:00:02:12    hours, minutes, seconds and frames
///     01:00:02;12    the same in drop-frame, at 29.97 and 59.94 frames a second
///
/// A rate of 29.97 is counted in 30 frames a second, so its timecode would fall behind the clock.
/// Drop-frame leaves out two numbers (at 59.94 four) at the beginning of each minute but every
/// tenth; no frame is left out. A plain value. Any thread.
class Timecode {
 public:
  /// `rate`: frames a second. Without one (zero, or no number) times are shown in seconds.
  explicit Timecode(double rate);

  [[nodiscard]] bool isDropFrame() const { return dropped_ > 0; }

  /// How many frames a second of the timecode has: the next whole number of the rate, at least 1.
  [[nodiscard]] long framesPerSecond() const { return perSecond_; }

  /// The frame that is nearest to a time, and when a frame begins, in seconds.
  [[nodiscard]] long frameAt(double seconds) const;
  [[nodiscard]] double secondsAt(long frame) const;

  /// The first frame that has a second of the timecode: of second 60 the one that is called
  /// "00:01:00:00", in drop-frame "00:01:00;02".
  [[nodiscard]] long firstFrameOf(long second) const;

  /// "00:00:02:12". A time before zero has a minus in front. The frames have as many digits as the
  /// rate needs, two at least.
  [[nodiscard]] std::string text(long frame) const;
  [[nodiscard]] std::string textAt(double seconds) const;

  /// The seconds that a user means by what he typed:
  ///
  ///     1:12  00:00:01;12  0.00.01.12    timecode, from the right; its separators mean the same
  ///     36  36f                          frames
  ///     1.5s  1.5                        seconds, which need not be a whole frame
  ///     +12f  -1:00                      a step from `from`, where there is such a time
  ///
  /// Failure: eUsage, what is wrong with it and how it is written.
  [[nodiscard]] Result<double> read(std::string_view typed, std::optional<double> from = {}) const;

 private:
  [[nodiscard]] Result<double> readFrames(std::string_view digits, std::string_view typed) const;
  [[nodiscard]] Result<double> readFields(std::string_view text, std::string_view typed) const;
  [[nodiscard]] Result<double> readUnsigned(std::string_view text, std::string_view typed) const;

  double rate_;
  long perSecond_;
  long dropped_;  ///< how many numbers a minute leaves out
};

}  // namespace korvel
