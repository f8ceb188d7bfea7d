#include "station/edit/Timecode.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr double kLargestFrame = 9e15;        // beyond it a double does not hold every frame
constexpr std::size_t kMostDigits = 9;        // of a field of a timecode
constexpr std::size_t kMostFrameDigits = 15;  // a double holds each such frame
constexpr std::size_t kMostDecimals = 25;     // all that a double is printed with
constexpr std::size_t kMostFields = 4;        // hours, minutes, seconds, frames
constexpr double kMostPerSecond = 1e6;        // any hour that can be typed has its frames in a long
constexpr const char* kSeparators = ":;.";

/// How many numbers a minute of the timecode leaves out. Files write such a rate as 29.97, or as
/// 30000/1001 with more digits.
long droppedOf(double rate) {
  constexpr double kTolerance = 0.005;
  if (std::abs(rate - 30000.0 / 1001) < kTolerance) return 2;
  return std::abs(rate - 60000.0 / 1001) < kTolerance ? 4 : 0;
}

bool isWhole(std::string_view text, std::size_t most = kMostDigits) {
  return !text.empty() && text.size() <= most &&
         std::ranges::all_of(text, [](char each) { return each >= '0' && each <= '9'; });
}

long wholeNumber(std::string_view digits) {
  long number = 0;
  std::from_chars(digits.data(), digits.data() + digits.size(), number);
  return number;
}

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

/// A number with a decimal point or without, and nothing else.
std::optional<double> decimal(std::string_view text) {
  const std::size_t point = std::min(text.find('.'), text.size());
  const std::string_view behind = text.substr(std::min(point + 1, text.size()));
  const bool isPart = point == text.size() || isWhole(behind, kMostDecimals);
  if (!isWhole(text.substr(0, point), kMostFrameDigits) || !isPart) return {};
  double number = 0;
  std::from_chars(text.data(), text.data() + text.size(), number);
  return number;
}

std::vector<std::string_view> fieldsOf(std::string_view text) {
  std::vector<std::string_view> fields;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = text.find_first_of(kSeparators);
    fields.push_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return fields;
}

Error refused(std::string_view typed, const std::string& why) {
  return {ErrorCode::eUsage, inQuotes(typed) + why, {}};
}

Error noTime(std::string_view typed) {
  return refused(typed,
                 " is no time; write a timecode (\"1:12\"), frames (\"36\") or seconds "
                 "(\"1.5s\").");
}

/// A number with zeros before it, of so many digits at least, and of two.
std::string padded(long number, std::size_t digits = 2) {
  const std::string text = std::to_string(number);
  digits = std::max<std::size_t>(digits, 2);
  return text.size() < digits ? std::string(digits - text.size(), '0') + text : text;
}

}  // namespace

Timecode::Timecode(double rate)
    : rate_(std::isfinite(rate) && rate > 0 ? rate : 0),
      perSecond_(std::max(1L, std::lround(std::min(rate_, kMostPerSecond)))),
      dropped_(droppedOf(rate_)) {}

long Timecode::frameAt(double seconds) const {
  const double frame = seconds * rate_;
  return std::isfinite(frame) ? std::lround(std::clamp(frame, -kLargestFrame, kLargestFrame)) : 0;
}

double Timecode::secondsAt(long frame) const {
  return rate_ > 0 ? static_cast<double>(frame) / rate_ : 0;
}

long Timecode::firstFrameOf(long second) const {
  const long minutes = second / 60;
  const bool beginsLate = second % 60 == 0 && minutes % 10 != 0;
  return second * perSecond_ - dropped_ * (minutes - minutes / 10) + (beginsLate ? dropped_ : 0);
}

std::string Timecode::text(long frame) const {
  long number = std::abs(frame);
  const long tenMinutes = firstFrameOf(600);
  const long minute = 60 * perSecond_;  // the first of ten leaves nothing out
  const long inTen = number % tenMinutes;
  const long begun = inTen < minute ? 0 : 1 + (inTen - minute) / (minute - dropped_);
  number += dropped_ * (9 * (number / tenMinutes) + begun);
  const long second = number / perSecond_;
  const std::size_t digits = std::to_string(perSecond_ - 1).size();
  return (frame < 0 ? "-" : "") + padded(second / 3600) + ":" + padded(second / 60 % 60) + ":" +
         padded(second % 60) + (isDropFrame() ? ";" : ":") + padded(number % perSecond_, digits);
}

std::string Timecode::textAt(double seconds) const {
  return rate_ > 0 ? text(frameAt(seconds)) : shownNumber(seconds) + " s";
}

Result<double> Timecode::readFrames(std::string_view digits, std::string_view typed) const {
  if (!isWhole(digits, kMostFrameDigits)) {
    const bool isPart = decimal(digits).has_value();
    return isPart ? refused(typed,
                            " is no whole number of frames; write frames (\"36\"), or seconds "
                            "with an s (\"1.5s\").")
                  : noTime(typed);
  }
  return secondsAt(wholeNumber(digits));
}

Result<double> Timecode::readFields(std::string_view text, std::string_view typed) const {
  const std::vector<std::string_view> fields = fieldsOf(text);
  if (fields.size() > kMostFields ||
      !std::ranges::all_of(fields, [](std::string_view each) { return isWhole(each); })) {
    return noTime(typed);
  }
  const long frames = wholeNumber(fields.back());
  if (frames >= perSecond_) {
    return refused(typed, " has frame " + std::to_string(frames) +
                              ", but a second has the frames 0 to " +
                              std::to_string(perSecond_ - 1) + ".");
  }
  long second = 0;
  for (std::size_t i = 0; i + 1 < fields.size(); ++i) {
    const long number = wholeNumber(fields[i]);
    if (i > 0 && number >= 60) {
      return refused(typed, " has " + std::to_string(number) + " where 59 is the most.");
    }
    second = second * 60 + number;
  }
  const long first = firstFrameOf(second);
  const bool beginsLate = isDropFrame() && second % 60 == 0 && second / 60 % 10 != 0;
  if (beginsLate && frames < dropped_) {
    return refused(typed, " is left out in drop-frame; this minute begins with " +
                              Timecode::text(first) + ".");
  }
  return secondsAt(first + frames - (beginsLate ? dropped_ : 0));
}

Result<double> Timecode::readUnsigned(std::string_view text, std::string_view typed) const {
  const bool hasFrames = text.ends_with('f') || text.ends_with('F');
  const bool hasSeconds = text.ends_with('s') || text.ends_with('S');
  const std::string_view number = text.substr(0, text.size() - (hasFrames || hasSeconds ? 1 : 0));
  const auto seconds = decimal(number);
  const bool isFrames = hasFrames || (!hasSeconds && isWhole(number, kMostFrameDigits));
  if (seconds && !isFrames) return *seconds;
  if (hasSeconds) return noTime(typed);
  if (rate_ <= 0) {
    return refused(typed, " cannot be counted without a frame rate; write seconds (\"1.5s\").");
  }
  if (isFrames) return readFrames(number, typed);
  return text.find_first_of(kSeparators) == text.npos ? noTime(typed) : readFields(text, typed);
}

Result<double> Timecode::read(std::string_view typed, std::optional<double> from) const {
  const std::string_view text = withoutBlanks(typed);
  const bool isStep = text.starts_with('+') || text.starts_with('-');
  if (!isStep) return readUnsigned(text, typed);
  if (!from) return refused(typed, " is a step, and there is no time here to count it from.");
  const auto step = readUnsigned(text.substr(1), typed);
  if (!step) return step.error();
  return *from + (text[0] == '-' ? -*step : *step);
}

}  // namespace korvel
