#include "station/ui/Resources.h"

#include <dlfcn.h>

#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "station/base/StationSettings.h"

namespace korvel {

namespace {

// Signature, then the first chunk: its length, its name, width and height, all big-endian.
constexpr std::string_view kPngStart("\x89PNG\r\n\x1A\n\0\0\0\x0DIHDR", 16);
constexpr std::size_t kHeadBytes = kPngStart.size() + 8;

std::uint32_t bigEndianAt(const std::array<char, kHeadBytes>& bytes, std::size_t offset) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i)
    value = value << 8 | static_cast<std::uint8_t>(bytes[offset + i]);
  return value;
}

std::string ownLibrary() {
  Dl_info info{};
  static const char here = 0;
  return dladdr(&here, &info) && info.dli_fname ? info.dli_fname : "";
}

}  // namespace

std::string resourceDirectory() {
  const auto configured = settings().config.find("resources");
  if (configured != settings().config.end()) return configured->second;
  std::error_code ignored;
  const std::filesystem::path library = std::filesystem::absolute(ownLibrary(), ignored);
  return (library.parent_path() / "resources").string();
}

std::optional<Size> pngSize(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::array<char, kHeadBytes> head{};
  if (!file.read(head.data(), head.size())) return std::nullopt;
  if (std::string_view(head.data(), kPngStart.size()) != kPngStart) return std::nullopt;
  return Size{static_cast<double>(bigEndianAt(head, kPngStart.size())),
              static_cast<double>(bigEndianAt(head, kPngStart.size() + 4))};
}

}  // namespace korvel
