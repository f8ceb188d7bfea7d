#include <gtest/gtest.h>

#include <QAction>
#include <QComboBox>
#include <QDockWidget>
#include <QLineEdit>
#include <QListWidget>
#include <QMenu>
#include <QMenuBar>
#include <QPlainTextEdit>
#include <QRegularExpression>
#include <QTabBar>
#include <QToolButton>
#include <QTreeView>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include "app/commands/Command.h"
#include "app/window/ActionTable.h"
#include "app/window/EventPanes.h"
#include "app/window/MessageBar.h"
#include "app/window/Texts.h"
#include "app/window/WindowLayout.h"
#include "host/ui/GenIcon.h"
#include "station/watch/StationNote.h"
#include "tests/support/BecomesTrue.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

constexpr const char* kHarbour =
    "project create Harbour\n"
    "project enter Harbour\n"
    "edit import " KV_DATA "/otio/transition_test.otio\n";

class WindowTest : public testing::Test, protected WindowScene {};

TEST_F(WindowTest, AnEmptyWindowSaysWhatToDo) {
  EXPECT_EQ(0, play([](MainWindow& window) {
              ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
              EXPECT_TRUE(window.objects().findChild<QWidget*>("empty")->isVisible());
              EXPECT_TRUE(waitFor([&] { return window.status().busyText() == "Ready"; }));
            }));
}

TEST_F(WindowTest, TheStatusLineCountsStationsThatAreHereAndThoseThatAreGone) {
  StationProcess carl(other("CARL"));
  ASSERT_TRUE(carl.waitUntilReady());
  ASSERT_TRUE(carl.command("project create Film")["ok"].asBool());
  // Who dies before he has shown himself leaves nothing that tells of him.
  ASSERT_TRUE(becomesTrue([this] {
    namespace fs = std::filesystem;
    const fs::path notes = notesFolder(folder / "projects");
    return fs::exists(notes) &&
           std::ranges::any_of(fs::directory_iterator(notes), [](const auto& each) {
             return isNoteFile(each.path().filename().string());
           });
  }));
  carl.kill9();
  // Of a station that tells nothing of itself.
  std::ofstream(folder / "projects/DORA.cli").put('\n');
  play([this](MainWindow& window) {
    const auto* const counts = window.status().findChild<ElidedLabel*>("counts");
    const auto ends = [counts](const char* text) {
      return waitFor([=] { return counts->text().endsWith(QLatin1String(text)); });
    };
    EXPECT_TRUE(ends(", 1 here, 1 gone without goodbye, 1 more marked active"))
        << counts->text().toStdString();
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(ben.command("project enter Film")["ok"].asBool());
    EXPECT_TRUE(ends(", 2 here, 1 gone without goodbye, 1 more marked active"))
        << counts->text().toStdString();
    EXPECT_TRUE(waitFor([counts] {
      const QString tip = counts->toolTip();
      return tip.contains("BEN on BEN: here since ") && tip.contains(", in project \"Film\"") &&
             tip.contains("CARL on CARL: gone without goodbye, there since ");
    })) << counts->toolTip().toStdString();
    EXPECT_EQ(ben.quit(), 0);
    EXPECT_TRUE(ends(", 1 here, 1 gone without goodbye, 1 more marked active"));
    StationProcess again(other("CARL"));
    ASSERT_TRUE(again.waitUntilReady());
    EXPECT_TRUE(ends(", 2 here, 1 more marked active")) << counts->text().toStdString();
  });
}

TEST_F(WindowTest, AChosenEditShowsItsTimelineAndWhoMayChangeIt) {
  script = std::string(kHarbour) + "edit create Quay\n";
  play([](MainWindow& window) {
    ObjectsPane& objects = window.objects();
    const auto shows = [&](const QString& name) {
      const TimelinePtr timeline = window.detail().view().timeline();
      return timeline && timeline->cookie == keyOf(window, name);
    };
    ASSERT_TRUE(waitFor([&] { return objects.rows(ObjectKind::eEdits).size() == 2; }));
    EXPECT_TRUE(waitFor([&] { return shows("Quay"); })) << "the first, by itself";
    clickEdit(window, "transition_test");
    ASSERT_TRUE(waitFor([&] { return shows("transition_test"); }));
    EXPECT_FALSE(window.detail().view().timeline()->tracks.empty());
    QTest::keyClick(&objects.view(ObjectKind::eEdits), Qt::Key_Up);
    EXPECT_TRUE(waitFor([&] { return shows("Quay"); }));
    const ObjectsModel& model = objects.model(ObjectKind::eEdits);
    EXPECT_TRUE(waitFor(
        [&] { return model.data(model.index(0, 2), Qt::DisplayRole).toString() == "change it"; }));
  });
}

