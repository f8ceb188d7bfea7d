#pragma once

// Menus: the context menu that any panel can have, and a button that opens a menu to choose from,
// such as the list of recipients in the message panel.

#include <cstddef>
#include <functional>

#include "host/ui/Glob.h"

/// A widget with a context menu, opened by the right mouse button.
class KV_HOST_API MenuGlob : public Glob {
 public:
  /// One item: what the user reads, and what follows when it is chosen.
  struct MenuItem {
    LightweightString<wchar_t> name;
    std::function<void()> action;
  };

  /// A widget whose menu is empty, so that the right button does nothing.
  MenuGlob();
  ~MenuGlob() override;

  /// Called before the menu is shown, to put into it what applies now. The base leaves it as it is.
  virtual void reviewMenu(Event* event);

  /// Takes all items out, or adds one at the end.
  void clearMenu();
  void addMenuItem(const LightweightString<wchar_t>& name, std::function<void()> action);

  /// The items in the order in which they were added.
  [[nodiscard]] const Vector<MenuItem>& menuItems() const { return menuItems_; }

  /// Whether the menu is shown; an empty menu never is.
  [[nodiscard]] bool isMenuShown() const { return isMenuShown_; }

  /// Closes the menu and runs an item's action; a number beyond the menu runs nothing.
  void chooseMenuItem(std::size_t index);

  /// The right button opens the menu; any other press on this widget closes it.
  bool handleEvent(const Event& event) override;

 private:
  Vector<MenuItem> menuItems_;
  bool isMenuShown_ = false;
};

/// A button with a label that shows one item of a menu and lets the user choose another.
///
/// A click, or return or the down key, opens the menu under the button; a click on an item, or the
/// up and down keys and return, chooses; escape and a click elsewhere close it. Items need not
/// differ and may be empty.
class KV_HOST_API TitleMenuButton : public Glob {
 public:
  using Items = Vector<LightweightString<wchar_t>>;

  static constexpr std::size_t kNoItem = ~std::size_t{0};

  /// Selects the first item.
  TitleMenuButton(const LightweightString<wchar_t>& label, const Items& items, double width,
                  double height);

  /// The words before the menu's button.
  [[nodiscard]] const LightweightString<wchar_t>& label() const { return label_; }

  /// All items, the first on top.
  [[nodiscard]] const Items& items() const { return items_; }

  /// The selected item's number; kNoItem for an empty menu.
  [[nodiscard]] std::size_t selectedItem() const { return selected_; }

  /// The selected item's text; empty for an empty menu.
  [[nodiscard]] LightweightString<wchar_t> getSelectedItemName() const;

  /// Selects an item; a number beyond the menu changes nothing.
  void selectItem(std::size_t index);

  /// Opens and closes the menu. While it is open the highlighted item is the one that return
  /// chooses.
  void openMenu();
  void closeMenu();
  [[nodiscard]] bool isMenuOpen() const { return isOpen_; }
  [[nodiscard]] std::size_t highlightedItem() const { return highlighted_; }

  bool handleEvent(const Event& event) override;
  [[nodiscard]] bool takesFocus() const override { return true; }

 private:
  bool handleKey(Event::eKey key);
  bool handleMenuPress(const XY& place);
  bool highlightNext(Event::eKey key);

  LightweightString<wchar_t> label_;
  Items items_;
  std::size_t selected_ = kNoItem;
  std::size_t highlighted_ = kNoItem;
  bool isOpen_ = false;
};
