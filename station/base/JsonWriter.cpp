#include <cstdint>

#include "station/base/Json.h"

namespace korvel {

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
  constexpr std::string_view kDigits = "0123456789abcdef";
  out += "\\u";
  for (int shift = 12; shift >= 0; shift -= 4) out += kDigits[(unit >> shift) & 15];
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
