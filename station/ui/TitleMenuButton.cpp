#include "host/ui/TitleMenuButton.h"

#include <algorithm>

#include "station/ui/Screen.h"

using namespace korvel;

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
