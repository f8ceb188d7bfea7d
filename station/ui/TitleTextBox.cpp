#include "host/ui/TitleTextBox.h"

#include "host/ui/UifStd.h"

namespace korvel {

namespace {

/// A title's width, from the mean width of a letter.
double widthOf(const LightweightString<wchar_t>& title) {
  constexpr double kLetterToFontSize = 0.6;
  if (title.empty()) return 0;
  const double letters = static_cast<double>(title.size()) * UifStd::getFont().size;
  return letters * kLetterToFontSize + UifStd::getWidgetGap();
}

}  // namespace

}  // namespace korvel

using namespace korvel;

TitleTextBox::TitleTextBox(const LightweightString<wchar_t>& title, double width, double height)
    : title_(title), textBox_(addChild(std::make_unique<TextBox>(), UserTopRight(0, 0))) {
  TitleTextBox::resize(width, height);
}

TitleTextBox::~TitleTextBox() = default;

void TitleTextBox::resize(double width, double height) {
  textBox_->resize(width - widthOf(title_), height);
  Glob::resize(width, height);
}
