#include "tools/capture/MessageLine.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <functional>
#include <string_view>

#include "station/base/Strings.h"
#include "tools/capture/MessageFilter.h"
#include "tools/wire/MessageReport.h"

namespace korvel {

namespace {

constexpr std::array kSenderColours{"\033[32m", "\033[33m", "\033[34m", "\033[35m", "\033[36m"};
constexpr std::size_t kTimeWidth = 12;
constexpr std::int64_t kNanosecondsASecond = 1'000'000'000;

/// The time of day here, to the millisecond.
std::string timeOfDay(std::int64_t time) {
  const auto seconds = static_cast<std::time_t>(time / kNanosecondsASecond);
  std::tm parts{};
  localtime_r(&seconds, &parts);
  char text[32];
  const std::size_t size = std::strftime(text, sizeof text, "%H:%M:%S", &parts);
  const int milliseconds = static_cast<int>(time % kNanosecondsASecond / 1'000'000);
  std::snprintf(text + size, sizeof text - size, ".%03d", milliseconds);
  return text;
}

std::size_t lettersOf(const std::string& utf8) {
  return static_cast<std::size_t>(
      std::count_if(utf8.begin(), utf8.end(), [](char byte) { return (byte & 0xC0) != 0x80; }));
}

std::string happening(const std::string& container) {
  constexpr std::array kWords{"nothing", "rewritten", "reload now", "destroyed"};
  if (container.size() != 1 || container[0] < '0' || container[0] > '3') return container;
  return kWords[static_cast<std::size_t>(container[0] - '0')];
}

std::string joined(const std::string& first, const std::string& second) {
  return second.empty() ? first : first + "  " + second;
}

/// Why a message is none: the first that is wrong with it.
std::string whyNotValid(const HeardMessage& message) {
  const auto warnings = warningsAbout(message.bytes);
  return warnings.empty() ? "" : warnings.front();
}

}  // namespace

std::string MessageLine::heading() {
  std::string time = "time";
  time.resize(kTimeWidth, ' ');
  return time + "  " + column("sender", senderWidth_, kPlain) + column("type", typeWidth_, kPlain) +
         column("project", projectWidth_, kPlain) + "object";
}

std::string MessageLine::of(const HeardMessage& message, const MessageFields& fields) {
  const std::string sender = senderText(message);
  const char* const colour =
      kSenderColours[std::hash<std::string>()(sender) % kSenderColours.size()];
  const std::string type = fields.valid ? fields.typeName : kNotValid;
  const std::string line = timeOfDay(message.time) + "  " + column(sender, senderWidth_, colour) +
                           column(type, typeWidth_, fields.valid ? kBold : kRed) +
                           column(shownText(fields.project), projectWidth_, kPlain) +
                           shownText(fields.valid ? objectText(fields) : whyNotValid(message));
  return line.substr(0, line.find_last_not_of(' ') + 1);
}

std::string MessageLine::column(const std::string& text, std::size_t& width,
                                const char* colour) const {
  const std::size_t letters = lettersOf(text);
  width = std::max(width, letters);
  const std::string gap(width - letters + 2, ' ');
  return coloured(text, colour, colours_) + gap;
}

std::string objectText(const MessageFields& fields) {
  switch (fields.type) {
    case 1:
      return joined(fields.cookie, fields.modification);
    case 5:
      return joined(fields.cookie, "owner " + fields.data);
    case 7:
    case 15:
      return joined(fields.cookie, happening(fields.container));
    case 8:
    case 9:
      return fields.data;
    case 10:
      return fields.source + " to " + fields.target + ": " + fields.data;
    case 11:
    case 12:
      return fields.source + " to " + fields.target + ": " + fields.cookie;
    case 13:
      return fields.source + " to machine " + fields.target + ": " + fields.data;
    default:
      return fields.cookie;
  }
}

}  // namespace korvel
