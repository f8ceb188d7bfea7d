#include "app/window/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QMimeData>
#include <QTreeView>
#include <QUrl>
#include <algorithm>
#include <cstdlib>

#include "app/window/ActionRunner.h"
#include "app/window/ActionTable.h"
#include "app/window/AskBar.h"
#include "app/window/DetailPane.h"
#include "app/window/Dialogs.h"
#include "app/window/EventPanes.h"
#include "app/window/HistoryPane.h"
#include "app/window/Menus.h"
#include "app/window/MessageBar.h"
#include "app/window/ObjectsPane.h"
#include "app/window/PeoplePane.h"
#include "app/window/PreferencesDialog.h"
#include "app/window/ProjectsPane.h"
#include "app/window/StatusLine.h"
#include "app/window/TalkPanes.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"

namespace korvel {

namespace {

/// The exit status when the user ends the program before it has returned its locks.
constexpr int kEndedAtOnce = 1;

/// The setting that says until when this user has read what was said.
QString seenKey(const Snapshot& snapshot) { return QStringLiteral("seen/") + snapshot.user; }

/// Whether the keyboard is in the window or one of its dialogs.
bool isInFront(const QWidget& window) {
  const QWidget* active = QApplication::activeWindow();
  while (active && active != &window) active = active->parentWidget();
  return active != nullptr;
}

/// The names of the objects in a bin or rack; for other objects their details.
QString contentText(const ObjectRow& row, ObjectKind kind, const ObjectsPane& objects) {
  if (kind == ObjectKind::eFilters) {
    const QStringList found = objects.namesWith(row.detail);
    return (QStringList(MainWindow::tr("Finds: %1").arg(row.detail)) + found)
        .join(QLatin1Char('\n'));
  }
  if (kind == ObjectKind::eMedia) {
    return row.extra.isEmpty()
               ? row.detail
               : row.detail + QLatin1Char('\n') + MainWindow::tr("Proxy of %1").arg(row.extra);
  }
  if (row.contents.isEmpty()) return MainWindow::tr("It is empty.");
  QStringList lines;
  for (const QString& cookie : row.contents) {
    const auto object = objects.find(cookie);
    lines.append(object ? object->name
                        : MainWindow::tr("%1 (not in the project any more)").arg(cookie));
  }
  return lines.join(QLatin1Char('\n'));
}

WindowPanes makePanes() {
  return {new ProjectsPane,
          new ObjectsPane,
          new DetailPane,
          new HistoryPane,
          new MessageBar(QStringLiteral("messages")),
          new MessageBar(QStringLiteral("strip")),
          new MessageBar(QStringLiteral("recovery")),
          new MessageBar(QStringLiteral("asks")),
          new MessageBar(QStringLiteral("answers")),
          new StatusLine,
          new PanelDock,
          new LogPane,
          new NotificationsPane,
          new PeoplePane,
          new ConversationPane,
          new HappenedPane};
}

}  // namespace

MainWindow::MainWindow(HostLink& link)
    : link_(link),
      panes_(makePanes()),
      layout_(std::make_unique<WindowLayout>(*this, panes_)),
      actions_(std::make_unique<ActionRunner>(*this, link_, panes_)),
      outcomes_(std::make_unique<OutcomeTeller>(*this, link_, panes_)),
      menus_(std::make_unique<MainMenus>(
          *this, [this](const ActionSpec& action) { actions_->run(action); })),
      ownMenus_(
          std::make_unique<WindowMenus>(*this, *menus_, panes_, *layout_,
                                        [this](const QString& line) { actions_->runLine(line); })),
      asking_(std::make_unique<AskTeller>(
          *this, *panes_.asks, *panes_.answers,
          [this](const QString& line, const AskTeller::Ended& then) {
            link_.run(line, [then](const CommandOutcome& outcome) { then(outcome.succeeded); });
          })) {
  setObjectName(QStringLiteral("mainWindow"));
  setWindowTitle(tr("Station"));
  setAcceptDrops(true);
  setStatusBar(panes_.status);
  menus_->bindKey(QStringLiteral("edit delete {objects}"), objects().view(ObjectKind::eEdits));
  menus_->bindKey(QStringLiteral("bin destroy {object}"), objects().view(ObjectKind::eBins));
  menus_->bindKey(QStringLiteral("rack destroy {object}"), objects().view(ObjectKind::eRacks));
  menus_->bindKey(QStringLiteral("filter destroy {object}"), objects().view(ObjectKind::eFilters));
  for (const char* frame : {"-1f +0f", "+1f +0f", "+0f -1f", "+0f +1f"}) {
    menus_->bindKey(QStringLiteral("edit trim {object} {clip} ") + QLatin1String(frame),
                    detail().view());
  }
  menus_->tellRefusals([this](const QString& why) { outcomes_->tellRefusal(why); });
  connectLink();
  connectObjects();
  connectProjects();
  connectHistory();
  connectPanel();
  connectPeople();
  connectTalk();
  connectHappened();
  connectNotifications();
  addKeepingActions();
  QSettings kept = windowSettings();
  keepsLayout_ = layout_->restore(kept);
  // Tools of the last session need a running plug-in.
  if (keepsLayout_) link_.putBackOnceReady(keptTools(kept));
  layout_->noteSpread();
  addRecentProjects();
  addPreferences();
  enableActions();
}

void MainWindow::addPreferences() {
  const QString station = QStringLiteral("Station");
  menus_->menu(station).addSeparator();
  menus_->add(station, tr("&Preferences…"), QStringLiteral("Ctrl+,"), [this] {
    auto* const dialog = new PreferencesDialog(link_.options(), this);
    connect(dialog, &PreferencesDialog::kept, this, [this] {
      messages().tell(MessageBar::Kind::eNote, tr("Kept. It takes effect at the next start."));
    });
    dialog->open();
  });
}

void MainWindow::addRecentProjects() {
  QMenu& project = menus_->menu(QStringLiteral("Project"));
  auto* const offered = new QMenu(tr("Re&cent projects"), &project);
  // Beside the entry that opens the chosen one.
  project.insertMenu(project.actions().at(3), offered);
  const Options& options = link_.options();
  const bool goesOn = keepsLayout_ && options.script.empty();
  recent_ = std::make_unique<RecentProjects>(
      *offered, readableText(options.station.projectsDirectory),
      goesOn ? RecentProjects::Start::eWhereItWas : RecentProjects::Start::eAfresh);
  connect(recent_.get(), &RecentProjects::projectWanted, this, [this](const QString& cookie) {
    actions_->runLine(QStringLiteral("project enter ") + quoted(cookie));
  });
  connect(recent_.get(), &RecentProjects::editWanted, this,
          [this](const QString& cookie) { objects().choose(ObjectKind::eEdits, cookie); });
  connect(recent_.get(), &RecentProjects::lastIsGone, this, [this](const QString& name) {
    messages().tell(MessageBar::Kind::eNote,
                    tr("\"%1\", which was open last, is not there any more.").arg(oneLine(name)));
  });
}

void MainWindow::addKeepingActions() {
  trashAction_ = &menus_->add(QStringLiteral("Project"), tr("T&rash…"),
                              QStringLiteral("Ctrl+Shift+T"), [this] { actions_->showTrash(); });
  QMenu& project = menus_->menu(QStringLiteral("Project"));
  // Quitting stays last, below its line.
  project.insertAction(project.actions().at(project.actions().size() - 3), trashAction_);
  const QString edit = QStringLiteral("Edit");
  undoAction_ = &menus_->add(edit, tr("Undo"), QStringLiteral("Ctrl+Z"),
                             [this] { link_.run(QStringLiteral("undo")); });
  redoAction_ = &menus_->add(edit, tr("Redo"), QStringLiteral("Ctrl+Shift+Z"),
                             [this] { link_.run(QStringLiteral("redo")); });
  QMenu& menu = menus_->menu(edit);
  menu.insertActions(menu.actions().front(), {undoAction_, redoAction_});
  menu.insertSeparator(menu.actions().at(2));
  for (QAction* action : {trashAction_, undoAction_, redoAction_}) action->setEnabled(false);
}

void MainWindow::showSteps() {
  const auto show = [](QAction& action, const QString& step, const QString& none,
                       const QString& whyNot) {
    action.setText(step.isEmpty() ? none : menuText(step));
    setAllowed(action, step.isEmpty() ? whyNot : QString());
  };
  show(*undoAction_, snapshot_->undo, tr("Undo"), tr("There is nothing to undo."));
  show(*redoAction_, snapshot_->redo, tr("Redo"), tr("There is nothing to redo."));
}

// Members are destroyed before the panes, which are children of this widget: their signals must not
// arrive any more.
MainWindow::~MainWindow() {
  for (QObject* pane : findChildren<QWidget*>()) pane->disconnect(this);
}

void MainWindow::connectLink() {
  connect(&link_, &HostLink::snapshotReady, this, &MainWindow::takeSnapshot);
  connect(&link_, &HostLink::newsReady, this, &MainWindow::takeNews);
  connect(&link_, &HostLink::finished, outcomes_.get(), &OutcomeTeller::take);
  connect(&link_, &HostLink::finished, &actions_->guard(), &UnsavedGuard::takeOutcome);
  connect(&link_, &HostLink::finished, actions_.get(), &ActionRunner::takeOutcome);
  // Its question says more than what the window said while it looked.
  connect(&actions_->guard(), &UnsavedGuard::asking, &messages(), [this] {
    if (isEnding_) messages().hide();
  });
  connect(&actions_->guard(), &UnsavedGuard::refused, this,
          [this](const QString& why) { messages().tell(MessageBar::Kind::eError, why); });
  connect(&link_, &HostLink::busyChanged, panes_.status, &StatusLine::showBusy);
  connect(&link_, &HostLink::timelineReady, panes_.detail, &DetailPane::takeTimeline);
  connect(&link_, &HostLink::mayReady, this, [this](const QHash<QString, bool>& answers) {
    objects().takeAnswers(answers);
    enableActions();
  });
  connect(ownMenus_.get(), &WindowMenus::lookWanted, &link_, &HostLink::lookAgain);
  connect(actions_.get(), &ActionRunner::done, outcomes_.get(), &OutcomeTeller::tellUndoably);
  connect(outcomes_.get(), &OutcomeTeller::wordsWanted, actions_.get(),
          &ActionRunner::askWithWords);
  connect(actions_.get(), &ActionRunner::told, this,
          [this](const QString& what) { messages().tell(MessageBar::Kind::eNote, what); });
}

void MainWindow::connectObjects() {
  connect(panes_.objects, &ObjectsPane::mayWanted, &link_, &HostLink::askMay);
  connect(panes_.objects, &ObjectsPane::choiceChanged, this, &MainWindow::showChoice);
  connect(panes_.objects, &ObjectsPane::opened, actions_.get(), &ActionRunner::open);
  connect(panes_.objects, &ObjectsPane::dropped, actions_.get(), &ActionRunner::putInto);
  connect(panes_.objects, &ObjectsPane::menuWanted, this, [this](const QPoint& at) {
    const Target kinds[] = {Target::eEdit, Target::eBin, Target::eRack, Target::eFilter,
                            Target::eMedia};
    menus_->popUp({kinds[static_cast<int>(objects().kind())], Target::eObject}, at);
  });
  connect(&detail().view(), &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
    menus_->popUp({Target::eClip, Target::eEdit}, detail().view().mapToGlobal(at));
  });
  connect(&detail().view(), &TimelineView::choiceChanged, this, &MainWindow::enableActions);
  connect(&detail().view(), &TimelineView::trimmed, actions_.get(), &ActionRunner::trim);
  connect(&detail().view(), &TimelineView::trimRefused, this,
          [this](const QString& why) { messages().tell(MessageBar::Kind::eNote, why); });
  connect(panes_.detail, &DetailPane::timelineWanted, this,
          [this](const QString& cookie, const QString& version) {
            version.isEmpty() ? link_.askTimeline(cookie) : link_.askVersion(cookie, version);
          });
  connect(panes_.detail, &DetailPane::openWanted, this, [this](const QString& cookie) {
    link_.run(QStringLiteral("edit open ") + quoted(cookie));
  });
  connect(panes_.detail, &DetailPane::seen, this, [this](const QString& key) {
    history().showNow();
    objects().markSeen(key);
  });
}

