#include "station/base/Json.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <limits>

#include "station/base/Strings.h"

namespace korvel {

namespace {

const std::string kEmptyText;
const JsonValue kNullValue;

double readDouble(std::string_view spelling, double otherwise) {
  const bool negative = spelling[0] == '-';
  if (spelling.find("NaN") != std::string_view::npos) {
    return std::numeric_limits<double>::quiet_NaN();
  }
  if (spelling.find("Inf") != std::string_view::npos) {
    return (negative ? -1 : 1) * std::numeric_limits<double>::infinity();
  }
  double value = 0;
  const auto end = std::from_chars(spelling.data(), spelling.data() + spelling.size(), value);
  return end.ec == std::errc() ? value : otherwise;
}

/// The members by key, members of one key in their order.
std::vector<const JsonValue::Member*> sortedMembers(const JsonValue& object) {
  std::vector<const JsonValue::Member*> sorted;
  for (const JsonValue::Member& member : object.members()) sorted.push_back(&member);
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const auto* a, const auto* b) { return a->first < b->first; });
  return sorted;
}

bool sameMembers(const JsonValue& a, const JsonValue& b) {
  const auto left = sortedMembers(a);
  const auto right = sortedMembers(b);
  return std::equal(left.begin(), left.end(), right.begin(), right.end(),
                    [](const auto* x, const auto* y) { return *x == *y; });
}

}  // namespace

JsonValue::JsonValue(bool value) : kind_(Kind::eBool), bool_(value) {}
JsonValue::JsonValue(int value) : JsonValue(static_cast<long>(value)) {}
JsonValue::JsonValue(long value) : kind_(Kind::eNumber), text_(std::to_string(value)) {}
JsonValue::JsonValue(unsigned long value) : kind_(Kind::eNumber), text_(std::to_string(value)) {}
JsonValue::JsonValue(unsigned value) : JsonValue(static_cast<unsigned long>(value)) {}
JsonValue::JsonValue(double value) : kind_(Kind::eNumber), text_(spellDouble(value)) {}
JsonValue::JsonValue(std::string_view value) : kind_(Kind::eString), text_(value) {}
JsonValue::JsonValue(const std::string& value) : kind_(Kind::eString), text_(value) {}
JsonValue::JsonValue(const char* value) : kind_(Kind::eString), text_(value ? value : "") {}

JsonValue JsonValue::array() {
  JsonValue value;
  value.kind_ = Kind::eArray;
  return value;
}

JsonValue JsonValue::object() { return object({}); }

JsonValue JsonValue::object(std::vector<Member> members) {
  JsonValue value;
  value.kind_ = Kind::eObject;
  value.members_ = std::move(members);
  return value;
}

JsonValue JsonValue::number(std::string spelling) {
  JsonValue value;
  if (spelling.empty() || numberLength(spelling) != spelling.size()) return value;
  value.kind_ = Kind::eNumber;
  value.text_ = std::move(spelling);
  return value;
}

bool JsonValue::asBool(bool otherwise) const { return kind_ == Kind::eBool ? bool_ : otherwise; }

double JsonValue::asDouble(double otherwise) const {
  return isNumber() ? readDouble(text_, otherwise) : otherwise;
}

long JsonValue::asLong(long otherwise) const {
  if (!isNumber() || !isWholeNumber(text_)) return otherwise;
  long value = 0;
  const auto end = std::from_chars(text_.data(), text_.data() + text_.size(), value);
  return end.ec == std::errc() ? value : otherwise;
}

const std::string& JsonValue::asString() const { return isString() ? text_ : kEmptyText; }

const std::string& JsonValue::spelling() const { return isNumber() ? text_ : kEmptyText; }

void JsonValue::append(JsonValue element) {
  if (isNull()) kind_ = Kind::eArray;
  elements_.push_back(std::move(element));
}

const JsonValue* JsonValue::find(std::string_view key) const {
  // Of several members of one key the last counts.
  const auto found = std::find_if(members_.rbegin(), members_.rend(),
                                  [key](const Member& member) { return member.first == key; });
  return found == members_.rend() ? nullptr : &found->second;
}

JsonValue* JsonValue::find(std::string_view key) {
  return const_cast<JsonValue*>(std::as_const(*this).find(key));
}

const JsonValue& JsonValue::operator[](std::string_view key) const {
  const JsonValue* const found = find(key);
  return found ? *found : kNullValue;
}

JsonValue& JsonValue::set(std::string_view key, JsonValue value) {
  if (isNull()) kind_ = Kind::eObject;
  if (JsonValue* const present = find(key)) return *present = std::move(value);
  return members_.emplace_back(std::string(key), std::move(value)).second;
}

void JsonValue::remove(std::string_view key) {
  std::erase_if(members_, [key](const Member& member) { return member.first == key; });
}

bool operator==(const JsonValue& a, const JsonValue& b) {
  if (a.kind_ != b.kind_) return false;
  switch (a.kind_) {
    case JsonValue::Kind::eNull:
      return true;
    case JsonValue::Kind::eBool:
      return a.bool_ == b.bool_;
    case JsonValue::Kind::eNumber:
      return sameNumber(a.text_, b.text_);
    case JsonValue::Kind::eString:
      return a.text_ == b.text_;
    case JsonValue::Kind::eArray:
      return a.elements_ == b.elements_;
    case JsonValue::Kind::eObject:
      return sameMembers(a, b);
  }
  return false;
}

