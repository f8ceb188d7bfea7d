#pragma once

#include <QDockWidget>
#include <QHash>
#include <QMainWindow>
#include <QScrollArea>
#include <QSettings>
#include <QString>
#include <QTimer>
#include <vector>

class QMenu;
class QSplitter;

namespace korvel {

/// What the window remembers from one run to the next, in a file beside the station's own
/// configuration, which people write by hand.
inline QSettings windowSettings() {
  return QSettings(QSettings::IniFormat, QSettings::UserScope, QStringLiteral("korvel"),
                   QStringLiteral("station-window"));
}

/// Whether the user wants to be told on the desktop of what others say.
inline bool wantsDesktopNotices() {
  return windowSettings().value(QStringLiteral("desktopNotices"), true).toBool();
}

/// The widget in an area without a frame that takes any size: where there is less room than the
/// widget needs, it is scrolled, so that nothing in it is pressed over something else.
inline QScrollArea* scrolled(QWidget* content) {
  auto* area = new QScrollArea;
  area->setFrameShape(QFrame::NoFrame);
  area->setWidgetResizable(true);
  area->setFocusPolicy(Qt::NoFocus);
  area->setWidget(content);
  return area;
}

class Desktop;

/// A tool on the station's desktop, as the window remembers it from one run to the next.
struct KeptTool {
  QString type;
  int sizeState = 0;  ///< as the toolkit counts: 0 open, 1 an icon
  double x = 0;
  double y = 0;

  friend bool operator==(const KeptTool&, const KeptTool&) = default;
};
using KeptTools = std::vector<KeptTool>;

/// The tools on the desktop now. Host thread.
KeptTools toolsOn(const Desktop& desktop);

/// Puts tools back as they were, unless some are there already: a script came first. Host thread.
void putBack(const KeptTools& tools, Desktop& desktop);

/// Stores tools in the settings, and reads them back.
void keepTools(QSettings& settings, const KeptTools& tools);
KeptTools keptTools(QSettings& settings);

struct Snapshot;

/// A project that was open here, as the window remembers it.
struct RecentProject {
  QString directory;  ///< the projects directory that holds it
  QString cookie;
  QString name;
  QString edit;  ///< the cookie of the edit that was chosen last; empty for none

  friend bool operator==(const RecentProject&, const RecentProject&) = default;
};

/// The projects that were open on this machine, offered in a menu, the last one first; and what was
/// open when the window ended, opened again at the next start. Kept for each projects directory.
class RecentProjects : public QObject {
  Q_OBJECT

 public:
  enum class Start { eAfresh, eWhereItWas };

  /// The menu must outlive it.
  RecentProjects(QMenu& menu, const QString& directory, Start start);

  void takeSnapshot(const Snapshot& snapshot);

  /// The edit that is chosen in the open project.
  void noteEdit(const QString& cookie);

  /// Those of its projects directory.
  [[nodiscard]] std::vector<RecentProject> all() const;

 Q_SIGNALS:
  void projectWanted(const QString& cookie);
  void editWanted(const QString& cookie);

  /// What was open is not there any more.
  void lastIsGone(const QString& name);

 private:
  void begin(const Snapshot& snapshot);
  void note(const RecentProject& project);
  void keepEdit();
  void goOn(const Snapshot& snapshot);
  void offer(const Snapshot& snapshot);

  QMenu& menu_;
  QString directory_;
  Start start_;
  QTimer pause_;  ///< after which the chosen edit is written down
  RecentProject open_;
  std::vector<RecentProject> offered_;
  QString editToChoose_;  ///< once the project that is opened again is there
  bool hasBegun_ = false;
};

class ConversationPane;
class DetailPane;
class HappenedPane;
class HistoryPane;
class LogPane;
class MessageBar;
class NotificationsPane;
class ObjectsPane;
class PanelDock;
class PeoplePane;
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
  MessageBar* asks = nullptr;
  MessageBar* answers = nullptr;
  StatusLine* status = nullptr;
  PanelDock* panel = nullptr;
  LogPane* log = nullptr;
  NotificationsPane* notifications = nullptr;
  PeoplePane* people = nullptr;
  ConversationPane* conversation = nullptr;
  HappenedPane* happened = nullptr;
};

/// Where everything in the window is: projects and rooms on the left, the open project's objects in
/// the middle with the chosen one below them, the tools around, messages at the lower edge, where
/// they take room from below and move nothing under the mouse. In a small window the tools lie over
/// one another, each with a tab, and find back to their places once there is room; what the user
/// made wide or high is so again, too.
class WindowLayout : public QObject {
  Q_OBJECT

 public:
  /// Both must outlive it.
  WindowLayout(QMainWindow& window, const WindowPanes& panes);

  [[nodiscard]] QDockWidget& notificationsDock() const { return *notificationsDock_; }
  [[nodiscard]] QDockWidget& logDock() const { return *logDock_; }
  [[nodiscard]] QDockWidget& historyDock() const { return *historyDock_; }
  [[nodiscard]] QDockWidget& peopleDock() const { return *peopleDock_; }
  [[nodiscard]] QDockWidget& conversationDock() const { return *conversationDock_; }
  [[nodiscard]] QDockWidget& happenedDock() const { return *happenedDock_; }

  /// The keyboard goes to the pane after the one that has it.
  void focusNextPane();

  /// Brings the notifications to the front.
  void showNotifications();

  /// As the last run left it, or as the host configuration asks for. False where that asks: nothing
  /// of this run is then remembered.
  bool restore(QSettings& kept);
  void save(QSettings& kept) const;

  /// Stores the present layout as the one to return to once there is room.
  void noteSpread() { spread_ = window_.saveState(); }

 private:
  void buildPanes();
  void buildDocks();
  static void bringToFront(QDockWidget& dock);
  [[nodiscard]] QList<QDockWidget*> docks() const;
  [[nodiscard]] QList<QDockWidget*> toolDocks() const;
  QDockWidget* makeDock(const QString& title, const char* name, QWidget* content);
  void fit();
  void fitDocks();
  [[nodiscard]] QList<QDockWidget*> oneBelowAnother(Qt::DockWidgetArea area) const;
  void fitTabs();
  void fitSide();
  void fitHeights();
  void noteDockSizes();
  [[nodiscard]] QSplitter& lists() const;
  void gatherDocks();
  void spreadDocks();
  bool eventFilter(QObject* watched, QEvent* event) override;

  QMainWindow& window_;
  const WindowPanes& panes_;
  QDockWidget* notificationsDock_ = nullptr;
  QDockWidget* logDock_ = nullptr;
  QDockWidget* historyDock_ = nullptr;
  QDockWidget* peopleDock_ = nullptr;
  QDockWidget* conversationDock_ = nullptr;
  QDockWidget* happenedDock_ = nullptr;
  QSplitter* side_ = nullptr;
  QSplitter* centre_ = nullptr;
  QByteArray spread_;                     ///< where the docks were when there was room for them
  QHash<QDockWidget*, QSize> dockSizes_;  ///< as the user wants them where there is room
  int sideWidth_ = 270;
  double centreShare_ = 0.65;  ///< of the height, for the upper part
  double listsShare_ = 0.6;
  bool isSmall_ = false;
};

}  // namespace korvel
