#include "app/window/WindowLayout.h"

#include <QApplication>
#include <QEvent>
#include <QListView>
#include <QScreen>
#include <QSettings>
#include <QSplitter>
#include <QTreeView>
#include <QTreeWidget>
#include <QVBoxLayout>
#include <algorithm>
#include <cstdio>
#include <optional>
#include <string>

#include "app/window/DetailPane.h"
#include "app/window/HistoryPane.h"
#include "app/window/LogPane.h"
#include "app/window/MessageBar.h"
#include "app/window/NotificationsPane.h"
#include "app/window/ObjectsPane.h"
#include "app/window/PanelDock.h"
#include "app/window/ProjectsPane.h"
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

constexpr QSize kFirstSize{1240, 780};
constexpr QSize kRoomForDocks{480, 320};  // beside one another
constexpr int kUsefulSide = 180;          // of the projects, to tell who holds them

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

WindowLayout::WindowLayout(QMainWindow& window, const WindowPanes& panes)
    : window_(window), panes_(panes) {
  buildPanes();
  buildDocks();
  window_.installEventFilter(this);
}

void WindowLayout::buildPanes() {
  centre_ = splitter(Qt::Vertical, {panes_.objects, panes_.detail});
  centre_->setStretchFactor(0, 3);
  centre_->setStretchFactor(1, 2);
  centre_->setSizes({420, 230});
  side_ = splitter(Qt::Horizontal, {panes_.projects, centre_});
  side_->setStretchFactor(1, 1);
  side_->setSizes({270, 900});
  side_->installEventFilter(this);
  auto* middle = new QWidget;
  auto* layout = new QVBoxLayout(middle);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  for (MessageBar* bar : {panes_.recovery, panes_.messages, panes_.strip}) layout->addWidget(bar);
  layout->addWidget(scrolled(side_), 1);
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
  notificationsDock_ =
      makeDock(QStringLiteral("Notifications"), "notificationsDock", panes_.notifications);
  window_.addDockWidget(Qt::RightDockWidgetArea, notificationsDock_);
  logDock_ = makeDock(QStringLiteral("Log"), "logDock", panes_.log);
  window_.addDockWidget(Qt::BottomDockWidgetArea, logDock_);
  historyDock_ = makeDock(QStringLiteral("History"), "historyDock", panes_.history);
  window_.addDockWidget(Qt::BottomDockWidgetArea, historyDock_);
  window_.tabifyDockWidget(logDock_, historyDock_);
  for (QDockWidget* each : {notificationsDock_, logDock_, historyDock_}) each->hide();
  window_.resizeDocks({panes_.panel}, {300}, Qt::Horizontal);
  for (QDockWidget* each : docks()) {
    // Queued: within the signal Qt is still laying out, and a change of sizes would be lost.
    connect(each, &QDockWidget::visibilityChanged, this, &WindowLayout::fit, Qt::QueuedConnection);
    connect(each, &QDockWidget::dockLocationChanged, this, &WindowLayout::fit,
            Qt::QueuedConnection);
  }
  window_.resizeDocks({logDock_, historyDock_}, {190, 190}, Qt::Vertical);
}

QList<QDockWidget*> WindowLayout::docks() const {
  return {panes_.panel, notificationsDock_, logDock_, historyDock_};
}

void WindowLayout::focusNextPane() {
  QList<QWidget*> panes{&panes_.projects->projects(), &panes_.projects->rooms(),
                        &panes_.objects->view(panes_.objects->kind()), &panes_.detail->view()};
  if (panes_.panel->isVisible()) panes.append(panes_.panel->focusProxy());
  if (notificationsDock_->isVisible())
    panes.append(panes_.notifications->findChild<QWidget*>(QStringLiteral("notifications")));
  if (historyDock_->isVisible()) panes.append(&panes_.history->list());
  if (logDock_->isVisible()) panes.append(&panes_.log->view());
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
  const bool isSmall =
      window_.width() < kRoomForDocks.width() || window_.height() < kRoomForDocks.height();
  for (MessageBar* bar : {panes_.recovery, panes_.messages, panes_.strip}) {
    bar->setLines(isSmall ? MessageBar::Lines::eOne : MessageBar::Lines::eAll);
  }
  if (isSmall != isSmall_) isSmall ? gatherDocks() : spreadDocks();
  isSmall_ = isSmall;
  narrowPanel();
  if (!isSmall) noteSpread();
}

// The list of objects keeps most of the width: the panel gets a third at most.
void WindowLayout::narrowPanel() {
  const int most = window_.width() / 3;
  if (!panes_.panel->isVisible() || panes_.panel->width() <= most) return;
  window_.resizeDocks({panes_.panel}, {most}, Qt::Horizontal);
}

void WindowLayout::narrowSide() {
  const int room = side_->width();
  const int most = std::max(room * 2 / 5, std::min(kUsefulSide, room / 2));
  if (side_->sizes().front() > most) side_->setSizes({most, room - most});
}

bool WindowLayout::eventFilter(QObject* watched, QEvent* event) {
  if (event->type() == QEvent::Resize) {
    const auto fitted = watched == side_ ? &WindowLayout::narrowSide : &WindowLayout::fit;
    // After the layout has taken the new size.
    QMetaObject::invokeMethod(this, fitted, Qt::QueuedConnection);
  }
  return QObject::eventFilter(watched, event);
}

// In a small window docks become tabs of one place, so that the centre keeps its room.
void WindowLayout::gatherDocks() {
  for (QDockWidget* dock : {notificationsDock_, logDock_, historyDock_}) {
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
  side_->restoreState(kept.value(QStringLiteral("side")).toByteArray());
  centre_->restoreState(kept.value(QStringLiteral("centre")).toByteArray());
  // The station decides whether the panel is open; the kept state may say otherwise.
  panes_.panel->hide();
  return true;
}

void WindowLayout::save(QSettings& kept) const {
  kept.setValue(QStringLiteral("geometry"), window_.saveGeometry());
  kept.setValue(QStringLiteral("state"), isSmall_ ? spread_ : window_.saveState());
  kept.setValue(QStringLiteral("side"), side_->saveState());
  kept.setValue(QStringLiteral("centre"), centre_->saveState());
}

}  // namespace korvel