void MainWindow::connectHistory() {
  connect(&link_, &HostLink::versionsReady, panes_.history, &HistoryPane::takeVersions);
  connect(&link_, &HostLink::timelineReady, panes_.history, &HistoryPane::takeTimeline);
  connect(&link_, &HostLink::finished, this, [this](const CommandOutcome& outcome) {
    const bool isStep =
        outcome.command == QLatin1String("undo") || outcome.command == QLatin1String("redo");
    if (isStep || outcome.command.startsWith(QLatin1String("edit "))) history().refresh();
  });
  connect(panes_.history, &HistoryPane::versionsWanted, &link_, &HostLink::askVersions);
  connect(panes_.history, &HistoryPane::versionChosen, this,
          [this](const std::optional<VersionRow>& version) {
            detail().showVersion(version ? version->version : QString(),
                                 version ? versionTitle(*version) : QString());
          });
  connect(panes_.history, &HistoryPane::restoreWanted, actions_.get(), &ActionRunner::restore);
  connect(actions_.get(), &ActionRunner::done, panes_.history, &HistoryPane::showNow);
}

void MainWindow::connectProjects() {
  connect(panes_.projects, &ProjectsPane::choiceChanged, this, &MainWindow::enableActions);
  connect(panes_.projects, &ProjectsPane::projectOpened, this, [this](const ProjectRow& project) {
    actions_->runLine(QStringLiteral("project enter ") + quoted(project.cookie));
  });
  connect(panes_.projects, &ProjectsPane::roomOpened, this, [this](const RoomRow& room) {
    actions_->runLine(QStringLiteral("room enter ") + quoted(room.name));
  });
  connect(panes_.projects, &ProjectsPane::projectMenuWanted, this,
          [this](const QPoint& at) { menus_->popUp({Target::eProject}, at); });
  connect(panes_.projects, &ProjectsPane::roomMenuWanted, this, [this](const QPoint& at) {
    menus_->popUp({Target::eRoom, Target::eSharedProject}, at);
  });
}

