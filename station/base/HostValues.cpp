#include <unicode/locid.h>
#include <unicode/unistr.h>
#include <uuid/uuid.h>
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Cookie.h"
#include "host/base/Ptr.h"
#include "host/base/Text.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

/// An object's count. It is the key itself, so that finding a count costs nothing.
using Count = std::atomic<long>;

/// Added when the last reference is gone: an object that makes and drops pointers to itself while
/// it is being destroyed is not destroyed again.
constexpr long kDying = 1L << 40;

Count& countOf(void* refCountId) { return *static_cast<Count*>(refCountId); }

}  // namespace

}  // namespace korvel

using namespace korvel;

namespace Kv {

InternalRefCount::InternalRefCount() : refCountId_(new Count(0)) {}

InternalRefCount::~InternalRefCount() { delete static_cast<Count*>(refCountId_); }

void addReference(void* refCountId) { countOf(refCountId).fetch_add(1, std::memory_order_relaxed); }

bool releaseReference(void* refCountId) {
  if (countOf(refCountId).fetch_sub(1, std::memory_order_acq_rel) != 1) return false;
  countOf(refCountId).store(kDying, std::memory_order_relaxed);
  return true;
}

}  // namespace Kv

namespace korvel {

namespace {

constexpr std::size_t kMinDigits = 4;
constexpr std::size_t kMaxDigits = 32;
constexpr std::size_t kTail = 5;         ///< "-ff00"
constexpr std::size_t kAbbreviated = 9;  ///< with the kind letter

/// Names become cookies within this namespace. It must be the same on every station, or they would
/// not agree on an object's cookie.
constexpr uuid_t kNameSpace = {0x3b, 0x5e, 0x0c, 0x52, 0x9d, 0x1f, 0x4e, 0x8a,
                               0x8c, 0x27, 0x61, 0x0f, 0x5a, 0x44, 0xd9, 0x73};

bool isKindLetter(char c) { return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z'); }

constexpr auto kDigitValues = [] {
  std::array<std::int8_t, 256> values{};
  values.fill(-1);
  for (std::size_t value = 0; value < kHexDigits.size(); ++value)
    values[static_cast<unsigned char>(kHexDigits[value])] = static_cast<std::int8_t>(value);
  return values;
}();

/// The value of a lower-case hex digit, or -1.
int digitValue(char c) { return kDigitValues[static_cast<unsigned char>(c)]; }

bool allHex(std::string_view text) {
  return std::all_of(text.begin(), text.end(), [](char c) { return digitValue(c) >= 0; });
}

std::uint8_t hexByteAt(std::string_view digits, std::size_t index) {
  return static_cast<std::uint8_t>(digitValue(digits[2 * index]) * 16 +
                                   digitValue(digits[2 * index + 1]));
}

/// Both digits of every byte: cookies are most of what a message is made of.
constexpr auto kHexPairs = [] {
  std::array<std::array<char, 2>, 256> pairs{};
  for (std::size_t byte = 0; byte < pairs.size(); ++byte)
    pairs[byte] = {kHexDigits[byte >> 4], kHexDigits[byte & 15]};
  return pairs;
}();

char* putHex(char* to, std::uint8_t byte) { return std::copy_n(kHexPairs[byte].data(), 2, to); }

bool isUuidText(std::string_view digits) {
  if (digits.size() < kMinDigits || digits.size() > kMaxDigits || !allHex(digits)) return false;
  return digits.size() == kMinDigits || digits.front() != '0';
}

bool isTailText(std::string_view tail) {
  return tail.size() == 5 && tail[0] == '-' && allHex(tail.substr(1)) && tail != "-0000";
}

UUID uuidFromDigits(std::string_view digits) {
  std::array<char, kMaxDigits> padded;
  if (digits.size() < kMaxDigits) {  // nearly all have all digits, and need no copy
    padded.fill('0');
    std::copy(digits.begin(), digits.end(), padded.end() - digits.size());
    digits = std::string_view(padded.data(), padded.size());
  }
  UUID uuid;
  for (std::size_t i = 0; i < uuid.bytes.size(); ++i) uuid.bytes[i] = hexByteAt(digits, i);
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

namespace korvel {

namespace {

constexpr std::uint32_t kEscape = 0xDC00;
constexpr std::uint32_t kReplacementCharacter = 0xFFFD;
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
      appendUtf8(bytes, isCharacter(character) ? character : kReplacementCharacter);
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
