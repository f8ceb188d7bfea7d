#include <algorithm>
#include <cstdint>
#include <new>

#include "station/base/Json.h"
#include "station/base/Strings.h"

// Reading and writing JSON; the values themselves are in Json.cpp.

namespace korvel {

// A reader of its own, because edit files hold numbers that the usual libraries refuse or round
// (1e400, integers beyond 64 bits, "1.0" against "1") and none may be lost.

namespace {

constexpr int kMaxDepth = 512;
constexpr std::size_t kOfAllocation = 17;  // what a text of its own needs beside its bytes
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// Reads one text from its head to its end; the first thing that does not fit ends it.
class Reader {
 public:
  Reader(std::string_view text, std::size_t mostMemory)
      : text_(text), mostMemory_(mostMemory), left_(mostMemory) {}

  Result<JsonValue> read() {
    if (text_.substr(0, kByteOrderMark.size()) == kByteOrderMark) at_ = kByteOrderMark.size();
    JsonValue value;
    if (!readValue(value, 0)) return failure();
    skipBlanks();
    if (at_ < text_.size()) {
      expected("the end of the text");
      return failure();
    }
    return value;
  }

 private:
  [[nodiscard]] char peek() const { return at_ < text_.size() ? text_[at_] : '\0'; }

  bool take(char c) {
    if (at_ >= text_.size() || text_[at_] != c) return false;
    ++at_;
    return true;
  }

  bool takeWord(std::string_view word) {
    if (text_.substr(at_, word.size()) != word) return false;
    at_ += word.size();
    return true;
  }

  void skipBlanks() { at_ = std::min(text_.find_first_not_of(" \t\r\n", at_), text_.size()); }

  /// Notes what would have fitted here, and fails.
  bool expected(std::string_view what) {
    if (expected_.empty()) expected_ = what;
    return false;
  }

  /// Takes so many bytes of the memory that the value may have; false where there are not as many.
  bool spend(std::size_t bytes) {
    if (bytes > left_) return isTooLarge_ = true, false;
    left_ -= bytes;
    return true;
  }

  /// Whether one element more may be had: where the list is full, it doubles.
  template <typename List>
  bool spendOnNext(const List& list) {
    if (list.size() < list.capacity()) return true;
    return spend(std::max<std::size_t>(1, list.capacity()) * sizeof(list[0]));
  }

  bool spendOn(const std::string& text) {
    return text.size() < sizeof text || spend(text.size() + kOfAllocation);
  }

  [[nodiscard]] Error failure() const {
    const auto line = 1 + std::count(text_.begin(), text_.begin() + static_cast<long>(at_), '\n');
    const std::string ending = at_ >= text_.size() ? ", but the text ends" : "";
    const std::string memory = std::to_string(mostMemory_ >> 20) + " MiB of memory";
    const std::string problem =
        isTooLarge_ ? "up to here it takes more than " + memory : "expected " + expected_ + ending;
    return {ErrorCode::eBadContent, "line " + std::to_string(line) + ": " + problem, ""};
  }

  bool readValue(JsonValue& value, int depth) {
    skipBlanks();
    switch (peek()) {
      case '{':
        return readObject(value, depth + 1);
      case '[':
        return readArray(value, depth + 1);
      case '"':
        return readStringValue(value);
      default:
        return readWordOrNumber(value);
    }
  }

  bool readWordOrNumber(JsonValue& value) {
    if (takeWord("null")) return true;
    if (takeWord("true")) {
      value = JsonValue(true);
    } else if (takeWord("false")) {
      value = JsonValue(false);
    } else {
      const std::size_t length = numberLength(text_.substr(at_));
      if (length == 0) return expected("a value");
      value = JsonValue::number(std::string(text_.substr(at_, length)));
      at_ += length;
    }
    return true;
  }

  bool readStringValue(JsonValue& value) {
    std::string text;
    if (!readString(text)) return false;
    value = JsonValue(text);
    return true;
  }

  bool readArray(JsonValue& array, int depth) {
    if (depth > kMaxDepth) return expected("no deeper nesting than 512 levels");
    array = JsonValue::array();
    ++at_;
    skipBlanks();
    if (take(']')) return true;
    do {
      if (!spendOnNext(array.elements())) return false;
      if (!readValue(array.elements().emplace_back(), depth)) return false;
      skipBlanks();
    } while (take(','));
    return take(']') || expected("\",\" or \"]\" after an element");
  }