void MainWindow::connectPanel() {
  connect(panes_.panel, &PanelDock::closeWanted, this,
          [this] { link_.run(QStringLiteral("panel close")); });
  connect(panes_.panel, &PanelDock::recipientChosen, this, [this](const QString& recipient) {
    link_.run(QStringLiteral("panel to ") + quoted(recipient));
  });
  connect(panes_.panel, &PanelDock::sent, this,
          [this](const QString& recipient, const QString& text) {
            link_.run(QStringLiteral("say %1 %2").arg(quoted(recipient), quoted(text)));
          });
}

void MainWindow::connectPeople() {
  connect(panes_.people, &PeoplePane::writeWanted, this, &MainWindow::writeTo);
  connect(panes_.people, &PeoplePane::editWanted, this,
          [this](const QString& cookie) { goTo(ObjectKind::eEdits, cookie); });
}

void MainWindow::goTo(ObjectKind kind, const QString& key) {
  objects().choose(kind, key);
  objects().view(kind).setFocus(Qt::OtherFocusReason);
}

namespace {

ObjectKind kindNamed(const QString& what) {
  if (what == QLatin1String("bin")) return ObjectKind::eBins;
  if (what == QLatin1String("rack")) return ObjectKind::eRacks;
  if (what == QLatin1String("filter")) return ObjectKind::eFilters;
  return what == QLatin1String("media") ? ObjectKind::eMedia : ObjectKind::eEdits;
}

}  // namespace

