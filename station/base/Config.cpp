#include "host/base/Config.h"

#include <charconv>
#include <string_view>

#include "station/base/StationSettings.h"

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