TEST_F(WindowTest, AnEmptyLineIsSentLikeAnyOther) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    openPanel(window);
    QTest::keyClick(&window.panel().entry(), Qt::Key_Return);
    EXPECT_TRUE(
        waitFor([&] { return window.panel().conversation().toPlainText().contains(" : "); }));
  });
}

TEST_F(WindowTest, WhatIsTypedIntoThePanelIsSentToTheChosenRecipient) {
  script = "user add BEN\n";
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    openPanel(window);
    ASSERT_TRUE(waitFor([&] { return window.panel().recipients().findText("BEN") >= 0; }));
    chooseRecipient(window, "BEN");
    QTest::keyClicks(&window.panel().entry(), "lunch at one?");
    QTest::keyClick(&window.panel().entry(), Qt::Key_Return);
    EXPECT_TRUE(waitFor(
        [&] { return window.panel().conversation().toPlainText().contains(" : lunch at one?"); }));
    EXPECT_TRUE(ben.waitFor("notification", {{"text", "lunch at one?"}}));
    EXPECT_EQ(window.panel().state().recipient, QStringLiteral("BEN"));
    EXPECT_EQ(ben.quit(), 0);
  });
}

TEST_F(WindowTest, ThePanelCollapsesToItsIconAndOpensAnew) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    openPanel(window);
    QTest::keyClick(&window, Qt::Key_M, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(waitFor([&] { return !window.panel().isVisible(); }));
    EXPECT_FALSE(window.snapshot()->panel->isOpen);
    openPanel(window);
    window.panel().close();
    EXPECT_TRUE(waitFor([&] { return !window.panel().isVisible(); }));
  });
}

TEST_F(WindowTest, ThePanelLeftOpenIsThereAgainWhereItWas) {
  const KeptTools left{{"Messager", eExpandedState, 300, 200}};
  QSettings kept = windowSettings();
  keepTools(kept, left);
  play([&](MainWindow& window) {
    EXPECT_TRUE(waitFor([&] { return window.panel().isVisible(); }));
    EXPECT_EQ(window.snapshot()->tools, left);
    EXPECT_EQ(window.panel().conversation().toPlainText(), QString());
    keepTools(kept, {});
  });
  EXPECT_EQ(keptTools(kept), left);
}

/// Opens the message panel and the list of notifications, one below the other.
void showBoth(MainWindow& window) {
  window.resize(1240, 780);
  openPanel(window);
  window.findChild<QDockWidget*>("notificationsDock")->show();
  ASSERT_TRUE(waitFor([&] { return window.notifications().isVisible(); }));
}

TEST_F(WindowTest, AResizedWindowIsNoLookAtTheNotifications) {
  script = kHarbour;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    showBoth(window);
    window.objects().view(ObjectKind::eEdits).setFocus();
    QTest::qWait(200);
    window.notifications().add({{QDateTime::currentDateTime(), "BEN", "tea is ready"}});
    const auto* const dock = window.findChild<QDockWidget*>("notificationsDock");
    EXPECT_EQ(dock->windowTitle(), "Notifications (1)");
    for (const QSize size : {QSize(300, 200), QSize(1200, 760)}) {
      window.resize(size);
      QTest::qWait(300);
      EXPECT_EQ(dock->windowTitle(), "Notifications (1)") << size.width();
    }
    EXPECT_TRUE(window.notifications().isVisible());
    QTest::mouseMove(window.notifications().list().viewport(), QPoint(20, 10));
    EXPECT_EQ(dock->windowTitle(), "Notifications");
  });
}

TEST_F(WindowTest, TheTabThatBringsTheNotificationsToTheFrontIsALook) {
  script = kHarbour;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    showBoth(window);
    window.objects().view(ObjectKind::eEdits).setFocus();
    window.resize(300, 200);
    QTest::qWait(300);
    QTabBar* tabs = nullptr;
    for (QTabBar* each : window.findChildren<QTabBar*>(QString(), Qt::FindDirectChildrenOnly)) {
      if (each->isVisible() && each->count() == 2) tabs = each;
    }
    ASSERT_TRUE(tabs);
    const int notifications = tabs->tabText(0).startsWith("Notifications") ? 0 : 1;
    tabs->setCurrentIndex(1 - notifications);
    QTest::qWait(100);
    window.notifications().add({{QDateTime::currentDateTime(), "BEN", "tea is ready"}});
    QTest::qWait(100);
    EXPECT_EQ(window.notifications().unread(), 1);
    QTest::mouseClick(tabs, Qt::LeftButton, {}, tabs->tabRect(notifications).center());
    EXPECT_EQ(window.notifications().unread(), 0);
  });
}

