#include "station/base/Json.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <cwchar>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Log.h"
#include "host/base/Text.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr const char* kGap = "  ";
constexpr const char* kNothing = "(none)";

// Of a wrapped table of 80 columns.
constexpr std::size_t kFirstColumn = 28;
constexpr std::size_t kSecondColumn = 80 - kFirstColumn;

/// How many columns of a terminal the text takes.
std::size_t width(const std::string& text) {
  std::size_t columns = 0;
  const LightweightString<wchar_t> letters = wideText(text);
  for (const wchar_t letter : letters.view()) {
    const int taken = ::wcwidth(letter);
    columns += taken < 0 ? 1 : static_cast<std::size_t>(taken);
  }
  return columns;
}

std::vector<std::string_view> splitLines(std::string_view text) {
  std::vector<std::string_view> lines;
  for (std::size_t end = 0; end != std::string_view::npos;) {
    end = text.find('\n');
    lines.push_back(text.substr(0, end));
    text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
  }
  return lines;
}

std::string shownLines(const std::string& text) {
  std::string shown;
  for (const std::string_view line : splitLines(text)) {
    if (!shown.empty() || line.data() != text.data()) shown += '\n';
    shown += shownText(line);
  }
  return shown;
}

std::string indented(const std::string& text) {
  std::string shifted;
  for (const std::string_view line : splitLines(text)) {
    shifted += '\n';
    shifted += kGap;
    shifted += line;
  }
  return shifted;
}

/// Doubles of this size and beyond have no decimals.
constexpr double kNoDecimals = 1e15;

bool hasDecimals(const JsonValue& number) {
  return !isWholeNumber(number.spelling()) && std::abs(number.asDouble()) < kNoDecimals;
}

/// A value on one line.
std::string cell(const JsonValue& value) {
  switch (value.kind()) {
    case JsonValue::Kind::eNull:
      return {};
    case JsonValue::Kind::eBool:
      return value.asBool() ? "yes" : "no";
    case JsonValue::Kind::eString:
      return shownText(value.asString());
    case JsonValue::Kind::eArray: {
      std::string all;
      for (const JsonValue& each : value.elements()) all += (all.empty() ? "" : ", ") + cell(each);
      return all;
    }
    case JsonValue::Kind::eNumber:
      return hasDecimals(value) ? shownNumber(value.asDouble()) : value.spelling();
    default:
      return writeJson(value);
  }
}

using Row = std::vector<std::string>;

/// The keys of all objects, in the order in which they first appear.
Row columnsOf(const std::vector<JsonValue>& objects) {
  Row columns;
  for (const JsonValue& object : objects) {
    for (const auto& [key, value] : object.members()) {
      if (std::ranges::find(columns, key) == columns.end() && !cell(value).empty()) {
        columns.push_back(key);
      }
    }
  }
  return columns;
}

std::string aligned(const std::vector<Row>& rows) {
  std::vector<std::size_t> widths(rows.front().size());
  for (const Row& row : rows) {
    for (std::size_t i = 0; i < row.size(); ++i) widths[i] = std::max(widths[i], width(row[i]));
  }
  std::string text;
  for (const Row& row : rows) {
    std::string line;
    for (std::size_t i = 0; i < row.size(); ++i) {
      line += row[i] + std::string(widths[i] - width(row[i]), ' ') + kGap;
    }
    line.erase(line.find_last_not_of(' ') + 1);
    text += (text.empty() ? "" : "\n") + line;
  }
  return text;
}

std::string table(const std::vector<JsonValue>& objects) {
  std::vector<Row> rows{columnsOf(objects)};
  if (rows.front().empty()) return kNothing;
  for (const JsonValue& object : objects) {
    Row row;
    for (const std::string& column : rows.front()) row.push_back(cell(object[column]));
    rows.push_back(std::move(row));
  }
  for (std::string& title : rows.front()) std::ranges::replace(title, '_', ' ');
  return aligned(rows);
}

bool isTable(const std::vector<JsonValue>& elements) {
  return std::ranges::all_of(elements, [](const JsonValue& each) { return each.isObject(); });
}

std::string list(const std::vector<JsonValue>& elements) {
  if (elements.empty()) return kNothing;
  if (isTable(elements)) return table(elements);
  std::string text;
  for (const JsonValue& each : elements) text += (text.empty() ? "" : "\n") + cell(each);
  return text;
}

bool isBlock(const JsonValue& value) {
  if (value.isObject()) return !value.members().empty();
  return value.isArray() && !value.elements().empty() && isTable(value.elements());
}

std::string keysAndValues(const JsonValue& object) {
  std::string text;
  for (const auto& [key, value] : object.members()) {
    if (!text.empty()) text += '\n';
    text += key + ":";
    if (isBlock(value)) {
      text += indented(renderForPeople(value));
    } else if (const std::string shown = cell(value); !shown.empty()) {
      text += " " + shown;
    }
  }
  return text;
}

std::vector<std::string> wrapped(const std::string& text, std::size_t columns) {
  std::vector<std::string> lines(1);
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    if (!lines.back().empty() && width(lines.back()) + 1 + width(word) > columns)
      lines.push_back({});
    lines.back() += (lines.back().empty() ? "" : " ") + word;
  }
  return lines;
}

std::string wrappedRow(const std::string& first, const std::string& second) {
  const std::size_t taken = width(first) + std::string_view(kGap).size();
  std::string margin(taken > kFirstColumn ? 0 : kFirstColumn - width(first), ' ');
  if (taken > kFirstColumn) margin = "\n" + std::string(kFirstColumn, ' ');
  std::string row = first;
  for (const std::string& line : wrapped(second, kSecondColumn)) {
    row += margin + line;
    margin = "\n" + std::string(kFirstColumn, ' ');
  }
  return row;
}

}  // namespace

std::string shownNumber(double number) {
  if (!(std::abs(number) < kNoDecimals)) return JsonValue(number).spelling();
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%.3f", number);
  std::string shown = text.data();
  shown.erase(shown.find_last_not_of('0') + 1);
  if (shown.back() == '.') shown.pop_back();
  return shown == "-0" ? "0" : shown;
}

std::string renderWrapped(const JsonValue& rows) {
  std::string text;
  for (const JsonValue& row : rows.elements()) {
    if (row.members().size() < 2) continue;
    text += (text.empty() ? "" : "\n") +
            wrappedRow(cell(row.members()[0].second), cell(row.members()[1].second));
  }
  return text;
}

std::string renderForPeople(const JsonValue& value) {
  if (value.isString()) return shownLines(value.asString());
  if (value.isObject()) return keysAndValues(value);
  return value.isArray() ? list(value.elements()) : cell(value);
}

namespace {

/// The greatest width and precision: more than any line needs, and small enough to cost nothing.
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
    const std::string letter(1, static_cast<char>(argument.signedValue));
    return padTo(loggedText(letter), conversion);
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
