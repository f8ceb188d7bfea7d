// How the main window is put together.

#include <QActionGroup>
#include <QApplication>
#include <QDialog>
#include <QFontDatabase>
#include <QInputDialog>
#include <QListView>
#include <QPlainTextEdit>
#include <QScreen>
#include <QSplitter>
#include <QToolBar>
#include <QToolButton>
#include <QTreeView>
#include <QVBoxLayout>
#include <algorithm>
#include <utility>

#include "app/window/Appearance.h"
#include "app/window/DetailPane.h"
#include "app/window/Icons.h"
#include "app/window/LogPane.h"
#include "app/window/LongText.h"
#include "app/window/MainWindow.h"
#include "app/window/MessageBar.h"
#include "app/window/NotificationsPane.h"
#include "app/window/ObjectsPane.h"
#include "app/window/PanelDock.h"
#include "app/window/ProjectsPane.h"
#include "app/window/Scrolled.h"
#include "app/window/Texts.h"
#include "app/window/WindowSettings.h"
#include "station/base/StationSettings.h"

namespace korvel {

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

/// An empty text in a dialog of its own, which is gone once it is closed.
QPlainTextEdit& showInDialog(const QString& title, QWidget& parent) {
  auto* dialog = new QDialog(&parent);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setObjectName(QStringLiteral("answer"));
  dialog->setWindowTitle(plainTitle(title));
  auto* shown = new QPlainTextEdit;
  shown->setReadOnly(true);
  auto* layout = new QVBoxLayout(dialog);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->addWidget(shown);
  dialog->resize(720, 420);
  dialog->show();
  return *shown;
}

}  // namespace

void MainWindow::buildPanes() {
  centre_ = splitter(Qt::Vertical, {objects_, detail_});
  centre_->setStretchFactor(0, 3);
  centre_->setStretchFactor(1, 2);
  centre_->setSizes({420, 230});
  side_ = splitter(Qt::Horizontal, {projects_, centre_});
  side_->setStretchFactor(1, 1);
  side_->setSizes({270, 900});
  side_->installEventFilter(this);
  auto* middle = new QWidget;
  auto* layout = new QVBoxLayout(middle);
  layout->setContentsMargins(0, 0, 0, 0);
  layout->setSpacing(0);
  layout->addWidget(messages_);
  layout->addWidget(strip_);
  layout->addWidget(scrolled(side_), 1);
  setCentralWidget(middle);
  connect(strip_, &MessageBar::acted, this, [this] {
    strip_->hide();
    notificationsDock_->show();
    notificationsDock_->raise();
    notifications_->chooseLatest();
  });
  connect(notifications_, &NotificationsPane::unreadChanged, this, [this](int count) {
    const QString title = QStringLiteral("Notifications");
    notificationsDock_->setWindowTitle(
        count == 0 ? title : QStringLiteral("%1 (%L2)").arg(title).arg(count));
    if (count == 0) strip_->hide();
  });
  connect(notifications_, &NotificationsPane::wholeWanted, this, &MainWindow::showWhole);
}

void MainWindow::buildDocks() {
  const auto dock = [](const QString& title, const char* name, QWidget* content) {
    auto* made = new QDockWidget(title);
    made->setObjectName(QString::fromLatin1(name));
    made->setWidget(scrolled(content));
    return made;
  };
  addDockWidget(Qt::RightDockWidgetArea, panel_);
  notificationsDock_ = dock(QStringLiteral("Notifications"), "notificationsDock", notifications_);
  addDockWidget(Qt::RightDockWidgetArea, notificationsDock_);
  logDock_ = dock(QStringLiteral("Log"), "logDock", log_);
  addDockWidget(Qt::BottomDockWidgetArea, logDock_);
  logDock_->hide();
  notificationsDock_->hide();
  resizeDocks({panel_}, {300}, Qt::Horizontal);
  for (QDockWidget* each : {static_cast<QDockWidget*>(panel_), notificationsDock_, logDock_}) {
    connect(each, &QDockWidget::visibilityChanged, this, &MainWindow::fitDocks,
            Qt::QueuedConnection);
    connect(each, &QDockWidget::dockLocationChanged, this, &MainWindow::fitDocks,
            Qt::QueuedConnection);
  }
  resizeDocks({logDock_}, {170}, Qt::Vertical);
}

