#include "tools/wire/MessageReport.h"

#include <algorithm>
#include <charconv>

#include "host/base/Cookie.h"
#include "host/edit/EditModification.h"
#include "station/base/Strings.h"
#include "station/base/TextMember.h"
#include "station/net/SenderSocket.h"
#include "station/wire/MessageFields.h"

namespace korvel {

namespace {

using Warnings = std::vector<std::string>;
using Fields = std::vector<std::string>;

constexpr std::size_t kHeadFields = 3;
constexpr std::size_t kLeastFields = 4;

bool isUtf8(const std::string& bytes) {
  const auto wide = wideText(bytes);
  const auto view = wide.view();
  // A byte that is no part of a letter is read as a low surrogate, which no letter is.
  return std::none_of(view.begin(), view.end(),
                      [](wchar_t letter) { return letter >= 0xDC00 && letter <= 0xDFFF; });
}

bool isNumber(const std::string& text) {
  long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
}

/// The number of fields that a type's message has, and what a receiver does with fewer.
struct Shape {
  std::size_t fields;
  const char* fewer;
};

Shape shapeOf(int type) {
  switch (type) {
    case 1:
      return {5, "stations report \"false\" (NetMessage line 149) and take an empty modification"};
    case 5:
      return {5, "stations report \"false\" (NetMessage line 142) and take empty permissions"};
    case 7:
    case 15:
      return {5, "stations report \"false\" (NetMessage line 166) and do nothing"};
    case 10:
    case 13:
      return {6, "stations read none of them"};
    case 11:
    case 12:
      return {6, "stations log what there is of them"};
    default:
      return {4, ""};
  }
}

void warnAboutBytes(const std::string& wireText, Warnings& warnings) {
  if (wireText.empty()) warnings.push_back("the datagram is empty: stations ignore it");
  if (wireText.size() > SenderSocket::kMaxBytes) {
    warnings.push_back("larger than a datagram can be (" + std::to_string(SenderSocket::kMaxBytes) +
                       " bytes)");
  }
  const auto zero = wireText.find('\0');
  if (zero == wireText.npos) return;
  warnings.push_back("a zero byte at offset " + std::to_string(zero) +
                     ": stations read nothing from there on");
}

/// Whether the text is of this version and has a head; else says what stations do with it.
bool hasHead(const std::string& text, const Fields& fields, Warnings& warnings) {
  if (text.empty()) return false;
  if (text.front() != 'd') {
    warnings.push_back("it does not begin with \"d\": stations ignore it without a word");
    return false;
  }
  if (fields[0] != "d") {
    warnings.push_back("the version is " + inQuotes(fields[0]) +
                       ", not \"d\": stations warn of another version and ignore it");
    return false;
  }
  if (fields.size() >= kLeastFields) return true;
  warnings.push_back("too few fields (" + std::to_string(fields.size()) +
                     ", at least 4 are needed): stations ignore it");
  return false;
}

void warnAboutType(const std::string& text, int type, Warnings& warnings) {
  if (!isNumber(text)) {
    warnings.push_back("the type " + inQuotes(text) + " is no number and is read as " +
                       std::to_string(type));
  }
  if (type >= 1 && type <= 15) return;
  warnings.push_back("there is no type " + std::to_string(type) +
                     ": stations report \"false\" (NetMessage line 197) and do nothing");
}

void warnAboutShape(int type, const Fields& fields, Warnings& warnings) {
  const Shape shape = shapeOf(type);
  if (fields.size() < shape.fields) {
    warnings.push_back("too few fields (" + std::to_string(fields.size()) + " of " +
                       std::to_string(shape.fields) + "): " + shape.fewer);
  }
  if (fields.size() > shape.fields) {
    warnings.push_back(std::to_string(fields.size() - shape.fields) +
                       " field(s) more than the type has: a text holds the separator byte 0xAC, as "
                       "some letters do, and arrives cut there");
  }
}

void warnAboutCookie(const char* what, const std::string& text, Warnings& warnings) {
  if (text.empty() || !Cookie(text.c_str(), false).isNull()) return;
  warnings.push_back(std::string("the ") + what + " " + inQuotes(text) +
                     " is no cookie: stations take none");
}

void warnAboutContainer(const std::string& text, Warnings& warnings) {
  if (!isNumber(text)) {
    warnings.push_back("the container value " + inQuotes(text) +
                       " is no number: stations read what digits it begins with, or 0");
  }
  if (readMessage(std::string("d\xAC") + "7\xAC\xAC\xAC" + text + "\xAC").valid) return;
  warnings.push_back("the container value " + inQuotes(text) +
                     " is none of 0 to 3: stations report \"valid_\" (NetMessage line 31) and "
                     "\"false\" (NetMessage line 162), and ignore the message");
}

void warnAboutModification(const std::string& text, Warnings& warnings) {
  const EditModification read{hostText(text)};
  if (utf8Text(read.asString()) != text) {
    warnings.push_back("the modification " + inQuotes(text) + " is not of its text form: read as " +
                       inQuotes(utf8Text(read.asString())));
  }
  if (read.range_.start > read.range_.end) {
    warnings.push_back(
        "the modification's range ends before it starts: stations report \"false\" "
        "(misc/NumRange, line 123) and swap the two");
  }
}

void warnAboutTransfer(const MessageFields& message, Warnings& warnings) {
  warnings.push_back("stations read the cookie from the recipient's field, " +
                     inQuotes(message.target) + ", and never the object's, " +
                     inQuotes(message.cookie));
}

void warnAboutValues(const MessageFields& message, const Fields& fields, Warnings& warnings) {
  warnAboutCookie("project", message.project, warnings);
  warnAboutCookie("cookie", message.cookie, warnings);
  const bool hasFifth = fields.size() > kLeastFields;
  if ((message.type == 7 || message.type == 15) && hasFifth) {
    warnAboutContainer(message.container, warnings);
  }
  if (message.type == 1 && hasFifth) warnAboutModification(message.modification, warnings);
  if (message.type == 11 || message.type == 12) warnAboutTransfer(message, warnings);
  if (message.type == 13 && fields.size() > kLeastFields && !isNumber(message.target)) {
    warnings.push_back("the machine " + inQuotes(message.target) + " is no number");
  }
}

void warnAboutLetters(const Fields& fields, Warnings& warnings) {
  for (std::size_t index = kHeadFields; index < fields.size(); ++index) {
    if (isUtf8(fields[index])) continue;
    warnings.push_back("field " + std::to_string(index) + " holds bytes that are not UTF-8");
  }
}

}  // namespace

JsonValue describeMessage(const std::string& wireText) {
  const MessageFields message = readMessage(wireText);
  JsonValue warnings = JsonValue::array();
  for (auto& warning : warningsAbout(wireText)) warnings.append(std::move(warning));
  return JsonValue::object({{"type", message.type},
                            {"type_name", message.typeName},
                            textMember("project", message.project),
                            textMember("cookie", message.cookie),
                            textMember("data", message.data),
                            textMember("target", message.target),
                            textMember("source", message.source),
                            textMember("container", message.container),
                            textMember("modification", message.modification),
                            {"valid", message.valid},
                            {"warnings", std::move(warnings)}});
}

std::vector<std::string> warningsAbout(const std::string& wireText) {
  Warnings warnings;
  warnAboutBytes(wireText, warnings);
  const std::string text = wireText.substr(0, wireText.find('\0'));
  const Fields fields = splitFields(text);
  if (!hasHead(text, fields, warnings)) return warnings;
  const MessageFields message = readMessage(text);
  warnAboutType(fields[1], message.type, warnings);
  if (message.type < 1 || message.type > 15) return warnings;
  warnAboutShape(message.type, fields, warnings);
  warnAboutValues(message, fields, warnings);
  warnAboutLetters(fields, warnings);
  return warnings;
}

}  // namespace korvel