namespace {

/// Exponents of more digits are compared by their spelling.
constexpr std::size_t kMaxExponentDigits = 15;

bool isDigit(char c) { return c >= '0' && c <= '9'; }

std::size_t digitsLength(std::string_view text) {
  std::size_t length = 0;
  while (length < text.size() && isDigit(text[length])) ++length;
  return length;
}

/// The length of ".123" at the head; 0 when there is none.
std::size_t fractionLength(std::string_view text) {
  if (text.empty() || text[0] != '.') return 0;
  const std::size_t digits = digitsLength(text.substr(1));
  return digits == 0 ? 0 : digits + 1;
}

/// The length of "e-12" at the head; 0 when there is none.
std::size_t exponentLength(std::string_view text) {
  if (text.empty() || (text[0] != 'e' && text[0] != 'E')) return 0;
  const std::size_t sign = text.size() > 1 && (text[1] == '+' || text[1] == '-') ? 1 : 0;
  const std::size_t digits = digitsLength(text.substr(1 + sign));
  return digits == 0 ? 0 : 1 + sign + digits;
}

std::size_t wordLength(std::string_view text) {
  for (const std::string_view word : {"Infinity", "Inf", "NaN"}) {
    if (text.substr(0, word.size()) == word) return word.size();
  }
  return 0;
}

/// A number taken apart: sign, digits without zeros at either end, and the power of ten of the last
/// digit.
struct Decimal {
  bool negative = false;
  std::string digits;
  long long exponent = 0;

  friend bool operator==(const Decimal&, const Decimal&) = default;
};

bool readExponent(std::string_view text, long long& exponent) {
  if (text.empty()) return true;
  text.remove_prefix(1);
  if (text[0] == '+') text.remove_prefix(1);
  if (text.size() > kMaxExponentDigits) return false;
  std::from_chars(text.data(), text.data() + text.size(), exponent);
  return true;
}

void trimZeros(Decimal& decimal) {
  decimal.digits.erase(0, std::min(decimal.digits.find_first_not_of('0'), decimal.digits.size()));
  while (!decimal.digits.empty() && decimal.digits.back() == '0') {
    decimal.digits.pop_back();
    ++decimal.exponent;
  }
  if (decimal.digits.empty()) decimal.exponent = 0;
}

/// Takes a finite number apart; false when its exponent is too long to count with.
bool readDecimal(std::string_view spelling, Decimal& decimal) {
  decimal.negative = spelling[0] == '-';
  if (decimal.negative) spelling.remove_prefix(1);
  const std::size_t whole = digitsLength(spelling);
  const std::size_t fraction = fractionLength(spelling.substr(whole));
  if (!readExponent(spelling.substr(whole + fraction), decimal.exponent)) return false;
  decimal.digits = spelling.substr(0, whole);
  if (fraction > 0) {
    decimal.digits += spelling.substr(whole + 1, fraction - 1);
    decimal.exponent -= static_cast<long long>(fraction - 1);
  }
  trimZeros(decimal);
  return true;
}

/// 'N' for NaN, '+' and '-' for the infinities, 0 for a finite number.
char notFinite(std::string_view spelling) {
  if (spelling.find("NaN") != std::string_view::npos) return 'N';
  if (spelling.find("Inf") == std::string_view::npos) return 0;
  return spelling[0] == '-' ? '-' : '+';
}

}  // namespace

std::size_t numberLength(std::string_view text) {
  const std::size_t sign = !text.empty() && text[0] == '-' ? 1 : 0;
  text.remove_prefix(sign);
  if (const std::size_t word = wordLength(text)) return sign + word;
  std::size_t length = digitsLength(text);
  if (length == 0) return 0;
  if (text[0] == '0') length = 1;  // no number begins with a zero and another digit
  length += fractionLength(text.substr(length));
  length += exponentLength(text.substr(length));
  return sign + length;
}

bool isWholeNumber(std::string_view spelling) {
  if (!spelling.empty() && spelling[0] == '-') spelling.remove_prefix(1);
  return !spelling.empty() && digitsLength(spelling) == spelling.size();
}

bool sameNumber(std::string_view a, std::string_view b) {
  if (a == b) return true;
  if (notFinite(a) || notFinite(b)) return notFinite(a) == notFinite(b);
  // 1 and 1.0 are different numbers in an edit: neither spelling may be lost.
  if (isWholeNumber(a) || isWholeNumber(b)) return false;
  Decimal left;
  Decimal right;
  return readDecimal(a, left) && readDecimal(b, right) && left == right;
}

std::string spellDouble(double value) {
  if (std::isnan(value)) return "NaN";
  if (std::isinf(value)) return value < 0 ? "-Infinity" : "Infinity";
  char buffer[64];
  std::string text(buffer, std::to_chars(buffer, buffer + sizeof buffer, value).ptr);
  if (isWholeNumber(text)) text += ".0";
  return text;
}

JsonValue::Member textMember(const std::string& key, const std::string& text) {
  if (isUtf8(text)) return {key, text};
  return {key + "_hex", hexText(text)};
}

}  // namespace korvel
