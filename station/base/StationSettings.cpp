#include "station/base/StationSettings.h"

#include <pwd.h>
#include <unistd.h>

#include <charconv>
#include <cstdint>
#include <cstdlib>
#include <string_view>

#include "host/base/Config.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

StationSettings installedSettings;

}  // namespace

const StationSettings& settings() { return installedSettings; }

void installSettings(StationSettings settings) { installedSettings = std::move(settings); }

int stationPort() { return config_int(kPortKey, kDefaultPort); }

std::string loginName() {
  const passwd* entry = ::getpwuid(::getuid());
  if (entry && *entry->pw_name) return entry->pw_name;
  const char* name = std::getenv("LOGNAME");
  return name && *name ? name : "user" + std::to_string(::getuid());
}

int machineNumberFor(const std::string& host) {
  return static_cast<int>(hash32(upperCased(host)) % 65535U) + 1;
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
