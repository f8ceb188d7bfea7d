#include "station/base/Json.h"

#include <algorithm>
#include <charconv>
#include <limits>

#include "station/base/JsonNumber.h"

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

}  // namespace korvel
