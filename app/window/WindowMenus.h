#pragma once

#include <QObject>
#include <functional>

#include "app/window/Snapshot.h"
#include "app/window/WindowLayout.h"

class QAction;

namespace korvel {

class MainMenus;

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

 Q_SIGNALS:
  /// Everything is to be looked at anew.
  void lookWanted();

 private:
  void buildTools();
  void buildViewMenu();
  void buildAppearanceMenu();
  void buildHelpMenu();
  void togglePanel();
  void chooseAppearance(const QString& name);

  QMainWindow& window_;
  MainMenus& menus_;
  const WindowPanes& panes_;
  WindowLayout& layout_;
  Runner run_;
  QAction* panelAction_ = nullptr;
};

}  // namespace korvel
