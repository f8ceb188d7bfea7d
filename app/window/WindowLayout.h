#pragma once

#include <QDockWidget>
#include <QMainWindow>
#include <QSettings>

class QSplitter;

namespace korvel {

class DetailPane;
class HistoryPane;
class LogPane;
class MessageBar;
class NotificationsPane;
class ObjectsPane;
class PanelDock;
class ProjectsPane;
class StatusLine;

/// What the window shows, each part made once and owned by the window.
struct WindowPanes {
  ProjectsPane* projects = nullptr;
  ObjectsPane* objects = nullptr;
  DetailPane* detail = nullptr;
  HistoryPane* history = nullptr;
  MessageBar* messages = nullptr;
  MessageBar* strip = nullptr;
  MessageBar* recovery = nullptr;
  StatusLine* status = nullptr;
  PanelDock* panel = nullptr;
  LogPane* log = nullptr;
  NotificationsPane* notifications = nullptr;
};

/// Where everything in the window is: projects and rooms on the left, the open project's objects in
/// the middle with the chosen one below them, the tools around. In a small window the tools lie
/// over one another, each with a tab, and find back to their places once there is room.
class WindowLayout : public QObject {
  Q_OBJECT

 public:
  /// Both must outlive it.
  WindowLayout(QMainWindow& window, const WindowPanes& panes);

  [[nodiscard]] QDockWidget& notificationsDock() const { return *notificationsDock_; }
  [[nodiscard]] QDockWidget& logDock() const { return *logDock_; }
  [[nodiscard]] QDockWidget& historyDock() const { return *historyDock_; }

  /// The keyboard goes to the pane after the one that has it.
  void focusNextPane();

  /// Brings the notifications to the front.
  void showNotifications();

  /// As the last run left it, or as the host configuration asks for. False where that asks: nothing
  /// of this run is then remembered.
  bool restore(QSettings& kept);
  void save(QSettings& kept) const;

  /// What was laid out last is how it is meant to be once there is room.
  void noteSpread() { spread_ = window_.saveState(); }

 private:
  void buildPanes();
  void buildDocks();
  [[nodiscard]] QList<QDockWidget*> docks() const;
  QDockWidget* makeDock(const QString& title, const char* name, QWidget* content);
  void fit();
  void narrowPanel();
  void narrowSide();
  void gatherDocks();
  void spreadDocks();
  bool eventFilter(QObject* watched, QEvent* event) override;

  QMainWindow& window_;
  const WindowPanes& panes_;
  QDockWidget* notificationsDock_ = nullptr;
  QDockWidget* logDock_ = nullptr;
  QDockWidget* historyDock_ = nullptr;
  QSplitter* side_ = nullptr;
  QSplitter* centre_ = nullptr;
  QByteArray spread_;  ///< where the docks were when there was room for them
  bool isSmall_ = false;
};

}  // namespace korvel
