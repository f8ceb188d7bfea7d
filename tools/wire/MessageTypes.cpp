#include "tools/wire/MessageTypes.h"

#include <cctype>
#include <charconv>

#include "station/wire/MessageFields.h"

namespace korvel {

namespace {

constexpr int kLastType = 15;

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
  for (int type = 0; type <= kLastType; ++type) {
    if (plainName(text) == plainName(messageTypeName(type))) return type;
  }
  return std::nullopt;
}

std::vector<std::string> messageTypeNames() {
  std::vector<std::string> names;
  for (int type = 1; type <= kLastType; ++type) names.push_back(dashedName(messageTypeName(type)));
  return names;
}

}  // namespace korvel