void MainWindow::connectHappened() {
  connect(panes_.happened, &HappenedPane::objectWanted, this,
          [this](const QString& what, const QString& cookie) {
            const ObjectRows& rows = objects().rows(kindNamed(what));
            const auto row = std::ranges::find(rows, cookie, &ObjectRow::cookie);
            if (row != rows.end()) return goTo(kindNamed(what), row->key);
            messages().tell(MessageBar::Kind::eNote, tr("It is not in the project any more."));
          });
}

void MainWindow::writeTo(const QString& user) {
  panel().focusWhenOpen();
  QStringList lines{QStringLiteral("panel open")};
  if (!user.isEmpty()) lines << QStringLiteral("panel to ") + quoted(user);
  link_.runAll(lines, [](const CommandOutcome&) {});
}

// The same words are in the conversation and among the notifications: who looks at one of them has
// seen both.
void MainWindow::connectTalk() {
  asksAction_ = &menus_->add(QStringLiteral("Messages"), tr("&Asks that wait…"), QString(),
                             [this] { asking_->showAll(); });
  connect(panes_.conversation, &ConversationPane::writeWanted, this, &MainWindow::writeTo);
  connect(panes_.conversation, &ConversationPane::unreadChanged, this, [this](int count) {
    const QString title = tr("Conversation");
    layout_->conversationDock().setWindowTitle(
        count == 0 ? title : QStringLiteral("%1 (%L2)").arg(title).arg(count));
    if (count == 0) notifications().takeLook();
    showTitle();
  });
  connect(panes_.notifications, &NotificationsPane::unreadChanged, this, [this](int count) {
    if (count == 0) conversation().takeLook();
  });
  connect(panes_.conversation, &ConversationPane::seen, this, [this](const QDateTime& until) {
    if (snapshot_) windowSettings().setValue(seenKey(*snapshot_), until);
  });
  connect(asking_.get(), &AskTeller::openWanted, this, &MainWindow::open);
}

