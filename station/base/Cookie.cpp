#include "host/base/Cookie.h"

#include <uuid/uuid.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <string>
#include <string_view>

#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

using namespace korvel;

namespace korvel {

namespace {

constexpr std::size_t kMinDigits = 4;
constexpr std::size_t kMaxDigits = 32;
constexpr std::size_t kTail = 5;         ///< "-ff00"
constexpr std::size_t kAbbreviated = 9;  ///< with the kind letter

/// Names become cookies within this namespace, on every station alike.
constexpr uuid_t kNameSpace = {0x3b, 0x5e, 0x0c, 0x52, 0x9d, 0x1f, 0x4e, 0x8a,
                               0x8c, 0x27, 0x61, 0x0f, 0x5a, 0x44, 0xd9, 0x73};

bool isKindLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

/// The value of a lower-case hex digit, or -1.
int digitValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  return -1;
}

bool allHex(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return digitValue(c) >= 0; });
}

std::uint8_t hexByteAt(std::string_view digits, std::size_t index) {
  return static_cast<std::uint8_t>(digitValue(digits[2 * index]) * 16 +
                                   digitValue(digits[2 * index + 1]));
}

char* putHex(char* to, std::uint8_t byte) {
  *to++ = kHexDigits[byte >> 4];
  *to++ = kHexDigits[byte & 15];
  return to;
}

bool isUuidText(std::string_view digits) {
  if (digits.size() < kMinDigits || digits.size() > kMaxDigits || !allHex(digits)) return false;
  return digits.size() == kMinDigits || digits.front() != '0';
}

bool isTailText(std::string_view tail) {
  return tail.size() == 5 && tail[0] == '-' && allHex(tail.substr(1)) && tail != "-0000";
}

UUID uuidFromDigits(std::string_view digits) {
  std::array<char, kMaxDigits> padded;
  padded.fill('0');
  std::copy(digits.begin(), digits.end(), padded.end() - digits.size());
  const std::string_view whole(padded.data(), padded.size());
  UUID uuid;
  for (std::size_t i = 0; i < uuid.bytes.size(); ++i) uuid.bytes[i] = hexByteAt(whole, i);
  return uuid;
}

/// The cookie whose text form this is, or the null cookie.
Cookie fromTextForm(std::string_view text) {
  if (text.empty() || !isKindLetter(text[0])) return {};
  const std::string_view digits = text.substr(1, text.find('-', 1) - 1);
  const std::string_view tail = text.substr(1 + digits.size());
  if (!isUuidText(digits) || !(tail.empty() || isTailText(tail))) return {};
  if (tail.empty()) return Cookie(uuidFromDigits(digits), text[0]);
  return Cookie(uuidFromDigits(digits), text[0], hexByteAt(tail.substr(1), 0),
                hexByteAt(tail.substr(1), 1));
}

Cookie fromName(std::string_view name) {
  uuid_t bytes;
  uuid_generate_sha1(bytes, kNameSpace, name.data(), name.size());
  UUID uuid;
  std::copy(std::begin(bytes), std::end(bytes), uuid.bytes.begin());
  return Cookie(uuid, CookieTypeMaterial);
}

}  // namespace

}  // namespace korvel

Cookie::Cookie(const UUID& uuid, char type, std::uint8_t subtype, std::uint8_t extra) {
  if (!isKindLetter(type)) return;
  uuid_ = uuid;
  typeBytes_ = {static_cast<std::uint8_t>(type), subtype, extra};
}

Cookie::Cookie(const char* text, bool isName) {
  const std::string_view whole = text ? text : "";
  *this = fromTextForm(whole);
  if (isNull() && isName) *this = fromName(whole);
}

Cookie Cookie::create(char type) {
  uuid_t bytes;
  uuid_generate_random(bytes);
  UUID uuid;
  std::copy(std::begin(bytes), std::end(bytes), uuid.bytes.begin());
  return Cookie(uuid, type);
}

int Cookie::getLocalMachineNumber() { return settings().machine; }

bool Cookie::isNull() const { return typeBytes_[0] == 0; }

LightweightString<char> Cookie::asString(bool abbreviated) const {
  if (isNull()) return {};
  std::array<char, 1 + kMaxDigits + kTail> text;
  char* end = text.data() + 1;
  for (const std::uint8_t byte : uuid_.bytes) end = putHex(end, byte);
  char* const lastStart = end - kMinDigits;
  char* const digits = std::find_if(text.data() + 1, lastStart, [](char c) { return c != '0'; });
  char* const start = digits - 1;
  *start = getType();
  if (abbreviated) {
    return LightweightString<char>(start,
                                   std::min(static_cast<std::size_t>(end - start), kAbbreviated));
  }
  if (typeBytes_[1] != 0 || typeBytes_[2] != 0) {
    *end++ = '-';
    end = putHex(putHex(end, typeBytes_[1]), typeBytes_[2]);
  }
  return LightweightString<char>(start, static_cast<std::size_t>(end - start));
}

LightweightString<wchar_t> Cookie::asWString() const {
  const LightweightString<char> text = asString();
  return LightweightString<wchar_t>(
      std::wstring_view(std::wstring(text.view().begin(), text.view().end())));
}

int Cookie::compare(const Cookie& other) const {
  if (typeBytes_[0] != other.typeBytes_[0]) return typeBytes_[0] < other.typeBytes_[0] ? -1 : 1;
  const int order = std::memcmp(uuid_.bytes.data(), other.uuid_.bytes.data(), uuid_.bytes.size());
  if (order != 0) return order;
  return std::memcmp(typeBytes_.data(), other.typeBytes_.data(), typeBytes_.size());
}

Cookie convertCookie(const Cookie& cookie, int type, int subtype) {
  if (cookie.isNull()) return {};
  return Cookie(cookie.getUuid(), static_cast<char>(type), static_cast<std::uint8_t>(subtype));
}
