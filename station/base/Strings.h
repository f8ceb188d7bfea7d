#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/LightweightString.h"
#include "host/base/Text.h"

namespace korvel {

// The station keeps UTF-8 in std::string; the host's interfaces speak LightweightString. Any
// thread.

/// The host's string of the same bytes.
inline LightweightString<char> hostText(std::string_view utf8) {
  return LightweightString<char>(utf8);
}

/// The host's wide string of UTF-8 bytes.
inline LightweightString<wchar_t> wideText(std::string_view utf8) {
  return fromUTF8(LightweightString<char>(utf8));
}

/// The bytes of a host's string, as UTF-8.
inline std::string utf8Text(const LightweightString<char>& text) { return text.str(); }
inline std::string utf8Text(const LightweightString<wchar_t>& text) { return toUTF8(text).str(); }

/// UTF-8 in upper case by Unicode's rules, as owners and recipients are compared.
inline std::string upperCased(std::string_view utf8) {
  LightweightString<wchar_t> wide = wideText(utf8);
  Kv::toUpper(wide);
  return utf8Text(wide);
}

/// A text from elsewhere as it may stand on a terminal: control characters (C0, DEL and C1), and
/// bytes that are no UTF-8 and could be such to a terminal, become "?", so that no name moves the
/// cursor or hides what stands beside it.
inline std::string shownText(const LightweightString<wchar_t>& text) {
  std::wstring shown;
  for (const wchar_t letter : text.view()) {
    const bool isControl = letter < 0x20 || (letter >= 0x7F && letter < 0xA0);
    const bool isByte = letter >= 0xDC00 && letter <= 0xDCFF;
    shown += isControl || isByte ? L'?' : letter;
  }
  return utf8Text(LightweightString<wchar_t>(std::wstring_view(shown)));
}
inline std::string shownText(std::string_view utf8) { return shownText(wideText(utf8)); }

/// Of longer texts only so much goes into one line of the log.
inline constexpr std::size_t kMostLoggedBytes = 4096;

/// A text from elsewhere as it may stand within a line of the log: control characters (C0, DEL and
/// C1) as escapes like "\\n" and "\\x1B", bytes that are no UTF-8 as U+FFFD; what is longer than
/// kMostLoggedBytes is cut, and its length said.
std::string loggedText(std::string_view utf8);

/// The same between double quotes, as names stand in sentences.
inline std::string inQuotes(std::string_view utf8) { return "\"" + shownText(utf8) + "\""; }

/// How many letters must be added, taken away, replaced or swapped with their neighbour to turn one
/// text into the other.
std::size_t editDistance(std::string_view a, std::string_view b);

/// The candidate nearest to what was typed, the first of equally near ones; empty when none is near
/// (more than a third of its letters, but at least one, would have to change).
std::string nearestName(const std::string& typed, const std::vector<std::string>& candidates);

}  // namespace korvel
