#include "host/edit/EditModification.h"

#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <string>
#include <string_view>

namespace korvel {

namespace {

constexpr char kFieldSeparator = ';';
constexpr std::size_t kUsualNumbers = 64;  ///< bytes: the type, two real numbers, some escapes

constexpr auto kPlain = [] {
  std::array<bool, 256> plain{};
  for (const char each : std::string_view("-_.~0123456789abcdefghijklmnopqrstuvwxyz"
                                          "ABCDEFGHIJKLMNOPQRSTUVWXYZ"))
    plain[static_cast<unsigned char>(each)] = true;
  return plain;
}();

bool isPlain(unsigned char byte) { return kPlain[byte]; }

void appendEscaped(std::string& text, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  std::size_t plain = 0;  // those before `at` that are not in the text yet
  for (std::size_t at = 0; at < bytes.size(); ++at) {
    const auto byte = static_cast<unsigned char>(bytes[at]);
    if (isPlain(byte)) continue;
    const char escaped[] = {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
    text.append(bytes, plain, at - plain).append(escaped, sizeof escaped);
    plain = at + 1;
  }
  text.append(bytes, plain);
}

/// The value of an upper-case hex digit, or -1.
int hexDigit(char digit) {
  if (digit >= '0' && digit <= '9') return digit - '0';
  if (digit >= 'A' && digit <= 'F') return digit - 'A' + 10;
  return -1;
}

bool unescape(std::string_view text, LightweightString<char>& bytes) {
  std::string result;
  for (std::size_t at = 0; at < text.size(); ++at) {
    if (isPlain(static_cast<unsigned char>(text[at]))) {
      result += text[at];
      continue;
    }
    if (text[at] != '%' || at + 2 >= text.size()) return false;
    const int high = hexDigit(text[at + 1]);
    const int low = hexDigit(text[at + 2]);
    if (high < 0 || low < 0) return false;
    result += static_cast<char>(high * 16 + low);
    at += 2;
  }
  bytes = LightweightString<char>(std::string_view(result));
  return true;
}

void appendDecimal(std::string& text, int number) {
  char digits[16];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

/// A number of at most three decimals below 100 000, in a third of the time that finding the
/// shortest text of any number takes; false where it is none. The text is the same: of decimals
/// with up to 15 digits no two are one real number, and below 100 000 none is shorter with an
/// exponent.
bool appendThousandths(std::string& text, double number) {
  constexpr double kBeyond = 100'000;
  if (!(number >= 0 && number < kBeyond) || std::signbit(number)) return false;
  auto thousandths = static_cast<std::int32_t>(number * 1000 + 0.5);
  if (thousandths / 1000.0 != number) return false;
  appendDecimal(text, thousandths / 1000);
  thousandths %= 1000;
  if (thousandths == 0) return true;
  text += '.';
  for (int unit = 100; thousandths > 0; thousandths %= unit, unit /= 10)
    text += static_cast<char>('0' + thousandths / unit);
  return true;
}

/// The shortest text that reads back as the same number.
void appendDecimal(std::string& text, double number) {
  if (appendThousandths(text, number)) return;
  char digits[64];
  text.append(digits, std::to_chars(digits, digits + sizeof digits, number).ptr);
}

template <typename Number>
bool readWhole(std::string_view text, Number& number) {
  Number read{};
  const auto end = text.data() + text.size();
  const auto [stopped, problem] = std::from_chars(text.data(), end, read);
  if (problem != std::errc{} || stopped != end) return false;
  number = read;
  return true;
}

/// Takes the next field off the front of `text`; false when there is none left.
bool takeField(std::string_view& text, bool& more, std::string_view& field) {
  if (!more) return false;
  const std::size_t end = text.find(kFieldSeparator);
  more = end != std::string_view::npos;
  field = text.substr(0, end);
  text.remove_prefix(more ? end + 1 : text.size());
  return true;
}

}  // namespace

}  // namespace korvel

using namespace korvel;

EditModification::EditModification(const LightweightString<char>& text) {
  std::string_view rest = text.view();
  std::string_view field;
  bool more = true;
  int type = eModNone;
  if (!takeField(rest, more, field) || !readWhole(field, type)) return;
  type_ = static_cast<EditModificationType>(type);
  if (!takeField(rest, more, field) || !readWhole(field, range_.start)) return;
  if (!takeField(rest, more, field) || !readWhole(field, range_.end)) return;
  if (!takeField(rest, more, field) || !unescape(field, subject_)) return;
  if (takeField(rest, more, field)) unescape(field, value_);
}

LightweightString<char> EditModification::asString() const {
  std::string text;
  text.reserve(kUsualNumbers + subject_.size() + value_.size());
  appendDecimal(text, static_cast<int>(type_));
  appendDecimal(text += kFieldSeparator, range_.start);
  appendDecimal(text += kFieldSeparator, range_.end);
  appendEscaped(text += kFieldSeparator, subject_.view());
  appendEscaped(text += kFieldSeparator, value_.view());
  return LightweightString<char>(std::string_view(text));
}