  bool readObject(JsonValue& object, int depth) {
    if (depth > kMaxDepth) return expected("no deeper nesting than 512 levels");
    std::vector<JsonValue::Member> members;
    ++at_;
    skipBlanks();
    if (!take('}')) {
      do {
        if (!spendOnNext(members)) return false;
        if (!readMember(members.emplace_back(), depth)) return false;
        skipBlanks();
      } while (take(','));
      if (!take('}')) return expected("\",\" or \"}\" after a member");
    }
    object = JsonValue::object(std::move(members));
    return true;
  }

  bool readMember(JsonValue::Member& member, int depth) {
    skipBlanks();
    if (peek() != '"') return expected("a key in quotes");
    if (!readString(member.first)) return false;
    skipBlanks();
    if (!take(':')) return expected("\":\" after a key");
    return readValue(member.second, depth);
  }

  bool readString(std::string& text) {
    ++at_;
    while (at_ < text_.size()) {
      const std::size_t from = at_;
      while (at_ < text_.size() && isPlain(text_[at_])) ++at_;
      text += text_.substr(from, at_ - from);
      if (take('"')) return spendOn(text);
      if (at_ >= text_.size()) break;
      if (!take('\\')) return expected("the end of a string, or control characters as escapes");
      if (!readEscape(text)) return false;
    }
    return expected("the end of a string");
  }

  static bool isPlain(char c) {
    return c != '"' && c != '\\' && static_cast<unsigned char>(c) >= 0x20;
  }

  bool readEscape(std::string& text) {
    constexpr std::string_view kLetters = "\"\\/bfnrt";
    constexpr std::string_view kMeanings = "\"\\/\b\f\n\r\t";
    if (take('u')) return readUnicodeEscape(text);
    const std::size_t index = at_ < text_.size() ? kLetters.find(text_[at_]) : std::string::npos;
    if (index == std::string::npos) return expected("an escape such as \\n after a backslash");
    text += kMeanings[index];
    ++at_;
    return true;
  }

  bool readUnicodeEscape(std::string& text) {
    std::uint32_t unit = 0;
    if (!readFourDigits(unit)) return false;
    const std::size_t afterFirst = at_;
    std::uint32_t low = 0;
    if (unit >= 0xD800 && unit < 0xDC00 && takeWord("\\u")) {
      if (!readFourDigits(low)) return false;
      if (low >= 0xDC00 && low < 0xE000) {
        appendUtf8(text, 0x10000 + ((unit - 0xD800) << 10) + (low - 0xDC00));
        return true;
      }
      at_ = afterFirst;
    }
    appendUtf8(text, unit);
    return true;
  }

  bool readFourDigits(std::uint32_t& unit) {
    for (int i = 0; i < 4; ++i) {
      const int digit = hexDigitValue(peek());
      if (digit < 0) return expected("four hex digits after \\u");
      unit = unit * 16 + static_cast<std::uint32_t>(digit);
      ++at_;
    }
    return true;
  }

