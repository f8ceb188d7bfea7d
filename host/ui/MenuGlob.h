#pragma once

#include <functional>

#include "host/ui/Glob.h"

/// A widget with a context menu, opened by the right mouse button.
class KV_HOST_API MenuGlob : public Glob {
 public:
  struct MenuItem {
    LightweightString<wchar_t> name;
    std::function<void()> action;
  };

  MenuGlob();
  ~MenuGlob() override;

  /// Called before the menu is shown, to put into it what applies now. The base leaves it as it is.
  virtual void reviewMenu(Event* event);

  void clearMenu();
  void addMenuItem(const LightweightString<wchar_t>& name, std::function<void()> action);
  [[nodiscard]] const Vector<MenuItem>& menuItems() const { return menuItems_; }

  /// Whether the menu is shown; an empty menu never is.
  [[nodiscard]] bool isMenuShown() const { return isMenuShown_; }

  /// Closes the menu and runs an item's action; a number beyond the menu runs nothing.
  void chooseMenuItem(std::size_t index);

  bool handleEvent(const Event& event) override;

 private:
  Vector<MenuItem> menuItems_;
  bool isMenuShown_ = false;
};