TEST_F(WindowTest, DocksOfOneSideHaveTheirHeightsAgainAtTheNextStart) {
  {
    QSettings kept = windowSettings();
    kept.setValue("size/panelDock", QSize(300, 500));
    kept.setValue("size/notificationsDock", QSize(300, 150));
  }
  script = kHarbour;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    showBoth(window);
    const auto* const dock = window.findChild<QDockWidget*>("notificationsDock");
    QTest::qWait(200);
    const double share = 1.0 * window.panel().height() / dock->height();
    EXPECT_NEAR(share, 500 / 150., 0.3) << window.panel().height() << ' ' << dock->height();
    const int before = window.panel().height();
    for (int times = 0; times < 3; ++times) {
      QTest::keyClick(&window, Qt::Key_M, Qt::ControlModifier | Qt::ShiftModifier);
      ASSERT_TRUE(waitFor([&] { return !window.panel().isVisible(); }));
      QTest::qWait(50);
      openPanel(window);
      QTest::qWait(50);
    }
    EXPECT_TRUE(waitFor([&] { return window.panel().height() == before; }, 2000))
        << window.panel().height() << ' ' << before;
    // The user moves the edge between them.
    window.resizeDocks({&window.panel(), window.findChild<QDockWidget*>("notificationsDock")},
                       {200, 400}, Qt::Vertical);
    QTest::qWait(50);
    QTest::mouseRelease(&window, Qt::LeftButton);
    QTest::qWait(50);
    EXPECT_LT(window.panel().height(), dock->height());
  });
  QSettings kept = windowSettings();
  EXPECT_LT(kept.value("size/panelDock").toSize().height(),
            kept.value("size/notificationsDock").toSize().height());
}

TEST_F(WindowTest, AColleaguesWordsShowWithoutTakingTheKeyboard) {
  script = kHarbour;
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    window.objects().view(ObjectKind::eEdits).setFocus();
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("user add ANNA")["ok"].asBool());
    EXPECT_TRUE(ben.command("say ANNA \"tea is ready\"")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return window.strip().text().contains("tea is ready"); }));
    EXPECT_TRUE(window.strip().text().endsWith("BEN: tea is ready"));
    EXPECT_TRUE(window.strip().isVisible());
    EXPECT_EQ(window.notifications().list().count(), 1);
    EXPECT_FALSE(window.strip().isAncestorOf(QApplication::focusWidget()));
  });
}

TEST_F(WindowTest, OfSeveralNotificationsNoneIsOverlooked) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    for (const char* text : {"one", "two", "three"}) {
      EXPECT_TRUE(ben.command(std::string("say <All> ") + text)["ok"].asBool());
    }
    ASSERT_TRUE(waitFor([&] { return window.notifications().unread() == 3; }));
    EXPECT_TRUE(window.strip().text().startsWith("3 unread"))
        << window.strip().text().toStdString();
    auto* const dock = window.findChild<QDockWidget*>("notificationsDock");
    EXPECT_EQ(dock->toggleViewAction()->text(), "Notifications (3)");
    QTest::mouseClick(&window.strip().button(), Qt::LeftButton);
    EXPECT_TRUE(waitFor([&] { return window.notifications().list().isVisible(); }));
    EXPECT_EQ(window.notifications().list().count(), 3);
    EXPECT_EQ(window.notifications().whole().toPlainText(), "three");
    EXPECT_EQ(dock->toggleViewAction()->text(), "Notifications");
    EXPECT_FALSE(window.strip().isVisible());
  });
}

namespace {

QAction& actionOf(const MainWindow& window, const QString& text) {
  const auto actions = window.findChildren<QAction*>();
  const auto found =
      std::ranges::find_if(actions, [&text](const QAction* each) { return each->text() == text; });
  if (found == actions.end()) throw std::runtime_error("no action " + text.toStdString());
  return **found;
}

}  // namespace

