#include "station/base/StationSettings.h"

#include <charconv>
#include <cstdint>
#include <string_view>

#include "host/base/Config.h"
#include "host/base/Text.h"

namespace korvel {

namespace {

StationSettings installed;

}  // namespace

const StationSettings& settings() { return installed; }

void installSettings(StationSettings settings) { installed = std::move(settings); }

int machineNumberFor(const std::string& host) {
  LightweightString<wchar_t> name = fromUTF8(LightweightString<char>(std::string_view(host)));
  Kv::toUpper(name);
  const LightweightString<char> bytes = toUTF8(name);
  std::uint32_t hash = 2166136261U;
  for (const char byte : bytes.view()) {
    hash = (hash ^ static_cast<unsigned char>(byte)) * 16777619U;
  }
  return static_cast<int>(hash % 65535U) + 1;
}

}  // namespace korvel

using namespace korvel;

namespace korvel {

namespace {

std::string_view withoutBlanks(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t\r\n");
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(" \t\r\n") - first + 1);
}

}  // namespace

}  // namespace korvel

int config_int(const char* key, int defaultValue) {
  const auto& config = settings().config;
  const auto found = config.find(key ? key : "");
  if (found == config.end()) return defaultValue;
  std::string_view text = withoutBlanks(found->second);
  if (text.size() > 1 && text[0] == '+' && text[1] != '-') text.remove_prefix(1);
  int value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && end == text.data() + text.size() ? value : defaultValue;
}
