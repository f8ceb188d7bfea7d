#include "station/ui/Desktop.h"

#include <dlfcn.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>

#include "host/base/Log.h"
#include "host/ui/GenIcon.h"
#include "host/ui/IconSet.h"
#include "host/ui/ResourceStrings.h"
#include "host/ui/UifStd.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

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

namespace {

struct ResourceString {
  unsigned number;
  const wchar_t* text;
};

constexpr std::array kStrings{
    ResourceString{12027, L"Messages"},
    ResourceString{12028, L"To"},
};

}  // namespace

}  // namespace korvel

using namespace korvel;

LightweightString<wchar_t> resourceStrW(unsigned number) {
  for (const ResourceString& string : kStrings) {
    if (string.number == number) return string.text;
  }
  Log("The host has no text of the number %u\n", number);
  return {};
}

namespace korvel {

namespace {

std::string doubleName(const std::string& name) {
  const std::size_t dot = name.rfind('.');
  return dot == std::string::npos ? name + "@2x" : name.substr(0, dot) + "@2x" + name.substr(dot);
}

/// The path of one of the host's pictures. Empty, and reported once, when it cannot be used: icons
/// are made again and again.
std::string findPicture(const std::string& name, std::optional<Size>& size) {
  static std::set<std::string> reported;
  const std::string path = resourceDirectory() + "/" + name;
  size = pngSize(path);
  if (size) return path;
  if (reported.insert(path).second) {
    LogBoth("The icon \"%s\" is missing or is no PNG picture: put it back, or install again\n",
            path);
  }
  return {};
}

}  // namespace

}  // namespace korvel

IconSet::IconSet(const LightweightString<char>& fileName) : fileName_(fileName) {
  std::optional<Size> size;
  path_ = wideText(findPicture(fileName.str(), size));
  if (size) size_ = *size;
  doublePath_ = wideText(findPicture(doubleName(fileName.str()), size));
}

const LightweightString<wchar_t>& IconSet::path(double scale) const {
  const bool wantsLarge = scale > 1 && !doublePath_.empty();
  return wantsLarge || path_.empty() ? doublePath_ : path_;
}

namespace korvel {

namespace {

/// The size of an icon whose picture is missing.
constexpr Size kEmptyIcon{48, 35};

Size sizeOf(const IconSet& icon) { return icon.isValid() ? icon.size() : kEmptyIcon; }

double keepWithin(double wish, double length, double room) {
  return std::max(0.0, std::min(wish, room - length));
}

}  // namespace

}  // namespace korvel

GenIcon::GenIcon(const IconSet& icon, const Size& expandedSize)
    : icon_(icon), expandedSize_(expandedSize) {
  const Size size = sizeOf(icon);
  StandardPanel::resize(size.width, size.height);
}

GenIcon::GenIcon(const IconSet& icon, const GlobCreationInfo& info, const Size& expandedSize)
    : GenIcon(icon, expandedSize) {
  if (info.restore == 0) return;
  sizeState_ = info.sizeState;
  restoredPosition_ = info.position;
  setPosition(info.position);
}

GenIcon::~GenIcon() {
  // A tool may be destroyed while it is dragged.
  if (DragDropManager::dragged() == this) DragDropManager::beginDrag(nullptr);
}

void GenIcon::reInit(const IconSet& icon) {
  icon_ = icon;
  draw();
}

void GenIcon::requestToolboxRepopulate() {
  if (Desktop* desktop = hostParts().desktop) desktop->toolbox().populate();
}

XY GenIcon::getMaximisedPos(const Size& wanted) {
  if (restoredPosition_) return *std::exchange(restoredPosition_, std::nullopt);
  const XY centre{position().x + size().width / 2, position().y + size().height / 2};
  const Size room = hostParts().desktop ? hostParts().desktop->size() : Desktop::kDefaultSize;
  return {keepWithin(centre.x - wanted.width / 2, wanted.width, room.width),
          keepWithin(centre.y - wanted.height / 2, wanted.height, room.height)};
}

bool GenIcon::takesFocus() const { return sizeState_ == eIconState; }

bool GenIcon::handleEvent(const Event& event) {
  const bool isClick = event.type == Event::eMousePress && event.button == Event::eLeftButton;
  const bool isReturn = event.type == Event::eKeyPress && event.key == Event::eReturn;
  if (sizeState_ != eIconState || (!isClick && !isReturn)) return StandardPanel::handleEvent(event);
  generateTool();
  return true;
}

namespace korvel {

namespace {

constexpr double kBorder = 4;
constexpr double kFontSize = 12;
constexpr double kLineHeight = 16;
constexpr double kButtonHeight = 20;
constexpr double kGap = 4;

}  // namespace

}  // namespace korvel

Palette::Palette(eTheme theme) {
  if (theme == eLight) {
    window_ = {240, 240, 242};
    button_ = {216, 218, 223};
    text_ = {24, 26, 30};
    entry_ = {255, 255, 255};
  } else {
    window_ = {40, 42, 46};
    button_ = {62, 66, 73};
    text_ = {230, 232, 236};
    entry_ = {24, 26, 30};
  }
}

Border UifStd::getBorder() { return {kBorder}; }

Font UifStd::getTitleFont() { return {"Sans", kFontSize, Font::eBold}; }

Font UifStd::getFont() { return {"Sans", kFontSize, Font::eRegular}; }

double UifStd::getButtonHeight() { return kButtonHeight; }

double UifStd::getLineHeight() { return kLineHeight; }

double UifStd::getWidgetGap() { return kGap; }

const Palette& UifStd::getPalette() {
  static const Palette palette(Palette::eDark);
  return palette;
}
