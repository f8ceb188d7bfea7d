#include "station/base/StationSettings.h"

#include <cstdint>

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
