#pragma once

#include <QMainWindow>
#include <memory>
#include <optional>

#include "app/window/HostLink.h"
#include "app/window/MainMenus.h"

class QSplitter;

namespace korvel {

struct FieldContent;
class DetailPane;
class LogPane;
class MessageBar;
class NotificationsPane;
class ObjectsPane;
class PanelDock;
class ProjectsPane;
class StatusLine;

/// The station's window: projects and rooms on the left, the open project's objects in the middle
/// with the chosen one below them, the message panel, the log and the notifications around, a
/// status line.
///
/// It shows snapshots and hands actions to the host thread; nothing here waits for it.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit MainWindow(HostLink& link);
  ~MainWindow() override;

  [[nodiscard]] ProjectsPane& projects() const { return *projects_; }
  [[nodiscard]] ObjectsPane& objects() const { return *objects_; }
  [[nodiscard]] DetailPane& detail() const { return *detail_; }
  [[nodiscard]] PanelDock& panel() const { return *panel_; }
  [[nodiscard]] LogPane& log() const { return *log_; }
  [[nodiscard]] NotificationsPane& notifications() const { return *notifications_; }
  [[nodiscard]] StatusLine& status() const { return *status_; }
  [[nodiscard]] MessageBar& messages() const { return *messages_; }
  [[nodiscard]] MessageBar& strip() const { return *strip_; }
  [[nodiscard]] MainMenus& menus() const { return *menus_; }
  [[nodiscard]] const SnapshotPtr& snapshot() const { return snapshot_; }
  [[nodiscard]] const CommandTable& commands() const { return link_.commands(); }
  [[nodiscard]] HostLink& link() const { return link_; }

  /// How many messages the station received so far.
  [[nodiscard]] unsigned long received() const { return received_; }

 protected:
  void closeEvent(QCloseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;
  void resizeEvent(QResizeEvent* event) override;
  bool eventFilter(QObject* watched, QEvent* event) override;

 private:
  void buildPanes();
  void buildDocks();
  void buildMenus();
  void buildViewMenu();
  void buildHelpMenu();
  void connectLink();
  void connectPanes();
  void takeSnapshot(const SnapshotPtr& snapshot);
  void takeNews(const News& news);
  void tellOfWords(const NotificationLine& latest);
  void tellOfSending(const QString& problem);
  void tellOfMessage(const CommandOutcome& said);
  void takeOutcome(const CommandOutcome& outcome);
  void showAnswer(const QString& title, const QString& text);
  void showWhole(const QString& title, const QString& text);
  void runAction(const ActionSpec& action);
  void askFields(const ActionSpec& action);
  [[nodiscard]] QStringList targetWords(Target target) const;
  [[nodiscard]] bool isThere(Target target) const;
  [[nodiscard]] FieldContent fieldContent(const ActionField& field) const;
  void showChoice();
  void enableActions();
  void togglePanel();
  void runTypedLine();
  void chooseAppearance(const QString& name);
  void nextPane();
  void fitDocks();
  void narrowPanel();
  void narrowSide();
  void gatherDocks();
  void spreadDocks();
  void restoreLayout();
  void saveLayout() const;

  HostLink& link_;
  std::unique_ptr<MainMenus> menus_;
  ProjectsPane* projects_;
  ObjectsPane* objects_;
  DetailPane* detail_;
  MessageBar* messages_;
  MessageBar* strip_;
  StatusLine* status_;
  PanelDock* panel_;
  LogPane* log_;
  NotificationsPane* notifications_;
  QDockWidget* logDock_ = nullptr;
  QDockWidget* notificationsDock_ = nullptr;
  QSplitter* side_ = nullptr;
  QSplitter* centre_ = nullptr;
  QAction* panelAction_ = nullptr;
  QByteArray spread_;  ///< where the docks were when there was room for them
  bool isSmall_ = false;
  SnapshotPtr snapshot_;
  QString toChoose_;  ///< the cookie of an object that was just made here
  QString advice_;    ///< on the message that was sent last
  unsigned long received_ = 0;
  bool keepsLayout_ = true;
  bool tellsOfSending_ = false;
  bool isEnding_ = false;
};

}  // namespace korvel
