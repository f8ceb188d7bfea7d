#include "station/base/Strings.h"

#include <algorithm>
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
  constexpr const char* kDigits = "0123456789ABCDEF";
  return std::string("\\x") + kDigits[(control >> 4) & 15] + kDigits[control & 15];
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

}  // namespace korvel
