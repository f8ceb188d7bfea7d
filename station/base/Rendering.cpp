#include "station/base/Rendering.h"

#include <algorithm>
#include <cwchar>
#include <sstream>
#include <string_view>
#include <vector>

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

}  // namespace korvel
