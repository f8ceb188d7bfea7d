#include "host/base/Text.h"

#include <unicode/locid.h>
#include <unicode/unistr.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr std::uint32_t kEscape = 0xDC00;
constexpr std::uint32_t kReplacement = 0xFFFD;
constexpr std::uint32_t kSmallest[] = {0, 0, 0x80, 0x800, 0x10000};

bool isSurrogate(std::uint32_t c) { return c >= 0xD800 && c <= 0xDFFF; }
bool isCharacter(std::uint32_t c) { return c <= 0x10FFFF && !isSurrogate(c); }
bool isEscapedByte(std::uint32_t c) { return c >= kEscape + 0x80 && c <= kEscape + 0xFF; }

/// How many bytes a sequence has whose first byte this is; 0 for a byte that begins none.
std::size_t sequenceLength(unsigned char first) {
  if (first < 0x80) return 1;
  if (first >= 0xC2 && first < 0xE0) return 2;
  if (first >= 0xE0 && first < 0xF0) return 3;
  if (first >= 0xF0 && first < 0xF5) return 4;
  return 0;
}

/// Decodes the sequence at the head of `bytes` (not empty) and returns its length; 0 when there is
/// no valid one.
std::size_t decodeOne(std::string_view bytes, std::uint32_t& character) {
  const auto first = static_cast<unsigned char>(bytes[0]);
  const std::size_t length = sequenceLength(first);
  if (length == 0 || length > bytes.size()) return 0;
  character = length == 1 ? first : first & (0x7FU >> length);
  for (std::size_t i = 1; i < length; ++i) {
    const auto next = static_cast<unsigned char>(bytes[i]);
    if ((next & 0xC0U) != 0x80) return 0;
    character = (character << 6) | (next & 0x3FU);
  }
  return isCharacter(character) && character >= kSmallest[length] ? length : 0;
}

LightweightString<wchar_t> decode(std::string_view bytes) {
  std::wstring text;
  text.reserve(bytes.size());
  while (!bytes.empty()) {
    std::uint32_t character = 0;
    std::size_t length = decodeOne(bytes, character);
    if (length == 0) {
      character = kEscape + static_cast<unsigned char>(bytes[0]);
      length = 1;
    }
    text += static_cast<wchar_t>(character);
    bytes.remove_prefix(length);
  }
  return LightweightString<wchar_t>(std::wstring_view(text));
}

void appendUpperCase(std::wstring& upper, std::vector<UChar32>& run) {
  if (run.empty()) return;
  const auto mapped =
      icu::UnicodeString::fromUTF32(run.data(), static_cast<std::int32_t>(run.size()))
          .toUpper(icu::Locale::getRoot());
  run.assign(static_cast<std::size_t>(mapped.length()), 0);
  UErrorCode status = U_ZERO_ERROR;
  run.resize(static_cast<std::size_t>(mapped.toUTF32(run.data(), mapped.length(), status)));
  upper.append(run.begin(), run.end());
  run.clear();
}

}  // namespace

}  // namespace korvel

using namespace korvel;

LightweightString<char> toUTF8(const LightweightString<wchar_t>& text) {
  std::string bytes;
  bytes.reserve(text.size());
  for (const wchar_t element : text.view()) {
    const auto character = static_cast<std::uint32_t>(element);
    if (isEscapedByte(character)) {
      bytes += static_cast<char>(character - kEscape);
    } else if (character < 0x80) {
      bytes += static_cast<char>(character);
    } else {
      appendUtf8(bytes, isCharacter(character) ? character : kReplacement);
    }
  }
  return LightweightString<char>(std::string_view(bytes));
}

LightweightString<wchar_t> fromUTF8(const char* text, int length) {
  if (!text) return {};
  return decode(
      std::string_view(text, length < 0 ? std::strlen(text) : static_cast<std::size_t>(length)));
}

LightweightString<wchar_t> fromUTF8(const LightweightString<char>& text) {
  return decode(text.view());
}

namespace Kv {

void toUpper(LightweightString<wchar_t>& text) {
  std::wstring upper;
  std::vector<UChar32>
      run;  // what lies between elements that are no characters, and are kept as they are
  for (const wchar_t element : text.view()) {
    if (isCharacter(static_cast<std::uint32_t>(element))) {
      run.push_back(static_cast<UChar32>(element));
    } else {
      appendUpperCase(upper, run);
      upper += element;
    }
  }
  appendUpperCase(upper, run);
  text = LightweightString<wchar_t>(std::wstring_view(upper));
}

LightweightString<wchar_t> WStringFromAscii(const char* text) {
  return WStringFromAscii(LightweightString<char>(text));
}

LightweightString<wchar_t> WStringFromAscii(const LightweightString<char>& text) {
  std::wstring wide;
  wide.reserve(text.size());
  for (const char byte : text.view()) {
    wide += static_cast<wchar_t>(static_cast<unsigned char>(byte));
  }
  return LightweightString<wchar_t>(std::wstring_view(wide));
}

}  // namespace Kv
