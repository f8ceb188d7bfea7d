#include "host/ui/MenuGlob.h"

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