TEST_F(WindowTest, ARemoteChangeIsMarkedUntilItIsLookedAtAndNothingMovesUnderTheHand) {
  script = kHarbour;
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit create Quay")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    ObjectsModel& model = window.objects().model(ObjectKind::eEdits);
    const QString key = keyOf(window, "Quay");
    EXPECT_TRUE(waitFor([&] { return model.hasNews(model.rowOf(key)); }));
    clickEdit(window, "Quay");
    EXPECT_FALSE(model.hasNews(model.rowOf(key)));
    QAction& show = actionOf(window, "Show another station's &change");
    EXPECT_FALSE(show.isEnabled());
    EXPECT_TRUE(ben.command("edit rename Quay Pier")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit save Pier")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return window.detail().changeBar().isVisible(); }));
    EXPECT_TRUE(model.hasNews(model.rowOf(key)));
    EXPECT_TRUE(show.isEnabled());
    QTest::keyClick(&window, Qt::Key_F7);
    EXPECT_TRUE(waitFor([&] { return !model.hasNews(model.rowOf(key)); }));
    EXPECT_TRUE(waitFor([&] { return !show.isEnabled(); }));
  });
}

TEST_F(WindowTest, WhatAnotherDidIsStillNewsAfterTheProjectWasLeftAndMayBeMarkedAsSeen) {
  script = kHarbour;
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit create Quay")["ok"].asBool());
    const auto news = [&window](const QString& name) {
      const ObjectsModel& model = window.objects().model(ObjectKind::eEdits);
      const int row = model.rowOf(keyOf(window, name));
      return row < 0 ? QString() : model.index(row, 1).data().toString();
    };
    EXPECT_TRUE(waitFor([&] { return news("Quay").startsWith("new by BEN, "); }))
        << news("Quay").toStdString();
    command(window, "project leave");
    ASSERT_TRUE(waitForProject(window, ""));
    EXPECT_TRUE(ben.command("edit create Pier")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit save Pier")["ok"].asBool());
    EXPECT_TRUE(ben.command("bin create Rushes")["ok"].asBool());
    // A message that came after the entry would name who made the bin.
    ASSERT_TRUE(waitFor([&] { return window.received() >= ben.events("sent").size(); }));
    command(window, "project enter Harbour");
    EXPECT_TRUE(waitFor([&] { return news("Quay").startsWith("new by BEN, "); }))
        << news("Quay").toStdString();
    const QRegularExpression byBen("^new by BEN, (\\d+ \\w+ )?\\d\\d:\\d\\d$");
    EXPECT_TRUE(waitFor([&] { return byBen.match(news("Pier")).hasMatch(); }))
        << news("Pier").toStdString();
    const ObjectsModel& edits = window.objects().model(ObjectKind::eEdits);
    const QString tip =
        edits.index(edits.rowOf(keyOf(window, "Pier")), 0).data(Qt::ToolTipRole).toString();
    EXPECT_TRUE(tip.contains("News: new by BEN, ")) << tip.toStdString();
    // Nobody signs a bin; its file has a time all the same.
    const ObjectsModel& bins = window.objects().model(ObjectKind::eBins);
    ASSERT_EQ(bins.rowCount(), 1);
    const QRegularExpression elsewhere("^new elsewhere, (\\d+ \\w+ )?\\d\\d:\\d\\d$");
    const QString bin = bins.index(0, 1).data().toString();
    EXPECT_TRUE(elsewhere.match(bin).hasMatch()) << bin.toStdString();
    QAction& seen = actionOf(window, "&Mark all news as seen");
    ASSERT_TRUE(seen.isEnabled());
    window.activateWindow();
    ASSERT_TRUE(waitFor([&] { return window.isActiveWindow(); }));
    QTest::keyClick(&window, Qt::Key_F7, Qt::ShiftModifier);
    EXPECT_EQ(news("Quay") + news("Pier"), "");
    EXPECT_FALSE(seen.isEnabled());
    EXPECT_FALSE(window.objects().hasNews());
  });
}

TEST_F(WindowTest, ARefusedProjectNamesItsHolder) {
  script = "project create Trailer --private\n";
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.projects().projects().model()->rowCount() == 1; }));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Trailer")["ok"].asBool());
    QTreeView& list = window.projects().projects();
    list.setCurrentIndex(list.model()->index(0, 0));
    QTest::keyClick(&list, Qt::Key_Return);
    EXPECT_TRUE(waitFor([&] { return window.messages().text().contains("BEN"); }));
    EXPECT_TRUE(window.messages().isVisible());
    QTest::keyClick(&window, Qt::Key_F5);
    EXPECT_TRUE(
        waitFor([&] { return list.model()->index(0, 1).data().toString() == "held by BEN"; }));
  });
}

TEST_F(WindowTest, ASmallWindowWorks) {
  script = kHarbour;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    window.resize(300, 200);
    EXPECT_TRUE(waitFor([&] { return window.width() <= 300 && window.height() <= 200; }, 2000));
    EXPECT_FALSE(window.grab().isNull());
  });
}

