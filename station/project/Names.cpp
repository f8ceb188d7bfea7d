#include "station/project/Names.h"

#include <algorithm>

#include <cstdlib>

#include "station/base/Strings.h"
#include "station/wire/MessageTable.h"

namespace korvel {

namespace {

/// Leaves room for the endings of lock files in what file systems allow (255 bytes).
constexpr std::size_t kLongestFileName = 240;
// What some server or client refuses in a name (SMB all but "%"), and the escape itself.
constexpr std::string_view kForbidden = "/\\:*?\"<>|%";
constexpr std::string_view kDigits = "0123456789ABCDEF";

bool mustEscape(const std::string& name, std::size_t at) {
  const char letter = name[at];
  const bool isLast = at + 1 == name.size();
  return static_cast<unsigned char>(letter) < 0x20 || letter == 0x7F ||
         kForbidden.find(letter) != std::string_view::npos || (letter == '.' && at == 0) ||
         (isLast && (letter == '.' || letter == ' '));
}

}  // namespace

std::string escapedForFile(const std::string& text) {
  std::string escaped;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (mustEscape(text, at)) {
      const auto byte = static_cast<unsigned char>(text[at]);
      escaped += {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
    } else {
      escaped += text[at];
    }
  }
  return escaped;
}

std::string unescapedFromFile(const std::string& escaped) {
  std::string text;
  for (std::size_t at = 0; at < escaped.size(); ++at) {
    if (escaped[at] != '%') {
      text += escaped[at];
      continue;
    }
    if (at + 2 >= escaped.size()) return {};
    const std::size_t high = kDigits.find(escaped[at + 1]);
    const std::size_t low = kDigits.find(escaped[at + 2]);
    if (high == std::string_view::npos || low == std::string_view::npos) return {};
    text += static_cast<char>(high * 16 + low);
    at += 2;
  }
  return text;
}

Result<std::string> roomFileName(const std::string& name) {
  if (auto checked = checkName("room", name); !checked) return checked.error();
  std::string fileName = escapedForFile(name);
  if (fileName.size() <= kLongestFileName) return fileName;
  return Error{
      ErrorCode::eUsage,
      "The name of the room is too long for its files: " + std::to_string(fileName.size()) +
          " bytes; at most " + std::to_string(kLongestFileName) + " are possible.",
      {}};
}

std::string roomNameOf(const std::string& fileName) {
  std::string name = unescapedFromFile(fileName);
  // Only the one spelling that roomFileName() makes: otherwise two files could stand for one room.
  const auto again = roomFileName(name);
  return again && *again == fileName ? name : std::string();
}

namespace {

constexpr std::size_t kLongestName = 1000;

bool hasControlCharacter(const std::string& name) {
  const LightweightString<wchar_t> wide = wideText(name);
  for (const wchar_t letter : wide.view()) {
    if (letter < 0x20 || (letter >= 0x7F && letter < 0xA0)) return true;
  }
  return false;
}

}  // namespace

Result<void> checkName(const std::string& what, const std::string& name) {
  if (name.empty()) return Error{ErrorCode::eUsage, "The " + what + " needs a name.", {}};
  if (name.size() > kLongestName) {
    return Error{ErrorCode::eUsage,
                 "The name of the " + what + " has " + std::to_string(name.size()) +
                     " bytes; at most " + std::to_string(kLongestName) + " are possible.",
                 {}};
  }
  if (hasControlCharacter(name)) {
    return Error{ErrorCode::eUsage,
                 "The name of the " + what + ", " + inQuotes(name) +
                     ", holds control characters (shown as \"?\"); leave them out.",
                 {}};
  }
  return {};
}

bool travelsWhole(const std::string& text) {
  return text.find(kFieldSeparator) == std::string::npos;
}

std::size_t tellingLength(std::vector<std::string> cookies) {
  std::size_t length = 8;
  std::ranges::sort(cookies);
  // In sorted order the longest common beginnings are between neighbours.
  for (std::size_t i = 1; i < cookies.size(); ++i) {
    if (cookies[i] == cookies[i - 1]) continue;
    const auto differs = std::ranges::mismatch(cookies[i - 1], cookies[i]).in1;
    length = std::max(length, static_cast<std::size_t>(differs - cookies[i - 1].begin()) + 1);
  }
  return length;
}

}  // namespace korvel
