#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
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

/// The same as shownText() between double quotes, as names stand in sentences.
inline std::string inQuotes(std::string_view utf8) { return "\"" + shownText(utf8) + "\""; }

/// The words one after another with the separator between them; empty for none.
std::string joined(const std::vector<std::string>& words, std::string_view separator);

/// Whether a text holds ASCII alone; whether it is UTF-8 as a whole.
bool isAscii(std::string_view text);
bool isUtf8(std::string_view text);

/// Appends a character's UTF-8 bytes. Half of a surrogate pair becomes the three bytes of its
/// number.
void appendUtf8(std::string& bytes, std::uint32_t character);

inline constexpr std::string_view kHexDigits = "0123456789abcdef";
inline constexpr std::string_view kUpperHexDigits = "0123456789ABCDEF";

/// The value of a hexadecimal digit of either case; -1 for any other character.
int hexDigitValue(char digit);

/// Bytes as lower-case hexadecimal digits, two a byte; and back, nothing where the text is not
/// pairs of hexadecimal digits.
std::string hexText(std::string_view bytes);
std::optional<std::string> bytesOfHex(std::string_view hex);

/// The FNV-1a hashes of 32 and 64 bits: the same on every station and in every version, so files
/// and numbers can be named after them.
std::uint32_t hash32(std::string_view bytes);
std::uint64_t hash64(std::string_view bytes);

/// A time, in seconds since 1970, as files and lists show it: "2026-05-31T12:00:00Z".
std::string utcText(std::int64_t seconds);

/// The same on the clock of the wall: "12:04", with the date unless it is of today.
std::string wallText(std::int64_t seconds);

/// How many letters must be added, taken away, replaced or swapped with their neighbour to turn one
/// text into the other.
std::size_t editDistance(std::string_view a, std::string_view b);

/// The candidate nearest to what was typed, the first of equally near ones; empty when none is near
/// (more than a third of its letters, but at least one, would have to change).
std::string nearestName(const std::string& typed, const std::vector<std::string>& candidates);

}  // namespace korvel
