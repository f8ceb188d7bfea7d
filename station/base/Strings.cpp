#include "station/base/Strings.h"

#include <algorithm>
#include <ctime>
#include <string>

namespace korvel {

namespace {

bool isPlain(std::string_view text) {
  return std::ranges::none_of(text, [](char byte) { return byte < 0x20 || byte > 0x7E; });
}

std::string escapeOf(wchar_t control) {
  switch (control) {
    case L'\n':
      return "\\n";
    case L'\r':
      return "\\r";
    case L'\t':
      return "\\t";
    default:
      break;
  }
  return std::string("\\x") + kUpperHexDigits[(control >> 4) & 15] + kUpperHexDigits[control & 15];
}

std::string escaped(std::string_view utf8) {
  constexpr wchar_t kReplacement = 0xFFFD;
  std::wstring letters;
  const LightweightString<wchar_t> wide = wideText(utf8);
  for (const wchar_t letter : wide.view()) {
    const bool isControl = letter < 0x20 || (letter >= 0x7F && letter < 0xA0);
    const bool isByte = letter >= 0xDC00 && letter <= 0xDFFF;
    if (isControl) {
      const std::string escape = escapeOf(letter);
      letters.append(escape.begin(), escape.end());
    } else {
      letters += isByte ? kReplacement : letter;
    }
  }
  return utf8Text(LightweightString<wchar_t>(std::wstring_view(letters)));
}

/// The beginning of a text, up to a whole letter.
std::string_view beginningOf(std::string_view utf8) {
  std::size_t size = kMostLoggedBytes;
  while (size > 0 && (utf8[size] & 0xC0) == 0x80) --size;
  return utf8.substr(0, size);
}

}  // namespace

std::string loggedText(std::string_view utf8) {
  const bool isLong = utf8.size() > kMostLoggedBytes;
  const std::string_view kept = isLong ? beginningOf(utf8) : utf8;
  std::string text = isPlain(kept) ? std::string(kept) : escaped(kept);
  if (isLong) text += "... (" + std::to_string(utf8.size()) + " bytes)";
  return text;
}

std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> beforeLast;
  std::vector<std::size_t> last;
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    beforeLast = std::move(last);
    last = row;
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
  }
  return row.back();
}

std::string nearestName(const std::string& typed, const std::vector<std::string>& candidates) {
  std::string nearest;
  std::size_t least = ~std::size_t{0};
  for (const std::string& candidate : candidates) {
    const std::size_t allowed = std::max<std::size_t>(1, candidate.size() / 3);
    if (typed.size() > candidate.size() + allowed) continue;  // a pasted megabyte is not compared
    const std::size_t distance = editDistance(typed, candidate);
    if (distance > allowed || distance >= least) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest;
}

std::string joined(const std::vector<std::string>& words, std::string_view separator) {
  std::string all;
  for (const std::string& word : words) {
    if (&word != &words.front()) all += separator;
    all += word;
  }
  return all;
}

bool isAscii(std::string_view text) {
  return std::ranges::none_of(text, [](char byte) { return (byte & 0x80) != 0; });
}

bool isUtf8(std::string_view text) {
  if (isAscii(text)) return true;
  // Decoding marks each byte that is no part of a UTF-8 sequence by a low surrogate.
  const LightweightString<wchar_t> wide = wideText(text);
  return std::ranges::none_of(wide.view(),
                              [](wchar_t letter) { return letter >= 0xDC00 && letter <= 0xDFFF; });
}

void appendUtf8(std::string& bytes, std::uint32_t character) {
  const auto push = [&bytes](std::uint32_t byte) { bytes += static_cast<char>(byte); };
  if (character < 0x80) {
    push(character);
    return;
  }
  const int following = character < 0x800 ? 1 : character < 0x10000 ? 2 : 3;
  constexpr std::uint32_t kFirst[] = {0, 0xC0, 0xE0, 0xF0};
  push(kFirst[following] | (character >> (6 * following)));
  for (int left = following - 1; left >= 0; --left) {
    push(0x80 | ((character >> (6 * left)) & 0x3F));
  }
}

int hexDigitValue(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'a' && digit <= 'f') return digit - 'a' + 10;
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

std::string hexText(std::string_view bytes) {
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const char byte : bytes) {
    hex += kHexDigits[static_cast<unsigned char>(byte) >> 4];
    hex += kHexDigits[static_cast<unsigned char>(byte) & 15];
  }
  return hex;
}

std::optional<std::string> bytesOfHex(std::string_view hex) {
  if (hex.size() % 2 != 0) return {};
  std::string bytes;
  for (std::size_t at = 0; at < hex.size(); at += 2) {
    const int high = hexDigitValue(hex[at]);
    const int low = hexDigitValue(hex[at + 1]);
    if (high < 0 || low < 0) return {};
    bytes += static_cast<char>(high * 16 + low);
  }
  return bytes;
}

std::uint32_t hash32(std::string_view bytes) {
  std::uint32_t hash = 2166136261U;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
  return hash;
}

std::uint64_t hash64(std::string_view bytes) {
  std::uint64_t hash = 14695981039346656037ULL;
  for (const char byte : bytes) hash = (hash ^ static_cast<unsigned char>(byte)) * 1099511628211ULL;
  return hash;
}

std::string utcText(std::int64_t seconds) {
  const std::time_t time = seconds;
  std::tm parts{};
  gmtime_r(&time, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%SZ", &parts)};
}

std::string wallText(std::int64_t seconds) {
  const std::time_t time = seconds;
  const std::time_t now = std::time(nullptr);
  std::tm local{};
  std::tm today{};
  ::localtime_r(&time, &local);
  ::localtime_r(&now, &today);
  const bool isToday = local.tm_year == today.tm_year && local.tm_yday == today.tm_yday;
  char text[32];
  return {text, std::strftime(text, sizeof text, isToday ? "%H:%M" : "%Y-%m-%d %H:%M", &local)};
}

}  // namespace korvel
