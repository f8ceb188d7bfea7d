#include "host/ui/StandardPanel.h"

#include <algorithm>

#include "station/ui/PanelBox.h"

using namespace korvel;

namespace korvel {

namespace {

constexpr double kBoxInset = 2;
constexpr Size kMinimumSize{100, 60};

bool isBox(const Glob& child) { return dynamic_cast<const PanelBox*>(&child) != nullptr; }

bool isBoxOf(const Glob& child, unsigned mask) {
  const auto* box = dynamic_cast<const PanelBox*>(&child);
  return box && (box->which() & mask) != 0;
}

}  // namespace

}  // namespace korvel

StandardPanel::StandardPanel() : palette_(UifStd::getPalette()), colour_(palette_.window()) {}

StandardPanel::~StandardPanel() = default;

void StandardPanel::addStandardWidgets(unsigned mask) {
  const unsigned added = mask & ~standardWidgets_;
  standardWidgets_ |= mask;
  if (added & eCloseBox) addBox(eCloseBox);
  if (added & eCollapseBox) addBox(eCollapseBox);
}

void StandardPanel::addBox(eStandardWidget which) {
  const Rect area = userArea();
  const double column = which == eCloseBox ? 0 : PanelBox::kSide + kBoxInset;
  auto box = std::make_unique<PanelBox>(which);
  box->setPosition({area.position.x + column, area.position.y + kBoxInset});
  addChild(std::move(box));
}

void StandardPanel::removeStandardWidgets(unsigned mask, bool andContent) {
  standardWidgets_ &= ~mask;
  std::vector<Glob*> unwanted;
  for (const auto& child : children()) {
    if (isBoxOf(*child, mask) || (andContent && !isBox(*child))) unwanted.push_back(child.get());
  }
  for (Glob* child : unwanted) takeChild(child);
}

void StandardPanel::setTitle(const LightweightString<wchar_t>& title, const Font& font) {
  title_ = title;
  titleFont_ = font;
}

void StandardPanel::resize(double width, double height) {
  const double before = innerWidth();
  if (standardWidgets_ != 0) {
    width = std::max(kMinimumSize.width, width);
    height = std::max(kMinimumSize.height, height);
  }
  Glob::resize(width, height);
  const double wider = innerWidth() - before;
  for (const auto& child : children()) {
    if (!isBox(*child)) child->resize(child->size().width + wider, child->size().height);
  }
  reshape();
  setupRootPos();
}

Rect StandardPanel::userArea() const {
  const double edge = border_.thickness;
  const double top = edge + (standardWidgets_ & eTitle ? UifStd::getButtonHeight() : 0);
  return {{edge, top},
          {std::max(0.0, size().width - 2 * edge), std::max(0.0, size().height - top - edge)}};
}
