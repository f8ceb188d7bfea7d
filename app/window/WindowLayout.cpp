#include "app/window/WindowLayout.h"

#include <QApplication>
#include <QEvent>
#include <QListView>
#include <QMenu>
#include <QScreen>
#include <QSettings>
#include <QSplitter>
#include <QTabBar>
#include <QToolBar>
#include <QTreeView>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>
#include <utility>

#include "app/window/DetailPane.h"
#include "app/window/EventPanes.h"
#include "app/window/HistoryPane.h"
#include "app/window/Menus.h"
#include "app/window/MessageBar.h"
#include "app/window/ObjectsPane.h"
#include "app/window/PeoplePane.h"
#include "app/window/ProjectsPane.h"
#include "app/window/Snapshot.h"
#include "app/window/TalkPanes.h"
#include "app/window/Texts.h"
#include "station/base/StationSettings.h"
#include "station/ui/Desktop.h"

namespace korvel {

namespace {

constexpr int kMostTools = 20;  // a file edited by hand may hold any number
const QString kTools = QStringLiteral("tools");
const QString kType = QStringLiteral("type");
const QString kSizeState = QStringLiteral("size");
const QString kX = QStringLiteral("x");
const QString kY = QStringLiteral("y");
const QString kDockSizes = QStringLiteral("size/");

}  // namespace

KeptTools toolsOn(const Desktop& desktop) {
  KeptTools tools;
  for (const SavedTool& saved : desktop.savedTools()) {
    tools.push_back(
        {readableText(saved.typeName.str()), saved.sizeState, saved.position.x, saved.position.y});
  }
  return tools;
}

void putBack(const KeptTools& tools, Desktop& desktop) {
  // Tools are there already: those of this session count.
  if (!desktop.savedTools().empty()) return;
  std::vector<SavedTool> saved;
  for (const KeptTool& tool : tools) {
    saved.push_back({tool.type.toStdString().c_str(), tool.sizeState, {tool.x, tool.y}});
  }
  desktop.restoreTools(saved);
}

void keepTools(QSettings& settings, const KeptTools& tools) {
  settings.remove(kTools);
  settings.beginWriteArray(kTools, static_cast<int>(tools.size()));
  for (std::size_t i = 0; i < tools.size(); ++i) {
    settings.setArrayIndex(static_cast<int>(i));
    settings.setValue(kType, tools[i].type);
    settings.setValue(kSizeState, tools[i].sizeState);
    settings.setValue(kX, tools[i].x);
    settings.setValue(kY, tools[i].y);
  }
  settings.endArray();
}

KeptTools keptTools(QSettings& settings) {
  KeptTools tools;
  const int count = std::min(settings.beginReadArray(kTools), kMostTools);
  for (int i = 0; i < count; ++i) {
    settings.setArrayIndex(i);
    tools.push_back({settings.value(kType).toString(), settings.value(kSizeState).toInt(),
                     settings.value(kX).toDouble(), settings.value(kY).toDouble()});
  }
  settings.endArray();
  return tools;
}

namespace {

constexpr std::size_t kMostRecent = 10;  // of a projects directory
constexpr int kMostKept = 200;           // of all; a file edited by hand may hold any number
constexpr int kEditPauseMs = 1000;
const QString kRecent = QStringLiteral("recent");
const QString kLast = QStringLiteral("lastOpen/");

std::vector<RecentProject> keptProjects(QSettings& settings) {
  std::vector<RecentProject> projects;
  const int count = std::min(settings.beginReadArray(kRecent), kMostKept);
  for (int i = 0; i < count; ++i) {
    settings.setArrayIndex(i);
    const auto text = [&settings](const char* key) {
      return settings.value(QLatin1String(key)).toString();
    };
    projects.push_back({text("directory"), text("cookie"), text("name"), text("edit")});
  }
  settings.endArray();
  return projects;
}

void keepProjects(QSettings& settings, const std::vector<RecentProject>& projects) {
  settings.remove(kRecent);
  settings.beginWriteArray(kRecent, static_cast<int>(projects.size()));
  for (std::size_t i = 0; i < projects.size(); ++i) {
    settings.setArrayIndex(static_cast<int>(i));
    settings.setValue(QStringLiteral("directory"), projects[i].directory);
    settings.setValue(QStringLiteral("cookie"), projects[i].cookie);
    settings.setValue(QStringLiteral("name"), projects[i].name);
    settings.setValue(QStringLiteral("edit"), projects[i].edit);
  }
  settings.endArray();
}

/// The key of what was open in a directory: a path holds the settings' own separator.
QString lastKey(const QString& directory) {
  return kLast + QString::fromLatin1(directory.toUtf8().toHex());
}

bool holdsProject(const Snapshot& snapshot, const QString& cookie) {
  return snapshot.projects &&
         std::ranges::any_of(*snapshot.projects,
                             [&cookie](const ProjectRow& row) { return row.cookie == cookie; });
}

}  // namespace

RecentProjects::RecentProjects(QMenu& menu, const QString& directory, Start start)
    : menu_(menu), directory_(directory), start_(start) {
  menu_.setToolTipsVisible(true);
  pause_.setSingleShot(true);
  pause_.setInterval(kEditPauseMs);
  connect(&pause_, &QTimer::timeout, this, &RecentProjects::keepEdit);
  connect(qApp, &QApplication::aboutToQuit, this, &RecentProjects::keepEdit);
}

std::vector<RecentProject> RecentProjects::all() const {
  QSettings kept = windowSettings();
  std::vector<RecentProject> found = keptProjects(kept);
  std::erase_if(found, [this](const RecentProject& each) { return each.directory != directory_; });
  return found;
}

void RecentProjects::takeSnapshot(const Snapshot& snapshot) {
  if (!hasBegun_) begin(snapshot);
  const ProjectState& now = snapshot.project;
  if (now.cookie != open_.cookie || now.name != open_.name) {
    keepEdit();
    const bool wasOpen = !open_.cookie.isEmpty();
    open_ = {directory_, now.cookie, now.name, {}};
    if (!now.cookie.isEmpty()) note(open_);
    if (wasOpen && now.cookie.isEmpty()) windowSettings().remove(lastKey(directory_));
  }
  goOn(snapshot);
  offer(snapshot);
}

/// Opens what was open, unless something is open by now.
void RecentProjects::begin(const Snapshot& snapshot) {
  // A share that answers late is waited for.
  const bool isOpen = !snapshot.project.cookie.isEmpty();
  if (!isOpen && !snapshot.projectsProblem.isEmpty()) return;
  hasBegun_ = true;
  offered_ = all();
  if (start_ == Start::eAfresh || isOpen) return;
  const QString last = windowSettings().value(lastKey(directory_)).toString();
  const auto found = std::ranges::find(offered_, last, &RecentProject::cookie);
  if (last.isEmpty() || found == offered_.end()) return;
  if (!holdsProject(snapshot, last)) {
    Q_EMIT lastIsGone(found->name);
    return;
  }
  editToChoose_ = found->edit;
  Q_EMIT projectWanted(last);
}

/// Puts a project in front of the others.
void RecentProjects::note(const RecentProject& project) {
  QSettings kept = windowSettings();
  std::vector<RecentProject> projects = keptProjects(kept);
  const auto isIt = [&project](const RecentProject& each) {
    return each.directory == project.directory && each.cookie == project.cookie;
  };
  const auto before = std::ranges::find_if(projects, isIt);
  RecentProject noted = project;
  if (before != projects.end() && noted.edit.isEmpty()) noted.edit = before->edit;
  std::erase_if(projects, isIt);
  projects.insert(projects.begin(), noted);
  std::size_t own = 0;
  std::erase_if(projects, [&](const RecentProject& each) {
    return each.directory == project.directory && ++own > kMostRecent;
  });
  keepProjects(kept, projects);
  kept.setValue(lastKey(directory_), project.cookie);
  kept.sync();
  offered_ = all();
}

void RecentProjects::noteEdit(const QString& cookie) {
  if (open_.cookie.isEmpty() || cookie == open_.edit) return;
  open_.edit = cookie;
  pause_.start();
}

void RecentProjects::keepEdit() {
  pause_.stop();
  if (!open_.cookie.isEmpty() && !open_.edit.isEmpty()) note(open_);
}

/// Once the project that is opened again shows its edits.
void RecentProjects::goOn(const Snapshot& snapshot) {
  const auto& edits = snapshot.objects[static_cast<std::size_t>(ObjectKind::eEdits)];
  if (editToChoose_.isEmpty() || snapshot.project.cookie.isEmpty() || !edits) return;
  const QString edit = std::exchange(editToChoose_, {});
  if (std::ranges::find(*edits, edit, &ObjectRow::key) != edits->end()) Q_EMIT editWanted(edit);
}

void RecentProjects::offer(const Snapshot& snapshot) {
  if (menu_.isVisible()) return;  // nothing moves under the hand
  menu_.clear();
  for (const RecentProject& each : offered_) {
    QAction* const action = menu_.addAction(menuText(each.name));
    connect(action, &QAction::triggered, this, [this, each] { Q_EMIT projectWanted(each.cookie); });
    if (each.cookie == snapshot.project.cookie) {
      setAllowed(*action, tr("This project is open already."));
    } else if (snapshot.projectsProblem.isEmpty() && !holdsProject(snapshot, each.cookie)) {
      setAllowed(*action, tr("This project is not there any more."));
    }
  }
  menu_.menuAction()->setEnabled(!menu_.isEmpty());
}

namespace {

constexpr QSize kFirstSize{1240, 780};
constexpr QSize kRoomForDocks{480, 320};  // beside one another
constexpr int kRoomForTexts = 800;        // of the tools, beside their icons, in short words
constexpr int kUsefulSide = 180;          // of the projects, to tell who holds them
constexpr QSize kDockSize{300, 190};
constexpr QSize kPanelSize{300, 380};  // there, one writes

/// "640x700+10+0": a size and a place.
std::optional<QRect> geometryFrom(const std::string& text) {
  int width = 0;
  int height = 0;
  int x = 0;
  int y = 0;
  if (std::sscanf(text.c_str(), "%dx%d+%d+%d", &width, &height, &x, &y) != 4) return {};
  return QRect(x, y, width, height);
}

/// The geometry that the host configuration asks for, `window`.
std::optional<QRect> askedGeometry() {
  const auto asked = settings().config.find("window");
  return asked == settings().config.end() ? std::nullopt : geometryFrom(asked->second);
}

QSplitter* splitter(Qt::Orientation orientation, const QList<QWidget*>& widgets) {
  auto* made = new QSplitter(orientation);
  made->setHandleWidth(1);
  for (QWidget* widget : widgets) made->addWidget(widget);
  return made;
}

}  // namespace

namespace {

/// The width in which the texts of a tool bar fit beside their icons.
int roomForTexts(const QToolBar& bar) {
  constexpr int kAroundText = 44;  // the icon, the button's edges, the gap to the next
  int room = kAroundText;
  for (const QAction* action : bar.actions()) {
    room += bar.fontMetrics().horizontalAdvance(action->iconText()) + kAroundText;
  }
  return std::max(room, kRoomForTexts);
}

/// How much of a splitter's room its first part has.
double shareOf(const QSplitter& parts) {
  const QList<int> sizes = parts.sizes();
  const int room = sizes.front() + sizes.back();
  return room > 0 ? static_cast<double>(sizes.front()) / room : 0.5;
}

void giveShare(QSplitter& parts, double share) {
  const QList<int> sizes = parts.sizes();
  const int room = sizes.front() + sizes.back();
  const int first = static_cast<int>(share * room + 0.5);
  if (first != sizes.front()) parts.setSizes({first, room - first});
}

}  // namespace

WindowLayout::WindowLayout(QMainWindow& window, const WindowPanes& panes)
    : window_(window), panes_(panes) {
  window_.setAnimated(false);
  buildPanes();
  buildDocks();
  window_.installEventFilter(this);
}

void WindowLayout::buildPanes() {
  centre_ = splitter(Qt::Vertical, {panes_.objects, panes_.detail});
  // Only the lower part gives room to a message, so that rows stay under the mouse.
  for (QSplitter* each : {centre_, &lists()}) {
    each->setStretchFactor(0, 0);
    each->setStretchFactor(1, 1);
  }
  centre_->setSizes({420, 230});
  side_ = splitter(Qt::Horizontal, {panes_.projects, centre_});
  side_->setStretchFactor(1, 1);
  side_->setSizes({sideWidth_, 900});
  side_->installEventFilter(this);
  connect(side_, &QSplitter::splitterMoved, this, [this] { sideWidth_ = side_->sizes().front(); });
  connect(centre_, &QSplitter::splitterMoved, this, [this] { centreShare_ = shareOf(*centre_); });
  connect(&lists(), &QSplitter::splitterMoved, this, [this] { listsShare_ = shareOf(lists()); });
  auto* middle = new QWidget;
  auto* layout = new QVBoxLayout(middle);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(scrolled(side_), 1);
  for (MessageBar* bar :
       {panes_.strip, panes_.messages, panes_.asks, panes_.answers, panes_.recovery}) {
    layout->addWidget(bar);
  }
  window_.setCentralWidget(middle);
}

QDockWidget* WindowLayout::makeDock(const QString& title, const char* name, QWidget* content) {
  auto* made = new QDockWidget(title);
  made->setObjectName(QString::fromLatin1(name));
  made->setWidget(scrolled(content));
  return made;
}

void WindowLayout::buildDocks() {
  window_.addDockWidget(Qt::RightDockWidgetArea, panes_.panel);
  notificationsDock_ = makeDock(tr("Notifications"), "notificationsDock", panes_.notifications);
  window_.addDockWidget(Qt::RightDockWidgetArea, notificationsDock_);
  logDock_ = makeDock(tr("Log"), "logDock", panes_.log);
  window_.addDockWidget(Qt::BottomDockWidgetArea, logDock_);
  historyDock_ = makeDock(tr("History"), "historyDock", panes_.history);
  window_.addDockWidget(Qt::BottomDockWidgetArea, historyDock_);
  window_.tabifyDockWidget(logDock_, historyDock_);
  peopleDock_ = makeDock(tr("People"), "peopleDock", panes_.people);
  window_.addDockWidget(Qt::BottomDockWidgetArea, peopleDock_);
  window_.tabifyDockWidget(historyDock_, peopleDock_);
  conversationDock_ = makeDock(tr("Conversation"), "conversationDock", panes_.conversation);
  window_.addDockWidget(Qt::BottomDockWidgetArea, conversationDock_);
  window_.tabifyDockWidget(peopleDock_, conversationDock_);
  happenedDock_ = makeDock(QDockWidget::tr("What happened"), "happenedDock", panes_.happened);
  window_.addDockWidget(Qt::BottomDockWidgetArea, happenedDock_);
  window_.tabifyDockWidget(conversationDock_, happenedDock_);
  for (QDockWidget* each : toolDocks()) each->hide();
  window_.resizeDocks({panes_.panel}, {kDockSize.width()}, Qt::Horizontal);
  for (QDockWidget* each : docks()) {
    dockSizes_[each] = each == panes_.panel ? kPanelSize : kDockSize;
    // Queued: within the signal Qt is still laying out, and a change of sizes would be lost.
    connect(each, &QDockWidget::visibilityChanged, this, &WindowLayout::fit, Qt::QueuedConnection);
    // The list and the timeline both give room to a dock; a message takes it from the timeline.
    connect(each, &QDockWidget::visibilityChanged, this, &WindowLayout::fitHeights,
            Qt::QueuedConnection);
    connect(each, &QDockWidget::dockLocationChanged, this, &WindowLayout::fit,
            Qt::QueuedConnection);
  }
  // A dock behind another is not hidden, so its content is not told that it comes to the front.
  connect(&window_, &QMainWindow::tabifiedDockWidgetActivated, this, [this](QDockWidget* dock) {
    if (dock == notificationsDock_) panes_.notifications->takeLook();
    if (dock == conversationDock_) panes_.conversation->takeLook();
  });
  for (QDockWidget* each : toolDocks()) bringToFront(*each);
  const int height = kDockSize.height();
  window_.resizeDocks({logDock_, historyDock_, peopleDock_, conversationDock_, happenedDock_},
                      {height, height, height, height, height}, Qt::Vertical);
}

/// A pane that is asked for comes to the front of those that share its place; the toolkit would
/// leave it behind them, and close it there at the next press.
void WindowLayout::bringToFront(QDockWidget& dock) {
  const auto isBehind = std::make_shared<bool>(false);
  connect(&dock, &QDockWidget::visibilityChanged, &dock, [&dock, isBehind](bool isInSight) {
    if (isInSight || !dock.isHidden()) *isBehind = !isInSight;
  });
  connect(dock.toggleViewAction(), &QAction::triggered, &dock, [&dock, isBehind](bool isWanted) {
    if (!isWanted && !*isBehind) return;
    dock.show();
    dock.raise();
  });
}

QList<QDockWidget*> WindowLayout::docks() const {
  return QList<QDockWidget*>{panes_.panel} + toolDocks();
}

// All but the panel, which the plug-in opens and closes.
QList<QDockWidget*> WindowLayout::toolDocks() const {
  return {notificationsDock_, logDock_,          historyDock_,
          peopleDock_,        conversationDock_, happenedDock_};
}

void WindowLayout::focusNextPane() {
  QList<QWidget*> panes{&panes_.projects->projects(), &panes_.projects->rooms(),
                        &panes_.objects->view(panes_.objects->kind()), &panes_.detail->view()};
  if (panes_.panel->isVisible()) panes.append(panes_.panel->focusProxy());
  if (notificationsDock_->isVisible())
    panes.append(panes_.notifications->findChild<QWidget*>(QStringLiteral("notifications")));
  if (historyDock_->isVisible()) panes.append(&panes_.history->list());
  if (logDock_->isVisible()) panes.append(&panes_.log->view());
  if (peopleDock_->isVisible()) panes.append(&panes_.people->list());
  if (conversationDock_->isVisible()) panes.append(&panes_.conversation->view());
  if (happenedDock_->isVisible()) panes.append(&panes_.happened->list());
  const qsizetype now = panes.indexOf(QApplication::focusWidget());
  for (qsizetype i = 1; i <= panes.size(); ++i) {
    QWidget* next = panes[(now + i) % panes.size()];
    if (!next->isVisible()) continue;
    next->setFocus(Qt::TabFocusReason);
    return;
  }
}

void WindowLayout::showNotifications() {
  notificationsDock_->show();
  notificationsDock_->raise();
}

void WindowLayout::fit() {
  // Docks that are taken out and put in again are neither painted nor looked at meanwhile.
  window_.setUpdatesEnabled(false);
  const bool isSmall =
      window_.width() < kRoomForDocks.width() || window_.height() < kRoomForDocks.height();
  for (MessageBar* bar :
       {panes_.recovery, panes_.answers, panes_.asks, panes_.messages, panes_.strip}) {
    bar->setLines(isSmall ? MessageBar::Lines::eOne : MessageBar::Lines::eAll);
  }
  for (QToolBar* bar : window_.findChildren<QToolBar*>()) {
    const bool hasTexts = window_.width() >= roomForTexts(*bar);
    bar->setToolButtonStyle(hasTexts ? Qt::ToolButtonTextBesideIcon : Qt::ToolButtonIconOnly);
  }
  if (isSmall != isSmall_) isSmall ? gatherDocks() : spreadDocks();
  isSmall_ = isSmall;
  fitDocks();
  fitTabs();
  if (!isSmall) noteSpread();
  window_.setUpdatesEnabled(true);
}

// The tabs of docks that are closed stay, without a size: the Tab key must not go there.
void WindowLayout::fitTabs() {
  const auto direct = Qt::FindDirectChildrenOnly;
  for (QTabBar* tabs : window_.findChildren<QTabBar*>(QString(), direct)) {
    tabs->setFocusPolicy(tabs->visibleRegion().isEmpty() ? Qt::NoFocus : Qt::TabFocus);
  }
}

// The list of objects keeps most of the width: what is beside it gets a third at most.
void WindowLayout::fitDocks() {
  const QSize most = window_.size() / 3;
  for (QDockWidget* dock : docks()) {
    if (!dock->isVisible() || dock->isFloating()) continue;
    const Qt::DockWidgetArea area = window_.dockWidgetArea(dock);
    const bool isBeside = area == Qt::LeftDockWidgetArea || area == Qt::RightDockWidgetArea;
    const QSize wanted = dockSizes_[dock].boundedTo(most);
    const int size = isBeside ? wanted.width() : wanted.height();
    if ((isBeside ? dock->width() : dock->height()) == size) continue;
    window_.resizeDocks({dock}, {size}, isBeside ? Qt::Horizontal : Qt::Vertical);
  }
  for (const Qt::DockWidgetArea area : {Qt::LeftDockWidgetArea, Qt::RightDockWidgetArea}) {
    const QList<QDockWidget*> column = oneBelowAnother(area);
    QList<int> heights;
    for (QDockWidget* dock : column) heights.append(dockSizes_[dock].height());
    // As far as there is room; else in this proportion. Left alone, a dock that comes back gets
    // less each time.
    if (column.size() > 1) window_.resizeDocks(column, heights, Qt::Vertical);
  }
}

// The docks that share the height of one side. A dock with tabs has all of it.
QList<QDockWidget*> WindowLayout::oneBelowAnother(Qt::DockWidgetArea area) const {
  QList<QDockWidget*> found;
  for (QDockWidget* dock : docks()) {
    const bool isThere = dock->isVisible() && !dock->isFloating() &&
                         window_.dockWidgetArea(dock) == area &&
                         window_.tabifiedDockWidgets(dock).isEmpty();
    if (isThere) found.append(dock);
  }
  return found;
}

// The user moved the edge of a dock, which is no widget of its own.
void WindowLayout::noteDockSizes() {
  for (QDockWidget* dock : docks()) {
    if (!dock->isVisible() || dock->isFloating()) continue;
    const Qt::DockWidgetArea area = window_.dockWidgetArea(dock);
    const bool isBeside = area == Qt::LeftDockWidgetArea || area == Qt::RightDockWidgetArea;
    // Alone on its side it has all the height, which is no wish of the user's.
    const bool hasOwnHeight = !isBeside || oneBelowAnother(area).size() > 1;
    dockSizes_[dock] = {dock->width(), hasOwnHeight ? dock->height() : dockSizes_[dock].height()};
  }
}

void WindowLayout::fitSide() {
  const int room = side_->width();
  const int most = std::max(room * 2 / 5, std::min(kUsefulSide, room / 2));
  const int width = std::min(sideWidth_, most);
  if (side_->sizes().front() != width) side_->setSizes({width, room - width});
}

void WindowLayout::fitHeights() {
  window_.layout()->activate();  // the docks have their sizes before what is between them
  giveShare(*centre_, centreShare_);
  giveShare(lists(), listsShare_);
}

QSplitter& WindowLayout::lists() const { return panes_.projects->lists(); }

bool WindowLayout::eventFilter(QObject* watched, QEvent* event) {
  const auto later = [this](void (WindowLayout::*what)()) {
    QMetaObject::invokeMethod(this, what, Qt::QueuedConnection);
  };
  if (event->type() == QEvent::Resize) {
    // After the layout has taken the new size.
    later(watched == side_ ? &WindowLayout::fitSide : &WindowLayout::fit);
    if (watched == &window_) later(&WindowLayout::fitHeights);
  } else if (event->type() == QEvent::MouseButtonRelease && watched == &window_) {
    later(&WindowLayout::noteDockSizes);
  }
  return QObject::eventFilter(watched, event);
}

// In a small window docks become tabs of one place, so that the centre keeps its room.
void WindowLayout::gatherDocks() {
  for (QDockWidget* dock : toolDocks()) {
    if (dock->isFloating() || panes_.panel->isFloating()) continue;
    // Tabifying shows a dock.
    const bool wasShown = !dock->isHidden();
    window_.tabifyDockWidget(panes_.panel, dock);
    dock->setVisible(wasShown);
  }
}

void WindowLayout::spreadDocks() {
  const QList<QDockWidget*> all = docks();
  QList<bool> shown;
  for (const QDockWidget* dock : all) shown.append(!dock->isHidden());
  window_.restoreState(spread_);
  // The kept state also holds which docks were open; the user may have opened others since.
  for (qsizetype i = 0; i < all.size(); ++i) all[i]->setVisible(shown[i]);
}

bool WindowLayout::restore(QSettings& kept) {
  window_.resize(kFirstSize.boundedTo(window_.screen()->availableSize()));
  window_.setMinimumSize(300, 200);
  if (const auto asked = askedGeometry()) {
    // A geometry from the configuration is for this start alone; the kept one is neither used nor
    // replaced.
    window_.setGeometry(*asked);
    return false;
  }
  window_.restoreGeometry(kept.value(QStringLiteral("geometry")).toByteArray());
  window_.restoreState(kept.value(QStringLiteral("state")).toByteArray());
  sideWidth_ = kept.value(QStringLiteral("sideWidth"), sideWidth_).toInt();
  centreShare_ = kept.value(QStringLiteral("centreShare"), centreShare_).toDouble();
  listsShare_ = kept.value(QStringLiteral("listsShare"), listsShare_).toDouble();
  for (QDockWidget* dock : docks()) {
    const QSize size = kept.value(kDockSizes + dock->objectName(), dockSizes_[dock]).toSize();
    dockSizes_[dock] = size.expandedTo(dock->minimumSizeHint());
  }
  panes_.objects->restoreColumns(kept);
  panes_.panel->hide();
  return true;
}

void WindowLayout::save(QSettings& kept) const {
  kept.setValue(QStringLiteral("geometry"), window_.saveGeometry());
  kept.setValue(QStringLiteral("state"), isSmall_ ? spread_ : window_.saveState());
  kept.setValue(QStringLiteral("sideWidth"), sideWidth_);
  kept.setValue(QStringLiteral("centreShare"), centreShare_);
  kept.setValue(QStringLiteral("listsShare"), listsShare_);
  for (auto each = dockSizes_.begin(); each != dockSizes_.end(); ++each) {
    kept.setValue(kDockSizes + each.key()->objectName(), each.value());
  }
  panes_.objects->saveColumns(kept);
}

}  // namespace korvel
