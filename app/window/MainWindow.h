#pragma once

#include <QMainWindow>
#include <memory>

#include "app/window/EventPanes.h"
#include "app/window/HostLink.h"
#include "app/window/Menus.h"
#include "app/window/WindowLayout.h"

namespace korvel {

class ActionRunner;
class AskTeller;
class OutcomeTeller;
class WindowMenus;

/// The station's window: shows snapshots of the station in its panes, and hands actions to the host
/// thread; nothing here waits for it.
class MainWindow : public QMainWindow {
  Q_OBJECT

 public:
  explicit MainWindow(HostLink& link);
  ~MainWindow() override;

  [[nodiscard]] ProjectsPane& projects() const { return *panes_.projects; }
  [[nodiscard]] ObjectsPane& objects() const { return *panes_.objects; }
  [[nodiscard]] DetailPane& detail() const { return *panes_.detail; }
  [[nodiscard]] HistoryPane& history() const { return *panes_.history; }
  [[nodiscard]] PanelDock& panel() const { return *panes_.panel; }
  [[nodiscard]] LogPane& log() const { return *panes_.log; }
  [[nodiscard]] NotificationsPane& notifications() const { return *panes_.notifications; }
  [[nodiscard]] ConversationPane& conversation() const { return *panes_.conversation; }
  [[nodiscard]] HappenedPane& happened() const { return *panes_.happened; }
  [[nodiscard]] MessageBar& asks() const { return *panes_.asks; }
  [[nodiscard]] MessageBar& answers() const { return *panes_.answers; }
  [[nodiscard]] PeoplePane& people() const { return *panes_.people; }
  [[nodiscard]] StatusLine& status() const { return *panes_.status; }
  [[nodiscard]] MessageBar& messages() const { return *panes_.messages; }
  [[nodiscard]] MessageBar& strip() const { return *panes_.strip; }
  [[nodiscard]] MessageBar& recovery() const { return *panes_.recovery; }
  [[nodiscard]] MainMenus& menus() const { return *menus_; }
  [[nodiscard]] const SnapshotPtr& snapshot() const { return snapshot_; }
  [[nodiscard]] const CommandTable& commands() const { return link_.commands(); }
  [[nodiscard]] HostLink& link() const { return link_; }

  /// The station has ended. A signal or "quit" does not close the window, so that its layout is
  /// kept only now.
  void noteEnd() const {
    if (!isEnding_) keepLayout();
  }

  /// How many messages the station received so far.
  [[nodiscard]] unsigned long received() const { return received_; }

 protected:
  void dragEnterEvent(QDragEnterEvent* event) override;
  void dropEvent(QDropEvent* event) override;
  void closeEvent(QCloseEvent* event) override;
  void keyPressEvent(QKeyEvent* event) override;

 private:
  void keepLayout() const;
  void connectLink();
  void connectObjects();
  void connectProjects();
  void connectHistory();
  void connectPanel();
  void connectPeople();
  void connectTalk();
  void connectHappened();
  void goTo(ObjectKind kind, const QString& key);
  void writeTo(const QString& user);
  void open(const AskAnswer& given);
  void connectNotifications();
  void takeSnapshot(const SnapshotPtr& snapshot);
  void takeNews(const News& news);
  void tellOfWords(const NotificationLine& latest);
  void openHere(const AskAnswer& given);
  void tellDesktop(const News& news);
  void addKeepingActions();
  void addRecentProjects();
  void addPreferences();
  void showSteps();
  void showTitle();
  void showChoice();
  void showHistory();
  void enableActions();
  void end();

  HostLink& link_;
  WindowPanes panes_;
  std::unique_ptr<WindowLayout> layout_;
  std::unique_ptr<ActionRunner> actions_;
  std::unique_ptr<OutcomeTeller> outcomes_;
  std::unique_ptr<MainMenus> menus_;
  std::unique_ptr<WindowMenus> ownMenus_;
  std::unique_ptr<AskTeller> asking_;
  std::unique_ptr<RecentProjects> recent_;
  QAction* asksAction_ = nullptr;
  QAction* trashAction_ = nullptr;
  QAction* undoAction_ = nullptr;
  QAction* redoAction_ = nullptr;
  DesktopNotices notices_;
  SnapshotPtr snapshot_;
  unsigned long received_ = 0;
  bool keepsLayout_ = true;
  bool isEnding_ = false;
};

}  // namespace korvel
