#include <algorithm>
#include <charconv>
#include <cstdio>
#include <string>
#include <string_view>

#include "host/base/Log.h"
#include "host/base/Text.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

/// Wider or more precise than any line needs, and small enough to cost nothing.
constexpr int kMaxWidth = 4096;

/// What stands between a "%" and the end of its conversion. `letter` is 0 where the format ended.
struct Conversion {
  std::string flags;
  int width = 0;
  int precision = -1;
  char letter = 0;
};

int takeNumber(std::string_view& rest) {
  int number = 0;
  while (!rest.empty() && rest[0] >= '0' && rest[0] <= '9') {
    number = std::min(kMaxWidth, number * 10 + (rest[0] - '0'));
    rest.remove_prefix(1);
  }
  return number;
}

Conversion takeConversion(std::string_view& rest) {
  Conversion conversion;
  const std::size_t flags = std::min(rest.find_first_not_of("-+ #0"), rest.size());
  conversion.flags = rest.substr(0, flags);
  rest.remove_prefix(flags);
  conversion.width = takeNumber(rest);
  if (!rest.empty() && rest[0] == '.') {
    rest.remove_prefix(1);
    conversion.precision = takeNumber(rest);
  }
  rest.remove_prefix(std::min(rest.find_first_not_of("hlLqjzt"), rest.size()));
  if (!rest.empty()) {
    conversion.letter = rest[0];
    rest.remove_prefix(1);
  }
  return conversion;
}

bool isOneOf(std::string_view letters, char letter) {
  return letter != 0 && letters.find(letter) != std::string_view::npos;
}

/// The argument's text, whatever it is.
std::string textOf(const LogArgument& argument) {
  switch (argument.kind) {
    case LogArgument::eSigned:
      return std::to_string(argument.signedValue);
    case LogArgument::eUnsigned:
      return std::to_string(argument.unsignedValue);
    case LogArgument::eReal: {
      char buffer[64];
      const auto end = std::to_chars(buffer, buffer + sizeof buffer, argument.real).ptr;
      return std::string(buffer, end);
    }
    case LogArgument::eText:
      break;
  }
  return loggedText(argument.text);
}

/// printf's own format for the conversion, with those of its flags that are defined for it.
std::string printfFormat(const Conversion& conversion, std::string_view allowed,
                         std::string_view length) {
  std::string format = "%";
  for (const char flag : conversion.flags) {
    if (isOneOf(allowed, flag)) format += flag;
  }
  if (conversion.width > 0) format += std::to_string(conversion.width);
  if (conversion.precision >= 0) format += "." + std::to_string(conversion.precision);
  return format.append(length) + conversion.letter;
}

template <typename Value>
std::string print(const std::string& format, Value value) {
  const int length = std::snprintf(nullptr, 0, format.c_str(), value);
  if (length < 0) return {};
  std::string text(static_cast<std::size_t>(length), '\0');
  std::snprintf(text.data(), text.size() + 1, format.c_str(), value);
  return text;
}

std::string cutTo(std::string text, int precision) {
  if (precision < 0 || static_cast<std::size_t>(precision) >= text.size()) return text;
  auto length = static_cast<std::size_t>(precision);
  while (length > 0 && (static_cast<unsigned char>(text[length]) & 0xC0U) == 0x80) --length;
  return text.substr(0, length);
}

std::string padTo(std::string text, const Conversion& conversion) {
  const auto width = static_cast<std::size_t>(conversion.width);
  if (text.size() >= width) return text;
  const std::string blanks(width - text.size(), ' ');
  return isOneOf(conversion.flags, '-') ? text + blanks : blanks + text;
}

/// Whether the argument is a text that the conversion takes as it is.
bool isPlainText(const Conversion& conversion, const LogArgument& argument) {
  return conversion.letter == 's' && argument.kind == LogArgument::eText && conversion.width == 0 &&
         conversion.precision < 0;
}

std::string convert(const Conversion& conversion, const LogArgument& argument) {
  const bool whole =
      argument.kind == LogArgument::eSigned || argument.kind == LogArgument::eUnsigned;
  if (conversion.letter == 's') {
    return padTo(cutTo(textOf(argument), conversion.precision), conversion);
  }
  if (argument.kind == LogArgument::eReal && isOneOf("fFeEgGaA", conversion.letter)) {
    return print(printfFormat(conversion, "-+ #0", ""), argument.real);
  }
  if (argument.kind == LogArgument::eSigned && isOneOf("di", conversion.letter)) {
    return print(printfFormat(conversion, "-+ 0", "ll"), argument.signedValue);
  }
  if (whole && isOneOf("diuxXo", conversion.letter)) {
    Conversion plain = conversion;
    if (isOneOf("di", plain.letter)) plain.letter = 'u';
    const unsigned long long value = argument.kind == LogArgument::eSigned
                                         ? static_cast<unsigned long long>(argument.signedValue)
                                         : argument.unsignedValue;
    return print(printfFormat(plain, isOneOf("xXo", plain.letter) ? "-#0" : "-0", "ll"), value);
  }
  if (argument.kind == LogArgument::eSigned && conversion.letter == 'c' &&
      argument.signedValue > 0 && argument.signedValue < 0x80) {
    return padTo(std::string(1, static_cast<char>(argument.signedValue)), conversion);
  }
  return textOf(argument);
}

}  // namespace

}  // namespace korvel

using namespace korvel;

LogArgument::LogArgument(const LightweightString<wchar_t>& value)
    : kind(eText), text(toUTF8(value).view()) {}

std::string formatLogLine(const char* format, std::initializer_list<LogArgument> arguments) {
  std::string line;
  std::string_view rest = format ? format : "";
  auto next = arguments.begin();
  while (!rest.empty()) {
    const std::size_t percent = std::min(rest.find('%'), rest.size());
    line += rest.substr(0, percent);
    rest.remove_prefix(percent);
    if (rest.empty()) break;
    rest.remove_prefix(1);
    const Conversion conversion = takeConversion(rest);
    if (conversion.letter == '%') {
      line += '%';
    } else if (next != arguments.end() && isPlainText(conversion, *next)) {
      line += loggedText(next++->text);
    } else if (next != arguments.end()) {
      line += convert(conversion, *next++);
    }
  }
  return line;
}