// Who asked may have gone on to another project since.
void MainWindow::open(const AskAnswer& given) {
  const bool isElsewhere =
      snapshot_ && !given.project.isEmpty() && snapshot_->project.cookie != given.project;
  if (!isElsewhere) return openHere(given);
  const bool isProject = given.kind == QLatin1String("project");
  actions_->runLine(QStringLiteral("project enter ") + quoted(given.project),
                    [this, given, isProject](const CommandOutcome& outcome) {
                      if (outcome.succeeded && !isProject) openHere(given);
                    });
}

void MainWindow::openHere(const AskAnswer& given) {
  const QString word = quoted(given.object);
  if (given.kind == QLatin1String("room"))
    return actions_->runLine(QStringLiteral("room enter ") + word);
  if (given.kind == QLatin1String("project"))
    return actions_->runLine(QStringLiteral("project enter ") + word);
  outcomes_->chooseSoon(given.object);
  link_.run(QStringLiteral("edit open ") + word);
}

void MainWindow::connectNotifications() {
  const auto showAll = [this] {
    strip().hide();
    layout_->showNotifications();
    notifications().chooseLatest();
  };
  connect(panes_.strip, &MessageBar::acted, this, showAll);
  connect(panes_.panel, &PanelDock::notificationsWanted, this, showAll);
  connect(panes_.notifications, &NotificationsPane::unreadChanged, this, [this](int count) {
    const QString title = tr("Notifications");
    layout_->notificationsDock().setWindowTitle(
        count == 0 ? title : QStringLiteral("%1 (%L2)").arg(title).arg(count));
    if (count == 0) strip().hide();
    panel().showUnread(count);
  });
  connect(panes_.notifications, &NotificationsPane::wholeWanted, this,
          [this](const QString& title, const QString& text) { showWholeText(*this, title, text); });
}

/// "(3) Harbour - Station": how much was said that nobody has looked at.
void MainWindow::showTitle() {
  const int unread = conversation().unread();
  const QString count = unread == 0 ? QString() : QStringLiteral("(%L1) ").arg(unread);
  const QString project = snapshot_ ? snapshot_->project.name : QString();
  setWindowTitle(count +
                 (project.isEmpty() ? tr("Station") : tr("%1 - Station").arg(plainTitle(project))));
}

