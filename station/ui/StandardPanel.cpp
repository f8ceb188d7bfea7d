#include "host/ui/StandardPanel.h"

#include <algorithm>

#include "host/ui/MenuGlob.h"
#include "station/ui/Desktop.h"

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
  // Collected first: taking a child out changes the list.
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

MenuGlob::MenuGlob() = default;
MenuGlob::~MenuGlob() = default;

void MenuGlob::reviewMenu(Event*) {}

void MenuGlob::clearMenu() {
  menuItems_.clear();
  isMenuShown_ = false;
}

void MenuGlob::addMenuItem(const LightweightString<wchar_t>& name, std::function<void()> action) {
  menuItems_.push_back({name, std::move(action)});
}

void MenuGlob::chooseMenuItem(std::size_t index) {
  isMenuShown_ = false;
  if (index >= menuItems_.size()) return;
  // The action may clear the menu that holds it.
  const std::function<void()> action = menuItems_[index].action;
  action();
}

bool MenuGlob::handleEvent(const Event& event) {
  if (event.type != Event::eMousePress) return false;
  isMenuShown_ = false;
  if (event.button != Event::eRightButton) return false;
  Event asked = event;
  reviewMenu(&asked);
  isMenuShown_ = !menuItems_.empty();
  return isMenuShown_;
}

TitleMenuButton::TitleMenuButton(const LightweightString<wchar_t>& label, const Items& items,
                                 double width, double height)
    : label_(label), items_(items), selected_(items.empty() ? kNoItem : 0) {
  Glob::resize(width, height);
}

LightweightString<wchar_t> TitleMenuButton::getSelectedItemName() const {
  return selected_ < items_.size() ? items_[selected_] : LightweightString<wchar_t>();
}

void TitleMenuButton::selectItem(std::size_t index) {
  if (index >= items_.size()) return;
  selected_ = index;
  draw();
}

void TitleMenuButton::openMenu() {
  isOpen_ = !items_.empty();
  highlighted_ = selected_;
  if (isOpen_) Screen::instance().grabMouse(this);
  draw();
}

void TitleMenuButton::closeMenu() {
  isOpen_ = false;
  if (Screen::instance().mouseGrabber() == this) Screen::instance().grabMouse(nullptr);
  draw();
}

bool TitleMenuButton::handleEvent(const Event& event) {
  if (event.type == Event::eKeyPress) return handleKey(event.key);
  if (event.type != Event::eMousePress || event.button != Event::eLeftButton) return false;
  if (isOpen_) return handleMenuPress(event.position);
  openMenu();
  return true;
}

bool TitleMenuButton::handleMenuPress(const XY& place) {
  closeMenu();
  const Rect button = rootRect();
  if (button.contains(place)) return true;
  const XY first{button.position.x, button.position.y + button.size.height};
  const Size all{button.size.width, button.size.height * static_cast<double>(items_.size())};
  if (!Rect{first, all}.contains(place)) return false;
  selectItem(static_cast<std::size_t>((place.y - first.y) / button.size.height));
  return true;
}

bool TitleMenuButton::handleKey(Event::eKey key) {
  if (!isOpen_) {
    if (key != Event::eReturn && key != Event::eDown) return false;
    openMenu();
    return true;
  }
  if (key == Event::eReturn) selectItem(highlighted_);
  if (key == Event::eReturn || key == Event::eEscape) {
    closeMenu();
    return true;
  }
  return highlightNext(key);
}

bool TitleMenuButton::highlightNext(Event::eKey key) {
  const std::size_t last = items_.size() - 1;
  switch (key) {
    case Event::eUp:
      highlighted_ -= highlighted_ > 0 ? 1 : 0;
      break;
    case Event::eDown:
      highlighted_ += highlighted_ < last ? 1 : 0;
      break;
    case Event::eHome:
      highlighted_ = 0;
      break;
    case Event::eEnd:
      highlighted_ = last;
      break;
    default:
      return false;
  }
  draw();
  return true;
}