TEST_F(WindowTest, AnOpenPanelLeavesTheProjectItsRoom) {
  script = kHarbour;
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    window.resize(640, 480);
    openPanel(window);
    const auto isWide = [&] {
      return window.objects().width() > window.panel().width() &&
             window.objects().width() > window.projects().width();
    };
    EXPECT_TRUE(waitFor(isWide)) << window.objects().width();
    EXPECT_GE(window.projects().width(), 160);
  });
}

/// The letters that menus and their actions answer to, and where one does twice.
QStringList twiceMarked(const QList<QAction*>& actions) {
  QStringList marked;
  QStringList twice;
  for (const QAction* action : actions) {
    const QKeySequence letter = QKeySequence::mnemonic(action->text());
    if (letter.isEmpty()) continue;
    if (marked.contains(letter.toString())) twice.append(action->text());
    marked.append(letter.toString());
  }
  return twice;
}

TEST_F(WindowTest, NoTwoActionsAnswerToTheSameKey) {
  play([](MainWindow& window) {
    QStringList keys;
    for (const QAction* action : window.findChildren<QAction*>()) {
      const QString key = action->shortcut().toString();
      // A key of a single list means another action in another list.
      if (key.isEmpty() || action->shortcutContext() == Qt::WidgetShortcut) continue;
      EXPECT_FALSE(keys.contains(key)) << key.toStdString();
      keys.append(key);
    }
    const QList<QAction*> menus = window.menuBar()->actions();
    EXPECT_EQ(twiceMarked(menus), QStringList());
    for (const QAction* menu : menus)
      EXPECT_EQ(twiceMarked(menu->menu()->actions()), QStringList());
  });
}

TEST_F(WindowTest, EveryCommandOfTheConsoleIsInTheMenusOrAPane) {
  const QStringList elsewhere{"help",       "quit",          "wait",         "sleep",
                              "panel to",   "panel type",    "panel return", "panel lines",
                              "panel show", "edit history",  "edit compare", "edit restore",
                              "trash list", "trash restore", "trash empty",  "undo",
                              "redo",       "asks",          "answer",       "conversation",
                              "happened"};
  play([&](MainWindow& window) {
    for (const auto& [name, command] : window.commands().all()) {
      const QString wanted = QString::fromStdString(name);
      const bool isThere = std::ranges::any_of(actionTable(), [&](const ActionSpec& action) {
        return (QString::fromUtf8(action.line) + ' ').startsWith(wanted + ' ');
      });
      EXPECT_TRUE(isThere || elsewhere.contains(wanted)) << name;
    }
    for (const ActionSpec& action : actionTable()) {
      const QStringList fill(3, "x");
      const CommandCall call =
          readCall(window.commands(), filledLine(action, {"x"}, fill).toStdString());
      EXPECT_FALSE(call.problem) << action.line;
    }
  });
}

TEST_F(WindowTest, ARefusalGoesOnceTheRoomIsFree) {
  script = kHarbour + std::string("room create Sound\n");
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    EXPECT_TRUE(ben.command("room enter Sound")["ok"].asBool());
    window.link().run("room enter Sound");
    ASSERT_TRUE(waitFor([&] { return window.messages().text().contains("BEN"); }));
    const auto isHeld = [&] {
      const auto& rooms = window.snapshot()->rooms;
      return rooms && rooms->size() == 1 && rooms->front().hold == Hold::eTaken;
    };
    ASSERT_TRUE(waitFor(isHeld));
    EXPECT_TRUE(window.messages().isVisible()) << "it is true still";
    EXPECT_TRUE(ben.command("room leave")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return !window.messages().isVisible(); }));
    EXPECT_FALSE(isHeld());
    window.link().run("room enter Cellar");
    ASSERT_TRUE(waitFor([&] { return window.messages().text().contains("Cellar"); }));
    EXPECT_FALSE(waitFor([&] { return !window.messages().isVisible(); }, 500));
  });
}

TEST_F(WindowTest, TheOpenPanelSaysWhereTheWordsOfOthersAre) {
  play([this](MainWindow& window) {
    openPanel(window);
    auto* const others = window.panel().findChild<QToolButton*>("others");
    ASSERT_TRUE(others && others->isVisible());
    EXPECT_TRUE(others->text().contains("Notifications"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("say <All> lunch")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return others->text().endsWith("(1)"); }))
        << others->text().toStdString();
    QTest::mouseClick(others, Qt::LeftButton);
    EXPECT_TRUE(waitFor([&] { return window.notifications().list().isVisible(); }));
    EXPECT_EQ(window.notifications().whole().toPlainText(), "lunch");
    EXPECT_FALSE(others->text().contains("("));
  });
}

}  // namespace
