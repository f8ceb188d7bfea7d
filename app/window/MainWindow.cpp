#include "app/window/MainWindow.h"

#include <QApplication>
#include <QCloseEvent>
#include <QKeyEvent>
#include <QTreeView>
#include <cstdlib>

#include "app/commands/CommandCall.h"
#include "app/commands/MessageAdvice.h"
#include "app/window/Appearance.h"
#include "app/window/DetailPane.h"
#include "app/window/LogPane.h"
#include "app/window/MessageBar.h"
#include "app/window/NotificationsPane.h"
#include "app/window/ObjectsPane.h"
#include "app/window/PanelDock.h"
#include "app/window/ProjectsPane.h"
#include "app/window/StatusLine.h"
#include "app/window/Texts.h"

namespace korvel {

namespace {

/// The status of a program that its user ended although it had not given its locks back.
constexpr int kEndedAtOnce = 1;

/// The names of what a bin or rack holds, or what else there is to say of an object.
QString contentText(const ObjectRow& row, ObjectKind kind, const ObjectsPane& objects) {
  if (kind == ObjectKind::eFilters) return QStringLiteral("Finds: ") + row.detail;
  if (kind == ObjectKind::eMedia) {
    return row.extra.isEmpty() ? row.detail
                               : row.detail + QStringLiteral("\nProxy of ") + row.extra;
  }
  if (row.contents.isEmpty()) return QStringLiteral("It is empty.");
  QStringList lines;
  for (const QString& cookie : row.contents) {
    const auto object = objects.find(cookie);
    lines.append(object ? object->name : cookie + QStringLiteral(" (not in the project any more)"));
  }
  return lines.join(QLatin1Char('\n'));
}

}  // namespace

MainWindow::MainWindow(HostLink& link)
    : link_(link),
      projects_(new ProjectsPane),
      objects_(new ObjectsPane),
      detail_(new DetailPane),
      messages_(new MessageBar(QStringLiteral("messages"))),
      strip_(new MessageBar(QStringLiteral("strip"))),
      status_(new StatusLine),
      panel_(new PanelDock),
      log_(new LogPane),
      notifications_(new NotificationsPane) {
  setObjectName(QStringLiteral("mainWindow"));
  setWindowTitle(QStringLiteral("Station"));
  chooseAppearance({});
  buildPanes();
  buildDocks();
  buildMenus();
  setStatusBar(status_);
  connectLink();
  connectPanes();
  restoreLayout();
  spread_ = saveState();
  enableActions();
}

MainWindow::~MainWindow() = default;

void MainWindow::connectLink() {
  connect(&link_, &HostLink::snapshotReady, this, &MainWindow::takeSnapshot);
  connect(&link_, &HostLink::newsReady, this, &MainWindow::takeNews);
  connect(&link_, &HostLink::finished, this, &MainWindow::takeOutcome);
  connect(&link_, &HostLink::busyChanged, status_, &StatusLine::showBusy);
  connect(&link_, &HostLink::timelineReady, detail_, &DetailPane::takeTimeline);
  connect(&link_, &HostLink::mayReady, objects_, &ObjectsPane::takeAnswers);
}

void MainWindow::connectPanes() {
  connect(objects_, &ObjectsPane::mayWanted, &link_, &HostLink::askMay);
  connect(objects_, &ObjectsPane::choiceChanged, this, &MainWindow::showChoice);
  connect(objects_, &ObjectsPane::opened, this, [this](const ObjectRow& row) {
    if (objects_->kind() == ObjectKind::eEdits) {
      link_.run(QStringLiteral("edit open ") + quoted(row.cookie));
    }
  });
  connect(objects_, &ObjectsPane::menuWanted, this, [this](const QPoint& at) {
    const Target kinds[] = {Target::eEdit, Target::eBin, Target::eRack, Target::eFilter,
                            Target::eMedia};
    menus_->popUp({kinds[static_cast<int>(objects_->kind())], Target::eObject}, at);
  });
  connect(&detail_->view(), &QWidget::customContextMenuRequested, this, [this](const QPoint& at) {
    menus_->popUp({Target::eEdit}, detail_->view().mapToGlobal(at));
  });
  connect(detail_, &DetailPane::timelineWanted, &link_, &HostLink::askTimeline);
  connect(detail_, &DetailPane::seen, objects_, &ObjectsPane::markSeen);
  connect(projects_, &ProjectsPane::choiceChanged, this, &MainWindow::enableActions);
  connect(projects_, &ProjectsPane::projectOpened, this, [this](const ProjectRow& project) {
    link_.run(QStringLiteral("project enter ") + quoted(project.cookie));
  });
  connect(projects_, &ProjectsPane::roomOpened, this, [this](const RoomRow& room) {
    link_.run(QStringLiteral("room enter ") + quoted(room.name));
  });
  connect(projects_, &ProjectsPane::projectMenuWanted, this,
          [this](const QPoint& at) { menus_->popUp({Target::eProject}, at); });
  connect(projects_, &ProjectsPane::roomMenuWanted, this, [this](const QPoint& at) {
    menus_->popUp({Target::eRoom, Target::eSharedProject}, at);
  });
  connect(panel_, &PanelDock::closeWanted, this,
          [this] { link_.run(QStringLiteral("panel close")); });
  connect(panel_, &PanelDock::recipientChosen, this, [this](const QString& recipient) {
    link_.run(QStringLiteral("panel to ") + quoted(recipient));
  });
  connect(panel_, &PanelDock::sent, this, [this](const QString& recipient, const QString& text) {
    link_.run(QStringLiteral("say %1 %2").arg(quoted(recipient), quoted(text)));
  });
}

void MainWindow::takeSnapshot(const SnapshotPtr& snapshot) {
  snapshot_ = snapshot;
  projects_->show(*snapshot);
  objects_->show(*snapshot);
  if (snapshot->panel) {
    const bool isOtherIcon = snapshot->panel->icon != panel_->state().icon;
    if (isOtherIcon) panelAction_->setIcon(panelIcon(snapshot->panel->icon));
    panel_->show(*snapshot->panel);
    panelAction_->setEnabled(snapshot->panel->exists);
    panelAction_->setChecked(snapshot->panel->isOpen);
  }
  status_->showActiveUsers(snapshot->activeUsers);
  setWindowTitle(snapshot->project.name.isEmpty()
                     ? QStringLiteral("Station")
                     : plainTitle(snapshot->project.name) + QStringLiteral(" - Station"));
  if (!toChoose_.isEmpty() && objects_->model(ObjectKind::eEdits).rowOf(toChoose_) >= 0) {
    objects_->choose(ObjectKind::eEdits, std::exchange(toChoose_, {}));
  }
  const auto chosen = objects_->chosen();
  if (!chosen.empty() && chosen.front().key == detail_->key()) detail_->update(chosen.front());
  enableActions();
}

void MainWindow::takeNews(const News& news) {
  status_->showNews(news);
  received_ = news.received;
  log_->append(news.lines);
  notifications_->add(news.notifications);
  for (const LogLine& line : news.lines) {
    if (line.kind == LogLine::Kind::eNetwork) tellOfSending(line.text);
  }
  if (!news.notifications.empty()) tellOfWords(news.notifications.back());
}

// Where the list is on the screen, it has them already.
void MainWindow::tellOfWords(const NotificationLine& latest) {
  QApplication::alert(this);
  if (notifications_->isVisible()) return;
  const int unread = notifications_->unread();
  const QString before =
      unread > 1 ? QStringLiteral("%L1 unread, the latest:  ").arg(unread) : QString();
  strip_->tell(
      MessageBar::Kind::eNote,
      before + latest.time.toString(QStringLiteral("HH:mm:ss  ")) + notificationText(latest));
  strip_->offer(unread > 1 ? QStringLiteral("All %L1").arg(unread) : QStringLiteral("All"));
}

// What could not be sent, or not whole, stays told: the command itself went well.
void MainWindow::tellOfSending(const QString& problem) {
  tellsOfSending_ = true;
  messages_->tell(MessageBar::Kind::eChange, problem);
}

// Advice on one message has done its part when the next one needs none.
void MainWindow::tellOfMessage(const CommandOutcome& said) {
  const CommandCall call = readCall(link_.commands(), said.line.toStdString());
  const QString before = std::exchange(advice_, readableText(messageAdvice(call.arguments.back())));
  if (!advice_.isEmpty()) {
    tellOfSending(advice_);
  } else if (!before.isEmpty() && messages_->text() == before) {
    tellsOfSending_ = false;
  }
}

void MainWindow::takeOutcome(const CommandOutcome& outcome) {
  if (!outcome.succeeded) {
    tellsOfSending_ = false;
    messages_->tell(MessageBar::Kind::eError, outcome.text);
    if (outcome.command == QLatin1String("say")) panel_->restoreUnsent();
    return;
  }
  if (outcome.command == QLatin1String("say")) tellOfMessage(outcome);
  if (!tellsOfSending_) messages_->hide();
  const bool makesEdit = outcome.command == QLatin1String("edit create") ||
                         outcome.command == QLatin1String("log create") ||
                         outcome.command == QLatin1String("edit import");
  if (makesEdit) toChoose_ = outcome.text;
  const bool isChange = outcome.command.endsWith(QLatin1String(" create")) || makesEdit ||
                        outcome.command.startsWith(QLatin1String("project enter")) ||
                        outcome.command.endsWith(QLatin1String(" add")) ||
                        outcome.command.endsWith(QLatin1String(" remove"));
  if (!isChange && !outcome.text.isEmpty()) showAnswer(outcome.line, outcome.text);
  const bool isEdit = outcome.command.startsWith(QLatin1String("edit "));
  const auto chosen = objects_->chosen();
  if (isEdit && isChange == false && objects_->kind() == ObjectKind::eEdits && !chosen.empty() &&
      outcome.line.contains(chosen.front().cookie)) {
    link_.askTimeline(chosen.front().cookie);
  }
}

void MainWindow::showChoice() {
  const auto chosen = objects_->chosen();
  const ObjectKind kind = objects_->kind();
  if (chosen.empty()) {
    detail_->choose(std::nullopt, kind, {});
  } else if (chosen.front().key != detail_->key()) {
    if (!objects_->isChoosing()) objects_->markSeen(chosen.front().key);
    detail_->choose(chosen.front(), kind, contentText(chosen.front(), kind, *objects_));
  }
  enableActions();
}

void MainWindow::togglePanel() {
  const bool isOpen = panel_->state().isOpen;
  if (!isOpen) panel_->focusWhenOpen();
  link_.run(isOpen ? QStringLiteral("panel close") : QStringLiteral("panel open"));
}

// Leaving the project may take as long as the share does: the window stays and says so, and a
// second time ends at once. The system frees what this station held then.
void MainWindow::closeEvent(QCloseEvent* event) {
  event->ignore();
  saveLayout();
  if (isEnding_) std::_Exit(kEndedAtOnce);
  isEnding_ = true;
  centralWidget()->setEnabled(false);
  messages_->tell(MessageBar::Kind::eNote,
                  QStringLiteral("Leaving the project. Close the window again to end at once."));
  link_.askForEnd();
}

void MainWindow::resizeEvent(QResizeEvent* event) {
  QMainWindow::resizeEvent(event);
  QMetaObject::invokeMethod(this, &MainWindow::fitDocks, Qt::QueuedConnection);
}

void MainWindow::keyPressEvent(QKeyEvent* event) {
  if (event->key() == Qt::Key_Escape) {
    MessageBar* const bar = messages_->isVisible() ? messages_ : strip_;
    bar->hide();
  }
  QMainWindow::keyPressEvent(event);
}

}  // namespace korvel
