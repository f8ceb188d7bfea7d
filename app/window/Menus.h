#pragma once

#include <QAction>
#include <QHash>
#include <QMainWindow>
#include <QMenu>
#include <QObject>
#include <QShortcut>
#include <functional>
#include <vector>

#include "app/window/ActionTable.h"
#include "app/window/Snapshot.h"
#include "app/window/WindowLayout.h"

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
  void bindKey(const QString& line, QWidget& widget);

  /// Enables what can be done with what is chosen. `whyNot` says why something cannot be done;
  /// empty for what can.
  void enable(const std::function<QString(const ActionSpec&)>& whyNot);

  /// `tell` is told why an action cannot be done when its key is pressed all the same.
  void tellRefusals(const std::function<void(const QString& why)>& tell);

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
  QHash<QAction*, QWidget*> bound_;       ///< to the widget where alone the key works
  QHash<QAction*, QShortcut*> refusals_;  ///< have the key while the action cannot be done
};

/// Enables an action, or disables it and has its tool tip and the status line say why.
void setAllowed(QAction& action, const QString& whyNot);

/// The window's own menus and tools, beside those of the table of actions: what is in sight, how it
/// is coloured, the help.
class WindowMenus : public QObject {
  Q_OBJECT

 public:
  /// Told a line of the console that was chosen or typed.
  using Runner = std::function<void(const QString& line)>;

  /// All must outlive it.
  WindowMenus(QMainWindow& window, MainMenus& menus, const WindowPanes& panes, WindowLayout& layout,
              Runner run);

  /// The tool of the message panel shows whether it is open.
  void showPanel(const PanelState& panel);

  /// There is something to be marked as seen, or nothing.
  void showNews(bool hasNews);

 Q_SIGNALS:
  /// Everything is to be looked at anew.
  void lookWanted();

 private:
  void buildTools();
  void buildViewMenu();
  void buildAppearanceMenu();
  void buildNoticeSetting();
  void buildHelpMenu();
  void openGuide();
  void togglePanel();
  void chooseAppearance(const QString& name);

  QMainWindow& window_;
  MainMenus& menus_;
  const WindowPanes& panes_;
  WindowLayout& layout_;
  Runner run_;
  QAction* panelAction_ = nullptr;
  QAction* seenAction_ = nullptr;
};

}  // namespace korvel
