#include "tools/wire/MessageReport.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <cstring>
#include <iostream>
#include <optional>
#include <sstream>

#include "host/base/Cookie.h"
#include "host/edit/EditModification.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/net/UdpBroadcaster.h"
#include "station/seal/Seals.h"
#include "station/wire/MessageTable.h"
#include "tools/base/CommandLine.h"

namespace korvel {

namespace {

/// Makes names comparable: without capitals, dashes and the leading "e" that the record's own names
/// have.
std::string plainName(const std::string& name) {
  std::string plain;
  const bool hasPrefix = name.size() > 1 && name[0] == 'e' && std::isupper(name[1] & 0xFF) != 0;
  for (const char letter : name.substr(hasPrefix ? 1 : 0)) {
    const int byte = letter & 0xFF;
    if (std::isalnum(byte)) plain += static_cast<char>(std::tolower(byte));
  }
  return plain;
}

std::string dashedName(const std::string& name) {
  std::string dashed;
  for (const char letter : name) {
    const bool startsWord = std::isupper(letter & 0xFF) != 0;
    if (startsWord && !dashed.empty()) dashed += '-';
    dashed += static_cast<char>(std::tolower(letter & 0xFF));
  }
  return dashed;
}

}  // namespace

std::optional<int> messageTypeOf(const std::string& text) {
  int number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error == std::errc() && end == text.data() + text.size()) return number;
  for (const MessageType& type : messageTypes()) {
    if (plainName(text) == plainName(type.name)) return type.number;
  }
  // The table has no row for type 0, but messages of that type can be shown and filtered.
  if (plainName(text) == plainName(messageTypeName(MessageType::eNone))) return MessageType::eNone;
  return std::nullopt;
}

std::vector<std::string> messageTypeNames() {
  std::vector<std::string> names;
  for (const MessageType& type : messageTypes()) names.push_back(dashedName(type.name));
  return names;
}

std::string noSuchMessageType(const std::string& text) {
  const std::string near = nearestName(text, messageTypeNames());
  const std::string remedy = near.empty()
                                 ? "; types are " + std::to_string(MessageType::kFirst) + " to " +
                                       std::to_string(MessageType::kLast) + " and their names"
                                 : "; did you mean " + near + "?";
  return "there is no message type " + inQuotes(text) + remedy;
}