void MainWindow::buildMenus() {
  menus_ =
      std::make_unique<MainMenus>(*this, [this](const ActionSpec& action) { runAction(action); });
  menus_->menu(QStringLiteral("Project")).addSeparator();
  menus_->add(QStringLiteral("Project"), QStringLiteral("&Quit"), QStringLiteral("Ctrl+Q"),
              [this] { close(); });
  auto* bar = addToolBar(QStringLiteral("Tools"));
  bar->setObjectName(QStringLiteral("tools"));
  bar->setMovable(false);
  bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  bar->setContextMenuPolicy(Qt::PreventContextMenu);
  panelAction_ = bar->addAction(panelIcon({}), QStringLiteral("Messages"));
  panelAction_->setCheckable(true);
  panelAction_->setToolTip(
      QStringLiteral("Write to colleagues (Ctrl+M opens, Ctrl+Shift+M closes)"));
  connect(panelAction_, &QAction::triggered, this, &MainWindow::togglePanel);
  connect(menus_->action(QStringLiteral("panel open")), &QAction::triggered, panel_,
          [this] { panel_->focusWhenOpen(); });
  notificationsDock_->toggleViewAction()->setIcon(icon(Glyph::eBell, colours().text));
  logDock_->toggleViewAction()->setIcon(icon(Glyph::eLog, colours().text));
  bar->addActions({notificationsDock_->toggleViewAction(), logDock_->toggleViewAction()});
  buildViewMenu();
  buildHelpMenu();
}

void MainWindow::buildViewMenu() {
  const QString view = QStringLiteral("View");
  logDock_->toggleViewAction()->setShortcut(QKeySequence(QStringLiteral("Ctrl+Alt+L")));
  notificationsDock_->toggleViewAction()->setShortcut(QKeySequence(QStringLiteral("Ctrl+Alt+N")));
  menus_->menu(view).addActions(
      {notificationsDock_->toggleViewAction(), logDock_->toggleViewAction()});
  menus_->menu(view).addSeparator();
  const QStringList kinds{QStringLiteral("Edits and logs"), QStringLiteral("Bins"),
                          QStringLiteral("Racks"), QStringLiteral("Filters"),
                          QStringLiteral("Media")};
  for (int i = 0; i < kinds.size(); ++i) {
    menus_->add(view, kinds[i], QStringLiteral("Ctrl+%1").arg(i + 1), [this, i] {
      objects_->setKind(static_cast<ObjectKind>(i));
      objects_->view(static_cast<ObjectKind>(i)).setFocus();
    });
  }
  menus_->add(view, QStringLiteral("&Narrow the list"), QStringLiteral("Ctrl+F"),
              [this] { objects_->startSearch(); });
  menus_->add(view, QStringLiteral("Next &pane"), QStringLiteral("F6"), [this] { nextPane(); });
  menus_->add(view, QStringLiteral("Show another station's &change"), QStringLiteral("F7"), [this] {
    if (detail_->changeBar().isVisible()) Q_EMIT detail_->changeBar().acted();
  });
  menus_->add(view, QStringLiteral("&Look again"), QStringLiteral("F5"),
              [this] { link_.lookAgain(); });
  menus_->menu(view).addSeparator();
  auto* group = new QActionGroup(this);
  QMenu* appearance = menus_->menu(view).addMenu(QStringLiteral("&Appearance"));
  const QString now = windowSettings().value(QStringLiteral("appearance")).toString();
  for (const Appearance each : {Appearance::eSystem, Appearance::eLight, Appearance::eDark}) {
    const QStringList texts{QStringLiteral("As the &desktop"), QStringLiteral("&Light"),
                            QStringLiteral("Dar&k")};
    QAction* action = appearance->addAction(texts[static_cast<int>(each)]);
    action->setCheckable(true);
    action->setChecked(appearanceNamed(now) == each);
    group->addAction(action);
    connect(action, &QAction::triggered, this,
            [this, each] { chooseAppearance(appearanceName(each)); });
  }
}

void MainWindow::buildHelpMenu() {
  const QString help = QStringLiteral("Help");
  menus_->add(help, QStringLiteral("&Run a command…"), QStringLiteral("Ctrl+K"),
              [this] { runTypedLine(); });
  menus_->add(help, QStringLiteral("&Shortcuts"), QStringLiteral("F1"),
              [this] { showAnswer(QStringLiteral("Shortcuts"), menus_->shortcutText()); });
  menus_->add(help, QStringLiteral("&Commands"), QString(),
              [this] { link_.run(QStringLiteral("help")); });
}

void MainWindow::runTypedLine() {
  auto* dialog = new QInputDialog(this);
  dialog->setAttribute(Qt::WA_DeleteOnClose);
  dialog->setObjectName(QStringLiteral("commandDialog"));
  dialog->setWindowTitle(QStringLiteral("Run a command"));
  dialog->setLabelText(QStringLiteral("A command as the console takes it:"));
  dialog->resize(460, dialog->sizeHint().height());
  connect(dialog, &QInputDialog::textValueSelected, this, [this](const QString& line) {
    if (line.trimmed() == QLatin1String("quit")) {
      close();
    } else if (!line.trimmed().isEmpty()) {
      link_.run(line);
    }
  });
  dialog->show();
}

void MainWindow::showAnswer(const QString& title, const QString& text) {
  if (!text.contains(QLatin1Char('\n')) && text.size() < 200) {
    messages_->tell(MessageBar::Kind::eNote, text);
    return;
  }
  QPlainTextEdit& shown = showInDialog(title, *this);
  shown.setFont(QFontDatabase::systemFont(QFontDatabase::FixedFont));
  shown.setLineWrapMode(QPlainTextEdit::NoWrap);
  shown.setPlainText(text);
}

