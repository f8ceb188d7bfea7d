#include "station/base/TextMember.h"

#include <algorithm>
#include <charconv>

#include "station/base/Strings.h"

namespace korvel {

namespace {

bool isAscii(const std::string& text) {
  return std::ranges::none_of(text, [](char byte) { return (byte & 0x80) != 0; });
}

/// Decoding marks each byte that is no part of a UTF-8 sequence by a low surrogate.
bool isUtf8(const std::string& text) {
  if (isAscii(text)) return true;
  const LightweightString<wchar_t> wide = wideText(text);
  return std::ranges::none_of(wide.view(),
                              [](wchar_t letter) { return letter >= 0xDC00 && letter <= 0xDFFF; });
}

}  // namespace

std::string hexText(const std::string& bytes) {
  constexpr const char* kDigits = "0123456789abcdef";
  std::string hex;
  hex.reserve(bytes.size() * 2);
  for (const char byte : bytes) {
    hex += kDigits[static_cast<unsigned char>(byte) >> 4];
    hex += kDigits[static_cast<unsigned char>(byte) & 15];
  }
  return hex;
}

std::string bytesOfHex(const std::string& hex) {
  std::string bytes;
  for (std::size_t at = 0; at + 1 < hex.size(); at += 2) {
    unsigned byte = 0;
    const char* const end = hex.data() + at + 2;
    if (std::from_chars(hex.data() + at, end, byte, 16).ptr != end) break;
    bytes += static_cast<char>(byte);
  }
  return bytes;
}

JsonValue::Member textMember(const std::string& key, const std::string& text) {
  if (isUtf8(text)) return {key, text};
  return {key + "_hex", hexText(text)};
}

}  // namespace korvel