  std::string_view text_;
  std::size_t at_ = 0;
  const std::size_t mostMemory_;
  std::size_t left_;  ///< of that memory
  bool isTooLarge_ = false;
  std::string expected_;
};

}  // namespace

Result<JsonValue> parseJson(std::string_view text, std::size_t mostMemory) {
  try {
    return Reader(text, mostMemory).read();
  } catch (const std::bad_alloc&) {
    return Error{ErrorCode::eSystem, "there is not enough memory to read it", {}};
  }
}

namespace {

std::uint8_t byteAt(std::string_view text, std::size_t index) {
  return index < text.size() ? static_cast<std::uint8_t>(text[index]) : 0;
}

/// The number of half of a surrogate pair whose three bytes stand at the head; 0 for anything else.
std::uint32_t surrogateAt(std::string_view text) {
  if (byteAt(text, 0) != 0xED || byteAt(text, 1) < 0xA0 || byteAt(text, 1) > 0xBF) return 0;
  if ((byteAt(text, 2) & 0xC0) != 0x80) return 0;
  return 0xD000U | ((byteAt(text, 1) & 0x3FU) << 6) | (byteAt(text, 2) & 0x3FU);
}

/// The control character at the head that JSON allows and a terminal acts on: DEL, or one of C1 in
/// its two bytes; 0 for anything else.
std::uint32_t terminalControlAt(std::string_view text) {
  if (byteAt(text, 0) == 0x7F) return 0x7F;
  const std::uint8_t second = byteAt(text, 1);
  return byteAt(text, 0) == 0xC2 && second >= 0x80 && second < 0xA0 ? second : 0;
}

/// Whether the half at the head stands alone, so that its escape reads back as these bytes.
bool isLoneSurrogate(std::string_view text, std::uint32_t half) {
  return half != 0 && (half >= 0xDC00 || surrogateAt(text.substr(3)) < 0xDC00);
}

void appendEscape(std::string& out, std::uint32_t unit) {
  out += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) out += kHexDigits[(unit >> shift) & 15];
}

void appendControl(std::string& out, char c) {
  constexpr std::string_view kControls = "\b\f\n\r\t";
  constexpr std::string_view kLetters = "bfnrt";
  const std::size_t index = kControls.find(c);
  if (index == std::string_view::npos) {
    appendEscape(out, static_cast<std::uint8_t>(c));
  } else {
    out += '\\';
    out += kLetters[index];
  }
}

class Writer {
 public:
  /// With an indentation of 0 everything stands on one line, without blanks.
  explicit Writer(std::size_t indentation) : indentation_(indentation) {}

  void write(const JsonValue& value) {
    switch (value.kind()) {
      case JsonValue::Kind::eNull:
        out_ += "null";
        break;
      case JsonValue::Kind::eBool:
        out_ += value.asBool() ? "true" : "false";
        break;
      case JsonValue::Kind::eNumber:
        out_ += value.spelling();
        break;
      case JsonValue::Kind::eString:
        writeString(value.asString());
        break;
      case JsonValue::Kind::eArray:
        writeArray(value.elements());
        break;
      case JsonValue::Kind::eObject:
        writeObject(value.members());
        break;
    }
  }

  std::string take() { return std::move(out_); }

 private:
  void writeArray(const std::vector<JsonValue>& elements) {
    open('[');
    bool first = true;
    for (const JsonValue& element : elements) {
      separate(first);
      write(element);
    }
    close(']', first);
  }

  void writeObject(const std::vector<JsonValue::Member>& members) {
    open('{');
    bool first = true;
    for (const auto& [key, value] : members) {
      separate(first);
      writeString(key);
      out_ += indentation_ > 0 ? ": " : ":";
      write(value);
    }
    close('}', first);
  }

  void open(char bracket) {
    out_ += bracket;
    ++level_;
  }

  void separate(bool& first) {
    if (!first) out_ += ',';
    first = false;
    breakLine();
  }

  void close(char bracket, bool isEmpty) {
    --level_;
    if (!isEmpty) breakLine();
    out_ += bracket;
  }

  void breakLine() {
    if (indentation_ > 0) out_ += '\n' + std::string(level_ * indentation_, ' ');
  }

  void writeString(std::string_view text) {
    out_ += '"';
    while (!text.empty()) text.remove_prefix(writeCharacter(text));
    out_ += '"';
  }

  /// Writes what stands at the head of the text, and returns how many bytes that was.
  std::size_t writeCharacter(std::string_view text) {
    const std::uint32_t half = surrogateAt(text);
    if (isLoneSurrogate(text, half)) {
      appendEscape(out_, half);
      return 3;
    }
    if (static_cast<std::uint8_t>(text[0]) < 0x20) {
      appendControl(out_, text[0]);
      return 1;
    }
    if (const std::uint32_t control = terminalControlAt(text); control != 0 && indentation_ == 0) {
      appendEscape(out_, control);
      return control < 0x80 ? 1 : 2;
    }
    if (half != 0) {  // a pair in six bytes, kept as it is
      out_ += text.substr(0, 6);
      return 6;
    }
    if (text[0] == '"' || text[0] == '\\') out_ += '\\';
    out_ += text[0];
    return 1;
  }

  std::size_t indentation_;
  std::size_t level_ = 0;
  std::string out_;
};

}  // namespace

std::string writeJson(const JsonValue& value) {
  Writer writer(0);
  writer.write(value);
  return writer.take();
}

std::string writeJsonIndented(const JsonValue& value) {
  Writer writer(2);
  writer.write(value);
  return writer.take() + '\n';
}

}  // namespace korvel