void MainWindow::showWhole(const QString& title, const QString& text) {
  showLongText(showInDialog(title, *this), text);
}

// The colours of what was drawn before are in icons and labels; an empty name is the remembered
// one.
void MainWindow::chooseAppearance(const QString& name) {
  QSettings kept = windowSettings();
  const QString key = QStringLiteral("appearance");
  if (!name.isEmpty()) kept.setValue(key, name);
  applyAppearance(appearanceNamed(kept.value(key).toString()));
  if (!notificationsDock_) return;
  notificationsDock_->toggleViewAction()->setIcon(icon(Glyph::eBell, colours().text));
  logDock_->toggleViewAction()->setIcon(icon(Glyph::eLog, colours().text));
}

void MainWindow::nextPane() {
  QList<QWidget*> panes{&projects_->projects(), &projects_->rooms(),
                        &objects_->view(objects_->kind()), &detail_->view()};
  if (panel_->isVisible()) panes.append(panel_->focusProxy());
  if (notificationsDock_->isVisible())
    panes.append(notifications_->findChild<QWidget*>(QStringLiteral("notifications")));
  if (logDock_->isVisible()) panes.append(&log_->view());
  const qsizetype now = panes.indexOf(QApplication::focusWidget());
  for (qsizetype i = 1; i <= panes.size(); ++i) {
    QWidget* next = panes[(now + i) % panes.size()];
    if (!next->isVisible()) continue;
    next->setFocus(Qt::TabFocusReason);
    return;
  }
}

// In a small window the tools lie over one another, each with a tab, and find back to their places
// once there is room.
void MainWindow::fitDocks() {
  const bool isSmall = width() < kRoomForDocks.width() || height() < kRoomForDocks.height();
  for (MessageBar* bar : {messages_, strip_}) {
    bar->setLines(isSmall ? MessageBar::Lines::eOne : MessageBar::Lines::eAll);
  }
  if (isSmall != isSmall_) isSmall ? gatherDocks() : spreadDocks();
  isSmall_ = isSmall;
  narrowPanel();
  if (!isSmall) spread_ = saveState();
}

// The open project's objects are what the window is for, and nothing beside them takes their room.
void MainWindow::narrowPanel() {
  const int most = width() / 3;
  if (panel_->isVisible() && panel_->width() > most) resizeDocks({panel_}, {most}, Qt::Horizontal);
}

void MainWindow::narrowSide() {
  const int room = side_->width();
  const int most = std::max(room * 2 / 5, std::min(kUsefulSide, room / 2));
  if (side_->sizes().front() > most) side_->setSizes({most, room - most});
}

bool MainWindow::eventFilter(QObject* watched, QEvent* event) {
  if (watched == side_ && event->type() == QEvent::Resize) {
    QMetaObject::invokeMethod(this, &MainWindow::narrowSide, Qt::QueuedConnection);
  }
  return QMainWindow::eventFilter(watched, event);
}

void MainWindow::gatherDocks() {
  for (QDockWidget* dock : {notificationsDock_, logDock_}) {
    if (dock->isFloating() || panel_->isFloating()) continue;
    const bool wasShown = !dock->isHidden();
    tabifyDockWidget(panel_, dock);
    dock->setVisible(wasShown);
  }
}

void MainWindow::spreadDocks() {
  const QList<QDockWidget*> docks{panel_, notificationsDock_, logDock_};
  QList<bool> shown;
  for (const QDockWidget* dock : docks) shown.append(!dock->isHidden());
  restoreState(spread_);
  for (qsizetype i = 0; i < docks.size(); ++i) docks[i]->setVisible(shown[i]);
}

void MainWindow::restoreLayout() {
  resize(kFirstSize.boundedTo(screen()->availableSize()));
  setMinimumSize(300, 200);
  QSettings kept = windowSettings();
  if (const auto asked = askedGeometry()) {
    keepsLayout_ = false;
    setGeometry(*asked);
    return;
  }
  restoreGeometry(kept.value(QStringLiteral("geometry")).toByteArray());
  restoreState(kept.value(QStringLiteral("state")).toByteArray());
  side_->restoreState(kept.value(QStringLiteral("side")).toByteArray());
  centre_->restoreState(kept.value(QStringLiteral("centre")).toByteArray());
  panel_->hide();
  link_.putBackOnceReady(keptTools(kept));
}

void MainWindow::saveLayout() const {
  if (!keepsLayout_) return;
  QSettings kept = windowSettings();
  kept.setValue(QStringLiteral("geometry"), saveGeometry());
  kept.setValue(QStringLiteral("state"), isSmall_ ? spread_ : saveState());
  kept.setValue(QStringLiteral("side"), side_->saveState());
  kept.setValue(QStringLiteral("centre"), centre_->saveState());
  if (snapshot_) keepTools(kept, snapshot_->tools);
}

}  // namespace korvel
