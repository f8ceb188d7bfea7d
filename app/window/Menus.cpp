#include "app/window/Menus.h"

#include <QActionGroup>
#include <QApplication>
#include <QDesktopServices>
#include <QDir>
#include <QFileInfo>
#include <QMainWindow>
#include <QMenuBar>
#include <QToolBar>
#include <QTreeView>
#include <QUrl>
#include <algorithm>

#include "app/window/Appearance.h"
#include "app/window/DetailPane.h"
#include "app/window/Dialogs.h"
#include "app/window/EventPanes.h"
#include "app/window/HostLink.h"
#include "app/window/MessageBar.h"
#include "app/window/ObjectsPane.h"
#include "app/window/TalkPanes.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"

namespace korvel {

MainMenus::MainMenus(QMainWindow& window, const Runner& run) : window_(window) {
  for (const ActionSpec& spec : actionTable()) {
    QAction& action = add(QString::fromUtf8(spec.menu), actionText(spec.text),
                          QString::fromUtf8(spec.shortcut), [run, &spec] { run(spec); });
    actions_.emplace_back(&spec, &action);
  }
}

QMenu& MainMenus::menu(const QString& title) {
  QMenu*& found = menus_[title];
  if (found) return *found;
  found = window_.menuBar()->addMenu(menuTitle(title));
  found->setToolTipsVisible(true);
  return *found;
}

QAction& MainMenus::add(const QString& title, const QString& text, const QString& shortcut,
                        const std::function<void()>& run) {
  QAction* action = menu(title).addAction(text);
  if (!shortcut.isEmpty()) action->setShortcut(QKeySequence::fromString(shortcut));
  QObject::connect(action, &QAction::triggered, &window_, run);
  return *action;
}

void setAllowed(QAction& action, const QString& whyNot) {
  action.setEnabled(whyNot.isEmpty());
  if (action.statusTip() == whyNot) return;
  action.setStatusTip(whyNot);
  action.setToolTip(whyNot.isEmpty() ? QString() : plainTip(whyNot));
}

void MainMenus::enable(const std::function<QString(const ActionSpec&)>& whyNot) {
  for (const auto& [spec, action] : actions_) {
    setAllowed(*action, whyNot(*spec));
    if (QShortcut* const refusal = refusals_.value(action)) {
      refusal->setEnabled(!action->isEnabled());
    }
  }
}

// Qt ignores the key of an action that is disabled, and somebody who pressed it would not learn
// why nothing happens.
void MainMenus::tellRefusals(const std::function<void(const QString&)>& tell) {
  for (const auto& [spec, action] : actions_) {
    if (action->shortcut().isEmpty()) continue;
    QWidget* const place = bound_.value(action);
    auto* const refusal = new QShortcut(action->shortcut(), place ? place : &window_);
    if (place) refusal->setContext(Qt::WidgetShortcut);
    refusal->setEnabled(false);
    QObject::connect(refusal, &QShortcut::activated, &window_,
                     [tell, refused = action] { tell(refused->statusTip()); });
    refusals_[action] = refusal;
  }
}

void MainMenus::bindKey(const QString& line, QWidget& widget) {
  QAction* const bound = action(line);
  // In the other panes the key keeps its usual meaning: Del in a text field must delete a letter.
  bound->setShortcutContext(Qt::WidgetShortcut);
  widget.addAction(bound);
  bound_[bound] = &widget;
}

void MainMenus::popUp(const std::vector<Target>& targets, const QPoint& at) {
  auto* shown = new QMenu(&window_);
  // popup() returns at once, so the menu must delete itself.
  shown->setAttribute(Qt::WA_DeleteOnClose);
  shown->setToolTipsVisible(true);
  for (const Target target : targets) {
    if (!shown->isEmpty()) shown->addSeparator();
    for (const auto& [spec, action] : actions_) {
      if (spec->target == target) shown->addAction(action);
    }
  }
  shown->popup(at);
}

QAction* MainMenus::action(const QString& line) const {
  const auto found = std::ranges::find_if(
      actions_, [&line](const auto& each) { return line == QLatin1String(each.first->line); });
  return found == actions_.end() ? nullptr : found->second;
}

QString MainMenus::shortcutText() const {
  QString text;
  for (const QAction* top : window_.menuBar()->actions()) {
    text += QString(top->text()).remove(QLatin1Char('&')) + QLatin1Char('\n');
    for (const QAction* action : top->menu()->actions()) {
      if (action->isSeparator()) continue;
      text += QStringLiteral("  %1 %2\n")
                  .arg(action->shortcut().toString(QKeySequence::NativeText).leftJustified(14),
                       QString(action->text()).remove(QLatin1Char('&')));
    }
  }
  return text;
}

WindowMenus::WindowMenus(QMainWindow& window, MainMenus& menus, const WindowPanes& panes,
                         WindowLayout& layout, Runner run)
    : window_(window), menus_(menus), panes_(panes), layout_(layout), run_(std::move(run)) {
  chooseAppearance({});
  buildTools();
  buildViewMenu();
  buildAppearanceMenu();
  buildNoticeSetting();
  buildHelpMenu();
}

void WindowMenus::buildTools() {
  menus_.menu(QStringLiteral("Project")).addSeparator();
  menus_.add(QStringLiteral("Project"), tr("&Quit"), QStringLiteral("Ctrl+Q"),
             [this] { window_.close(); });
  auto* bar = window_.addToolBar(tr("Tools"));
  bar->setObjectName(QStringLiteral("tools"));
  bar->setMovable(false);
  bar->setToolButtonStyle(Qt::ToolButtonTextBesideIcon);
  // Its menu could hide the tool bar, and nothing would bring it back.
  bar->setContextMenuPolicy(Qt::PreventContextMenu);
  panelAction_ = bar->addAction(panelIcon({}), tr("Messages"));
  panelAction_->setCheckable(true);
  connect(panelAction_, &QAction::triggered, this, &WindowMenus::togglePanel);
  connect(menus_.action(QStringLiteral("panel open")), &QAction::triggered, panes_.panel,
          [this] { panes_.panel->focusWhenOpen(); });
  bar->addActions({layout_.conversationDock().toggleViewAction(),
                   layout_.notificationsDock().toggleViewAction(),
                   layout_.logDock().toggleViewAction(), layout_.historyDock().toggleViewAction(),
                   layout_.peopleDock().toggleViewAction(),
                   layout_.happenedDock().toggleViewAction()});
}

void WindowMenus::togglePanel() {
  const bool isOpen = panes_.panel->state().isOpen;
  if (!isOpen) panes_.panel->focusWhenOpen();
  run_(isOpen ? QStringLiteral("panel close") : QStringLiteral("panel open"));
}

void WindowMenus::showPanel(const PanelState& panel) {
  const bool isOtherIcon = panel.icon != panes_.panel->state().icon;
  if (isOtherIcon) panelAction_->setIcon(panelIcon(panel.icon));
  panelAction_->setEnabled(panel.exists);
  panelAction_->setToolTip(panel.exists
                               ? tr("Write to colleagues (Ctrl+M opens, Ctrl+Shift+M closes)")
                               : tr("The plug-in of this station offers no messages."));
  panelAction_->setChecked(panel.isOpen);
}

void WindowMenus::buildViewMenu() {
  const QString view = QStringLiteral("View");
  QAction* const log = layout_.logDock().toggleViewAction();
  QAction* const notifications = layout_.notificationsDock().toggleViewAction();
  log->setShortcut(QKeySequence(QStringLiteral("Ctrl+Alt+L")));
  QAction* const history = layout_.historyDock().toggleViewAction();
  notifications->setShortcut(QKeySequence(QStringLiteral("Ctrl+Alt+N")));
  history->setShortcut(QKeySequence(QStringLiteral("Ctrl+H")));
  QAction* const people = layout_.peopleDock().toggleViewAction();
  people->setShortcut(QKeySequence(QStringLiteral("Ctrl+Alt+P")));
  QAction* const conversation = layout_.conversationDock().toggleViewAction();
  conversation->setShortcut(QKeySequence(QStringLiteral("Ctrl+Alt+C")));
  QAction* const happened = layout_.happenedDock().toggleViewAction();
  happened->setShortcut(QKeySequence(QStringLiteral("Ctrl+Alt+H")));
  menus_.menu(view).addActions({notifications, log, history, people, conversation, happened});
  menus_.menu(view).addSeparator();
  for (int i = 0; i < static_cast<int>(kObjectKinds); ++i) {
    const QString title = ObjectsModel::titleOf(static_cast<ObjectKind>(i));
    menus_.add(view, title, QStringLiteral("Ctrl+%1").arg(i + 1), [this, i] {
      panes_.objects->setKind(static_cast<ObjectKind>(i));
      panes_.objects->view(static_cast<ObjectKind>(i)).setFocus();
    });
  }
  QMenu* columns = menus_.menu(view).addMenu(tr("Col&umns of the list"));
  connect(columns, &QMenu::aboutToShow, this, [this, columns] {
    columns->clear();
    panes_.objects->offerColumns(*columns);
  });
  menus_.add(view, tr("&Narrow the list"), QStringLiteral("Ctrl+F"),
             [this] { panes_.objects->startSearch(); });
  menus_.add(view, tr("Next &pane"), QStringLiteral("F6"), [this] { layout_.focusNextPane(); });
  MessageBar& news = panes_.detail->changeBar();
  QAction& show = menus_.add(view, tr("Show another station's &change"), QStringLiteral("F7"),
                             [&news] { Q_EMIT news.acted(0); });
  const auto allow = [&show](bool isTelling) {
    setAllowed(show,
               isTelling ? QString() : tr("No change of another station's waits to be shown."));
  };
  QObject::connect(&news, &MessageBar::tells, &show, allow);
  allow(!news.isHidden());
  DetailPane& detail = *panes_.detail;
  QAction& follow =
      menus_.add(view, tr("&Follow others' changes"), QStringLiteral("Ctrl+F7"),
                 [&detail] { detail.isFollowing() ? detail.unfollow() : detail.follow(); });
  follow.setCheckable(true);
  const auto showFollowing = [&follow, &detail] {
    follow.setChecked(detail.isFollowing());
    setAllowed(follow, detail.isFollowing() ? QString() : detail.whyNotFollow());
  };
  connect(&detail, &DetailPane::followingChanged, &follow, showFollowing);
  showFollowing();
  seenAction_ = &menus_.add(view, tr("&Mark all news as seen"), QStringLiteral("Shift+F7"), [this] {
    panes_.objects->markAllSeen();
    MessageBar& change = panes_.detail->changeBar();
    if (change.isVisible()) Q_EMIT change.acted(0);
    showNews(false);
  });
  menus_.add(view, tr("&Look again"), QStringLiteral("F5"), [this] { Q_EMIT lookWanted(); });
  menus_.menu(view).addSeparator();
}

void WindowMenus::showNews(bool hasNews) {
  setAllowed(*seenAction_, hasNews ? QString() : tr("Nothing here is new or changed."));
}

void WindowMenus::buildAppearanceMenu() {
  auto* group = new QActionGroup(this);
  QMenu* appearance = menus_.menu(QStringLiteral("View")).addMenu(tr("&Appearance"));
  const QString now = windowSettings().value(QStringLiteral("appearance")).toString();
  for (const Appearance each : {Appearance::eSystem, Appearance::eLight, Appearance::eDark}) {
    const QStringList texts{tr("As the &desktop"), tr("&Light"), tr("Dar&k")};
    QAction* action = appearance->addAction(texts[static_cast<int>(each)]);
    action->setCheckable(true);
    action->setChecked(appearanceNamed(now) == each);
    group->addAction(action);
    connect(action, &QAction::triggered, this,
            [this, each] { chooseAppearance(appearanceName(each)); });
  }
}

void WindowMenus::buildNoticeSetting() {
  QAction& wanted = menus_.add(QStringLiteral("View"), tr("Notify on the &desktop"), {}, [] {
    windowSettings().setValue(QStringLiteral("desktopNotices"), !wantsDesktopNotices());
  });
  wanted.setCheckable(true);
  wanted.setChecked(wantsDesktopNotices());
  setAllowed(wanted,
             DesktopNotices::isPossible() ? QString() : tr("No desktop takes notices here."));
}

namespace {

/// The page for editors: where it is installed, else among the sources that this was built from.
/// Empty where neither is there.
QString guideFile() {
  const QDir programs(QApplication::applicationDirPath());
  for (const char* folder : {"../share/doc/project-share/docs", "../../../docs"}) {
    const QString file =
        programs.absoluteFilePath(QLatin1String(folder) + QLatin1String("/guide.md"));
    if (QFileInfo::exists(file)) return QDir::cleanPath(file);
  }
  return {};
}

}  // namespace

void WindowMenus::openGuide() {
  const QString file = guideFile();
  if (!file.isEmpty() && QDesktopServices::openUrl(QUrl::fromLocalFile(file))) return;
  panes_.messages->tell(
      MessageBar::Kind::eNote,
      file.isEmpty() ? tr("The guide is not installed here.")
                     : tr("No program of this desktop opens the guide. It is in %1").arg(file));
}

void WindowMenus::buildHelpMenu() {
  const QString help = QStringLiteral("Help");
  menus_.add(help, tr("&Guide"), {}, [this] { openGuide(); });
  menus_.add(help, tr("&Run a command…"), QStringLiteral("Ctrl+K"),
             [this] { askLine(window_, [this](const QString& line) { run_(line); }); });
  menus_.add(help, tr("&Shortcuts"), QStringLiteral("F1"),
             [this] { showTable(window_, tr("Shortcuts"), menus_.shortcutText()); });
  menus_.add(help, tr("&Commands"), QString(), [this] { run_(QStringLiteral("help")); });
}

// Icons keep the colours in which they were drawn, so they are made anew. An empty name means the
// remembered appearance.
void WindowMenus::chooseAppearance(const QString& name) {
  QSettings kept = windowSettings();
  const QString key = QStringLiteral("appearance");
  if (!name.isEmpty()) kept.setValue(key, name);
  applyAppearance(appearanceNamed(kept.value(key).toString()));
  layout_.notificationsDock().toggleViewAction()->setIcon(icon(Glyph::eBell, colours().text));
  layout_.logDock().toggleViewAction()->setIcon(icon(Glyph::eLog, colours().text));
  layout_.historyDock().toggleViewAction()->setIcon(icon(Glyph::eBusy, colours().text));
  layout_.peopleDock().toggleViewAction()->setIcon(icon(Glyph::ePeople, colours().text));
  layout_.conversationDock().toggleViewAction()->setIcon(icon(Glyph::eMessage, colours().text));
  layout_.happenedDock().toggleViewAction()->setIcon(icon(Glyph::eChanged, colours().text));
}

}  // namespace korvel