void MainWindow::takeSnapshot(const SnapshotPtr& snapshot) {
  if (!snapshot_) {
    link_.askConversation([this](const std::vector<SaidLine>& said) {
      conversation().load(said, windowSettings().value(seenKey(*snapshot_)).toDateTime());
    });
    link_.askAdviceOnNames([this](const QString& advice) {
      if (!advice.isEmpty()) messages().tell(MessageBar::Kind::eNote, advice);
    });
  }
  if (!snapshot_ || snapshot_->project.cookie != snapshot->project.cookie) {
    link_.askHappened([this](const std::vector<HappenedLine>& lines, long first) {
      happened().load(lines, first);
    });
  }
  snapshot_ = snapshot;
  actions_->takeSnapshot(snapshot);
  actions_->guard().takeSnapshot(snapshot);
  const bool hadFocus = focusWidget() && objects().isAncestorOf(focusWidget());
  projects().show(*snapshot);
  objects().show(*snapshot);
  // A list that goes takes the keyboard with it, to a place that shows no focus.
  if (hadFocus && snapshot->project.cookie.isEmpty()) projects().projects().setFocus();
  if (snapshot->panel) {
    ownMenus_->showPanel(*snapshot->panel);
    panel().show(*snapshot->panel);
  }
  showSteps();
  status().showPresence(snapshot->presence);
  people().show(*snapshot);
  asking_->takeSnapshot(*snapshot);
  showTitle();
  // After the lists have the new rows.
  outcomes_->chooseMade();
  outcomes_->takeSnapshot(*snapshot);
  const auto chosen = objects().chosen();
  if (!chosen.empty() && chosen.front().key == detail().key())
    detail().update(chosen.front(), contentText(chosen.front(), objects().kind(), objects()));
  showHistory();
  enableActions();
  if (keepsLayout_ && !isEnding_) recent_->takeSnapshot(*snapshot);
}

void MainWindow::takeNews(const News& news) {
  status().showNews(news);
  actions_->takeUser(news.station.user);
  actions_->guard().takeUser(news.station.user);
  received_ = news.received;
  std::vector<LogLine> lines = news.lines;
  for (LogLine& line : lines) {
    if (line.kind == LogLine::Kind::eText) line.text = inWindowWords(line.text);
  }
  log().append(lines);
  notifications().add(news.notifications);
  conversation().add(news.said);
  happened().add(news.happened);
  asking_->takeAnswers(news.answers);
  if (!news.answers.empty()) outcomes_->dropAskedNote();
  tellDesktop(news);
  // Network problems are also shown in the bar: the log may be hidden.
  for (const LogLine& line : news.lines) {
    if (line.kind == LogLine::Kind::eNetwork) outcomes_->tellOfSending(line.text);
  }
  if (!news.notifications.empty() || !news.answers.empty()) QApplication::alert(this);
  if (news.notifications.empty()) return;
  const auto& latest = news.notifications;
  const auto words =
      std::ranges::find(latest.rbegin(), latest.rend(), false, &NotificationLine::isAsking);
  if (words != latest.rend()) tellOfWords(*words);
}

// A visible list shows new notifications itself.
void MainWindow::tellOfWords(const NotificationLine& latest) {
  if (notifications().isVisible()) return;
  const int unread = notifications().unread();
  const QString words =
      clockTime(latest.time.time()) + QStringLiteral("  ") + notificationText(latest);
  strip().tell(MessageBar::Kind::eNote,
               unread > 1 ? tr("%Ln unread, the latest:  %1", nullptr, unread).arg(words) : words);
  strip().offer({unread > 1 ? tr("All %L1").arg(unread) : tr("All")});
}