namespace {

using Warnings = std::vector<std::string>;
using Fields = std::vector<std::string>;

bool isNumber(const std::string& text) {
  long value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size();
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
  if (!text.starts_with(kWireVersion)) {
    warnings.push_back("it does not begin with \"d\": stations ignore it without a word");
    return false;
  }
  // Stations tell the two apart: another version is reported to the user, strange bytes are not.
  if (fields[0] != kWireVersion) {
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
  if (messageType(type)) return;
  // Type 0 is dropped while it is read. The others reach the receiver, which reports them once
  // more.
  warnings.push_back("there is no type " + std::to_string(type) +
                     ": stations report \"false\" (NetMessage line 197" +
                     (type == MessageType::eNone ? "" : ", and Receiver line 417") +
                     ") and do nothing");
}

void warnAboutShape(const MessageType& type, std::size_t count, Warnings& warnings) {
  const std::size_t whole = kHeadFields + type.fields().size();
  if (count < whole) {
    warnings.push_back("too few fields (" + std::to_string(count) + " of " + std::to_string(whole) +
                       "): " + type.fewer);
  }
  if (count > whole) {
    warnings.push_back(std::to_string(count - whole) +
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
  if (isContainerValue(text)) return;
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

void warnAboutValues(const MessageType& type, const MessageFields& message, Warnings& warnings) {
  warnAboutCookie("project", message.project, warnings);
  warnAboutCookie("cookie", message.cookie, warnings);
  // Without a fifth field there is no value to judge; warnAboutShape() reports that it is missing.
  const bool hasFifth = message.count > kLeastFields;
  if (hasFifth && type.has(kContainerField)) warnAboutContainer(message.container, warnings);
  if (hasFifth && type.has(kModificationField)) {
    warnAboutModification(message.modification, warnings);
  }
  if (type.has(kTransferTargetField)) warnAboutTransfer(message, warnings);
  if (hasFifth && type.has(kMachineField) && !isNumber(message.target)) {
    warnings.push_back("the machine " + inQuotes(message.target) + " is no number");
  }
}

void warnAboutLetters(const Fields& fields, Warnings& warnings) {
  for (std::size_t index = kHeadFields; index < fields.size(); ++index) {
    if (isUtf8(fields[index])) continue;
    warnings.push_back("field " + std::to_string(index) + " holds bytes that are not UTF-8");
  }
}

std::string hexText(std::uint64_t number) {
  char text[17];
  std::snprintf(text, sizeof text, "%016llx", static_cast<unsigned long long>(number));
  return text;
}

/// The fields of a seal. Only those who have the key can tell whether it is genuine.
JsonValue shownSeal(const Seal& seal) {
  constexpr std::int64_t kSecond = 1000;
  return JsonValue::object({{"key", seal.keyText()},
                            {"sender", hexText(seal.sender)},
                            {"start", hexText(seal.boot)},
                            {"sequence", static_cast<unsigned long>(seal.sequence)},
                            {"time", utcText(seal.time / kSecond)}});
}

}  // namespace

JsonValue describeMessage(const std::string& datagram) {
  const SealedText parts = takeSealApart(datagram);
  const std::string wireText(parts.text);
  const MessageFields message = readMessage(wireText);
  JsonValue warnings = JsonValue::array();
  for (auto& warning : warningsAbout(wireText)) warnings.append(std::move(warning));
  JsonValue report = JsonValue::object({{"type", message.type},
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
  if (parts.seal) report.set("seal", shownSeal(*parts.seal));
  return report;
}

std::vector<std::string> warningsAbout(const std::string& wireText) {
  Warnings warnings;
  warnAboutBytes(wireText, warnings);
  // Stations read the datagram as a C string: it ends at the first zero byte.
  const std::string text = wireText.substr(0, wireText.find('\0'));
  const Fields fields = splitFields(text);
  if (!hasHead(text, fields, warnings)) return warnings;
  const MessageFields message = readMessage(text);
  warnAboutType(fields[1], message.type, warnings);
  const MessageType* const type = messageType(message.type);
  if (!type) return warnings;
  warnAboutShape(*type, fields.size(), warnings);
  warnAboutValues(*type, message, warnings);
  warnAboutLetters(fields, warnings);
  return warnings;
}

namespace {

struct DecodeRequest {
  std::string file;
  bool isHex = false;
};

/// The bytes that hex digits stand for; blanks and colons between them do not count.
std::optional<std::string> bytesOfHexLine(std::string line) {
  std::erase_if(line, [](char letter) { return std::strchr(" \t\r:", letter) != nullptr; });
  return bytesOfHex(line);
}

ToolStatus show(const std::string& datagram) {
  const JsonValue message = describeMessage(datagram);
  printJson(message);
  return message["valid"].asBool() ? eToolDone : eToolFinding;
}

std::string placeOf(const DecodeRequest& request, int line) {
  return (request.file.empty() ? "standard input" : request.file) + " line " + std::to_string(line);
}

ToolStatus decodeHexLines(const DecodeRequest& request, const std::string& input) {
  ToolStatus status = eToolDone;
  std::istringstream lines(input);
  int number = 0;
  // One bad line does not hide the others; the worst status is returned.
  for (std::string line; std::getline(lines, line);) {
    ++number;
    if (line.find_first_not_of(" \t\r") == line.npos) continue;
    const auto bytes = bytesOfHexLine(line);
    status = std::max(
        status, bytes ? show(*bytes)
                      : toolProblem(eToolUsage, placeOf(request, number) +
                                                    " is not pairs of hex digits; it is left out"));
  }
  return status;
}

ToolStatus decode(const DecodeRequest& request) {
  std::string input;
  if (!readInput(request.file, input)) {
    return toolProblem(eToolUsage, request.file + " cannot be read (" + std::strerror(errno) + ")");
  }
  return request.isHex ? decodeHexLines(request, input) : show(input);
}

}  // namespace

void addDecodeCommand(CommandLine& line) {
  line.add<DecodeRequest>(
      {"decode", "Show what datagrams say, one JSON object each",
       [](CommandOptions& options, DecodeRequest& request) {
         options.flag("--hex", request.isHex, "The input is one datagram a line, in hex");
         options.optionalWord("FILE", request.file, "The input; standard input by default");
         options.footer(
             "Exit status: 0; 1 when a message is not valid; 2 for an input that cannot be read.");
       },
       decode});
}

}  // namespace korvel
