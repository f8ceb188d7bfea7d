#pragma once

#include <QAction>
#include <QHash>
#include <QMainWindow>
#include <QMenu>
#include <functional>
#include <vector>

#include "app/window/ActionTable.h"

namespace korvel {

/// The window's menus: those of the table of actions, and room for the window's own. The same
/// actions are in the menus of the right mouse button.
class MainMenus {
 public:
  /// Told which action of the table was chosen.
  using Runner = std::function<void(const ActionSpec&)>;

  MainMenus(QMainWindow& window, const Runner& run);

  /// The menu of this title, made at the end of the bar where there is none.
  QMenu& menu(const QString& title);

  /// Adds an action of the window's own.
  QAction& add(const QString& menu, const QString& text, const QString& shortcut,
               const std::function<void()>& run);

  /// The action's key works while this widget has the keyboard, and nowhere else.
  void bindKey(const QString& line, QWidget& widget) const;

  /// Enables what can be done with what is chosen.
  void enable(const std::function<bool(Target)>& isThere);

  /// Shows a menu of the actions that concern this kind of thing.
  void popUp(const std::vector<Target>& targets, const QPoint& at);

  /// The action that runs this line, before anything is filled in; null for an unknown one.
  [[nodiscard]] QAction* action(const QString& line) const;

  /// All texts and shortcuts, for the help.
  [[nodiscard]] QString shortcutText() const;

 private:
  QMainWindow& window_;
  QHash<QString, QMenu*> menus_;
  std::vector<std::pair<const ActionSpec*, QAction*>> actions_;
};

}  // namespace korvel
