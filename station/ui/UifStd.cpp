#include "host/ui/UifStd.h"

namespace korvel {

namespace {

constexpr double kBorder = 4;
constexpr double kFontSize = 12;
constexpr double kLineHeight = 16;
constexpr double kButtonHeight = 20;
constexpr double kGap = 4;

}  // namespace

}  // namespace korvel

using namespace korvel;

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
