#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "station/base/Result.h"

namespace korvel {

/// A JSON value that loses nothing: numbers keep their spelling (integers beyond 64 bits, "1.0"
/// against "1"), `NaN`, `Inf` and their negatives are numbers, objects keep the order of their
/// keys. Text is UTF-8; bytes that are not UTF-8 are kept. A plain value; may be used on any
/// thread, one at a time.
class JsonValue {
 public:
  enum class Kind { eNull, eBool, eNumber, eString, eArray, eObject };
  using Member = std::pair<std::string, JsonValue>;

  JsonValue() = default;
  JsonValue(bool value);           // NOLINT(google-explicit-constructor): literals make values
  JsonValue(int value);            // NOLINT(google-explicit-constructor)
  JsonValue(long value);           // NOLINT(google-explicit-constructor)
  JsonValue(unsigned long value);  // NOLINT(google-explicit-constructor)
  JsonValue(unsigned value);       // NOLINT(google-explicit-constructor)
  JsonValue(
      double value);  // NOLINT(google-explicit-constructor): shortest text that reads back the same
  JsonValue(std::string_view value);    // NOLINT(google-explicit-constructor)
  JsonValue(const std::string& value);  // NOLINT(google-explicit-constructor)
  JsonValue(const char* value);         // NOLINT(google-explicit-constructor)

  static JsonValue array();
  static JsonValue object();
  static JsonValue object(std::vector<Member> members);

  /// A number from its spelling, which must be a JSON number, NaN, Inf, Infinity or one of them
  /// with "-".
  static JsonValue number(std::string spelling);

  [[nodiscard]] Kind kind() const { return kind_; }
  [[nodiscard]] bool isNull() const { return kind_ == Kind::eNull; }
  [[nodiscard]] bool isString() const { return kind_ == Kind::eString; }
  [[nodiscard]] bool isNumber() const { return kind_ == Kind::eNumber; }
  [[nodiscard]] bool isArray() const { return kind_ == Kind::eArray; }
  [[nodiscard]] bool isObject() const { return kind_ == Kind::eObject; }

  /// The value as asked for, or the given default where it is of another kind (or out of range).
  [[nodiscard]] bool asBool(bool otherwise = false) const;
  [[nodiscard]] double asDouble(double otherwise = 0) const;
  [[nodiscard]] long asLong(long otherwise = 0) const;
  [[nodiscard]] const std::string& asString() const;  ///< empty for anything but a string
  [[nodiscard]] const std::string& spelling() const;  ///< a number's; empty for anything else

  /// An array's elements; empty for anything else.
  [[nodiscard]] const std::vector<JsonValue>& elements() const { return elements_; }
  [[nodiscard]] std::vector<JsonValue>& elements() { return elements_; }
  void append(JsonValue element);

  /// An object's members in order; empty for anything else.
  [[nodiscard]] const std::vector<Member>& members() const { return members_; }

  /// The member under `key`, or null (and an JSON null) where there is none. With equal keys the
  /// last one counts.
  [[nodiscard]] const JsonValue* find(std::string_view key) const;
  [[nodiscard]] JsonValue* find(std::string_view key);
  [[nodiscard]] const JsonValue& operator[](std::string_view key) const;

  /// Sets a member, in place or at the end; makes this an object if it was null. Returns the
  /// member.
  JsonValue& set(std::string_view key, JsonValue value);
  void remove(std::string_view key);

  /// Value by value, key by key. Numbers are equal when their spellings name the same number (1
  /// and 1.0 are not the same kind of number and differ; Inf and Infinity are equal; NaN equals
  /// NaN); the order of keys does not matter.
  friend bool operator==(const JsonValue& a, const JsonValue& b);

 private:
  Kind kind_ = Kind::eNull;
  bool bool_ = false;
  std::string text_;
  std::vector<JsonValue> elements_;
  std::vector<Member> members_;
};

/// How much memory the value of a record, a list or a letter may take. Most take five times their
/// text, and texts of nothing but zeros forty times.
inline constexpr std::size_t kMostJsonMemory = std::size_t{128} << 20;

/// Reads one JSON text (with NaN and Inf as above). Failure: eBadContent, with the line and what
/// was expected, or that the value would take more than `mostMemory` bytes; eSystem without the
/// memory for it. Nesting deeper than 512 is refused.
Result<JsonValue> parseJson(std::string_view text, std::size_t mostMemory = kMostJsonMemory);

/// Writes on one line, without blanks. Strings that are not UTF-8 keep their bytes.
std::string writeJson(const JsonValue& value);

/// Writes with two blanks of indentation a level, as files are stored.
std::string writeJsonIndented(const JsonValue& value);

// The spellings of JSON numbers, which include NaN, Inf and Infinity here.

/// How many characters at the head of `text` are one number; 0 when it does not begin with one.
std::size_t numberLength(std::string_view text);

/// Whether a number is spelled without fraction and exponent, and is neither NaN nor infinite.
bool isWholeNumber(std::string_view spelling);

/// Whether two spellings name the same number exactly, of the same kind: "1" and "1.0" differ,
/// "1.0" and "10e-1" do not, nor do "Inf" and "Infinity", nor two NaN. Zero and negative zero
/// differ.
bool sameNumber(std::string_view a, std::string_view b);

/// The shortest spelling that reads back the same double; never that of a whole number.
std::string spellDouble(double value);

/// A key with a text, or the key with "_hex" appended and the bytes in hexadecimal where the text
/// is not UTF-8.
JsonValue::Member textMember(const std::string& key, const std::string& text);

// Values as people read them.

/// A command's result as people read it, without a line end: a text as it stands; an object as
/// lines of "key: value"; an array of objects as an aligned table, columns without any content left
/// out; any other array one element a line. Empty for null. Control characters become "?", except
/// the line ends of a text.
std::string renderForPeople(const JsonValue& value);

/// A number as people read it: with three decimals at most, and none that say nothing.
std::string shownNumber(double number);

/// An array of objects of two texts each as two columns of 80 in all: the first as it stands, the
/// second wrapped between words, beginning on a line of its own where the first is long.
std::string renderWrapped(const JsonValue& rows);

}  // namespace korvel
