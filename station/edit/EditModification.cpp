#include "host/edit/EditModification.h"

#include <charconv>
#include <string>
#include <string_view>

namespace korvel {

namespace {

constexpr char kFieldSeparator = ';';

bool isPlain(unsigned char byte) {
  return (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
         (byte >= '0' && byte <= '9') || byte == '-' || byte == '_' || byte == '.' || byte == '~';
}

void appendEscaped(std::string& text, std::string_view bytes) {
  constexpr std::string_view kDigits = "0123456789ABCDEF";
  for (const char each : bytes) {
    const auto byte = static_cast<unsigned char>(each);
    if (isPlain(byte)) {
      text += each;
    } else {
      text += {'%', kDigits[byte >> 4U], kDigits[byte & 15U]};
    }
  }
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

template <typename Number>
void appendDecimal(std::string& text, Number number) {
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
  appendDecimal(text, static_cast<int>(type_));
  appendDecimal(text += kFieldSeparator, range_.start);
  appendDecimal(text += kFieldSeparator, range_.end);
  appendEscaped(text += kFieldSeparator, subject_.view());
  appendEscaped(text += kFieldSeparator, value_.view());
  return LightweightString<char>(std::string_view(text));
}
