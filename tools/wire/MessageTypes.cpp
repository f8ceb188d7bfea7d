#include "tools/wire/MessageTypes.h"

#include <cctype>
#include <charconv>

#include "station/base/NearestName.h"
#include "station/base/Strings.h"
#include "station/wire/MessageType.h"

namespace korvel {

namespace {

/// Without capitals, dashes and the leading "e" of the record's own names.
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
  return "there is no message type \"" + shownText(text) + "\"" + remedy;
}

}  // namespace korvel