// Who looks at the window needs no notice of the desktop.
void MainWindow::tellDesktop(const News& news) {
  constexpr qsizetype kLongestNoticed = 300;
  if (isInFront(*this) || !wantsDesktopNotices() || !DesktopNotices::isPossible()) return;
  // Nobody says that something is free: it stands in no conversation.
  for (const AskAnswer& each : news.answers) {
    if (each.isFree) notices_.tell(personName(each.name), oneLine(each.words));
  }
  const auto words =
      std::ranges::find(news.said.rbegin(), news.said.rend(), false, &SaidLine::isOwn);
  if (words == news.said.rend()) return;
  const int unread = conversation().unread();
  const QString who = personName(words->from);
  notices_.tell(unread > 1 ? tr("%1 (%n unread)", nullptr, unread).arg(who) : who,
                oneLine(words->text.left(kLongestNoticed)));
}

void MainWindow::showChoice() {
  const auto chosen = objects().chosen();
  const ObjectKind kind = objects().kind();
  happened().setChosen(chosen.empty() ? QString() : chosen.front().cookie);
  if (chosen.empty()) {
    detail().choose(std::nullopt, kind, {});
  } else if (chosen.front().key != detail().key()) {
    // A row that the program chose has not been seen by the user.
    if (!objects().isChoosing()) objects().markSeen(chosen.front().key);
    detail().choose(chosen.front(), kind, contentText(chosen.front(), kind, objects()));
  }
  showHistory();
  enableActions();
}

void MainWindow::showHistory() {
  const auto chosen = objects().chosen();
  const bool isEdit = objects().kind() == ObjectKind::eEdits && !chosen.empty();
  if (isEdit && recent_) recent_->noteEdit(chosen.front().cookie);
  history().showEdit(isEdit ? std::optional(chosen.front()) : std::nullopt);
}

void MainWindow::enableActions() {
  history().setRefusal(actions_->whyNotRestore());
  detail().view().setTrimRefusal(actions_->whyNotTrim());
  menus_->enable([this](const ActionSpec& action) { return actions_->whyNot(action); });
  ownMenus_->showNews(objects().hasNews());
  setAllowed(*trashAction_, actions_->whatLacks(Target::eOpenProject));
}

void MainWindow::keepLayout() const {
  if (!keepsLayout_) return;
  QSettings kept = windowSettings();
  layout_->save(kept);
  if (snapshot_) keepTools(kept, snapshot_->tools);
}

// Finding unsaved changes and leaving the project may take as long as the share does. The window
// stays open and says so. Closing it a second time ends the process at once; the system then frees
// its locks.
void MainWindow::closeEvent(QCloseEvent* event) {
  event->ignore();
  keepLayout();
  if (isEnding_) std::_Exit(kEndedAtOnce);
  isEnding_ = true;
  messages().tell(MessageBar::Kind::eNote,
                  tr("Looking for unsaved changes. Close the window again to end at "
                     "once; they are then offered at the next start."));
  actions_->guard().before(
      tr("Close the window"), [this] { end(); },
      [this, looking = messages().text()] {
        isEnding_ = false;
        // Why it cannot be saved stays to be read.
        if (messages().text() == looking) messages().hide();
      });
}

namespace {

QStringList localFiles(const QMimeData& dropped) {
  QStringList files;
  for (const QUrl& url : dropped.urls()) {
    if (url.isLocalFile()) files << url.toLocalFile();
  }
  return files;
}

}  // namespace

void MainWindow::dragEnterEvent(QDragEnterEvent* event) {
  if (!localFiles(*event->mimeData()).isEmpty()) event->acceptProposedAction();
}

void MainWindow::dropEvent(QDropEvent* event) {
  const QStringList files = localFiles(*event->mimeData());
  if (files.isEmpty()) return;
  event->acceptProposedAction();
  actions_->importFiles(files);
}

void MainWindow::end() {
  centralWidget()->setEnabled(false);
  messages().tell(MessageBar::Kind::eNote,
                  tr("Leaving the project. Close the window again to end at once."));
  link_.askForEnd();
}

void MainWindow::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) {
    MessageBar& bar = messages().isVisible() ? messages() : strip();
    bar.hide();
  }
  QMainWindow::keyPressEvent(event);
}

}  // namespace korvel
