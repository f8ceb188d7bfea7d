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

/// A container value in words; as it stands where it is none.
std::string happening(const std::string& container) {
  const bool isDigit = container.size() == 1 && container[0] >= '0' && container[0] <= '9';
  if (!isDigit || !isContainerValue(container)) return container;
  return kContainerValues[static_cast<std::size_t>(numberAtStart(container))];
}

bool isGap(const char* text) {
  return std::string_view(text).find_first_not_of(' ') == std::string_view::npos;
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
  const MessageType* const type = messageType(fields.type);
  if (!type) return fields.cookie;
  std::string shown;
  for (const ShownPart& part : type->shown) {
    if (!part.field) break;
    const std::string& text = fields.*part.field->text;
    if (text.empty() && isGap(part.before)) continue;
    shown += part.before + (part.field == &kContainerField ? happening(text) : text);
  }
  return shown;
}

}  // namespace korvel
