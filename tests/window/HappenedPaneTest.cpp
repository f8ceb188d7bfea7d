#include <gtest/gtest.h>

#include <QAction>
#include <QCheckBox>
#include <QComboBox>
#include <QDockWidget>
#include <QLineEdit>
#include <QSignalSpy>
#include <QTreeView>

#include "app/window/PeoplePane.h"
#include "app/window/Texts.h"
#include "app/window/TimelineView.h"
#include "tests/window/WindowScene.h"

// The list of what happened, alone and in the window.

using namespace korvel;

namespace {

constexpr long kFirst = 10;

HappenedLine happenedOf(long id, const QString& by, const QString& name, const DeedLine& deed) {
  HappenedLine line;
  line.id = kFirst + id;
  line.when = QDateTime(QDate(2026, 11, 21), QTime(12, 4));
  line.by = by;
  line.isOwn = by == "ANNA";
  line.what = "edit";
  line.cookie = "E" + name;
  line.name = name;
  line.deeds = {deed};
  return line;
}

struct HappenedPaneTest : testing::Test {
  HappenedPaneTest() {
    pane.load({happenedOf(2, "BEN", "Quay", {"trimmed", "Clip-002", "0/1", {}, {}}),
               happenedOf(1, "ANNA", "Pier", {"saved", {}, {}, {}, {}})},
              kFirst);
  }

  static QString time(int secondsLater = 0) {
    return shownTime(QDateTime(QDate(2026, 11, 21), QTime(12, 4)).addSecs(secondsLater));
  }

  [[nodiscard]] QStringList texts() const {
    QStringList rows;
    const QAbstractItemModel& model = *pane.list().model();
    for (int row = 0; row < model.rowCount(); ++row) {
      rows << model.index(row, 0).data().toString() + "|" + model.index(row, 1).data().toString() +
                  "|" + model.index(row, 2).data().toString();
    }
    return rows;
  }

  const WithoutDisplay display;
  HappenedPane pane;
};

TEST_F(HappenedPaneTest, TheLatestStandsFirstWithWhoWhatAndWhen) {
  EXPECT_EQ(texts(), (QStringList{"BEN trimmed Clip-002|Quay|" + time(),
                                  "ANNA (you) saved it|Pier|" + time()}));
  pane.add({happenedOf(3, "CARL", "Quay", {"renamed", {}, {}, "Quay", "Mole"})});
  EXPECT_EQ(texts().front(), "CARL renamed it to Mole|Quay|" + time());
  EXPECT_EQ(texts().size(), 3);
}

TEST_F(HappenedPaneTest, WhatIsToldAgainTakesThePlaceOfWhatWasTold) {
  HappenedLine again = happenedOf(1, "ANNA", "Pier", {"moved", "Opening", "0/2", {}, {}});
  pane.add({again});
  EXPECT_EQ(texts().back(), "ANNA (you) moved Opening|Pier|" + time());
  again.when = again.when.addSecs(60);
  again.isUnsaved = true;
  pane.add({again});
  EXPECT_EQ(texts().front(), "ANNA (you) moved Opening, not saved then|Pier|" + time(60));
  EXPECT_EQ(texts().size(), 2);
}

TEST_F(HappenedPaneTest, WhatBelongsToAProjectThatWasLeftIsNotShown) {
  HappenedLine old = happenedOf(0, "BEN", "Old", {"saved", {}, {}, {}, {}});
  old.id = kFirst - 1;
  pane.add({old});
  EXPECT_EQ(texts().size(), 2);
}

TEST_F(HappenedPaneTest, OneColleaguesDoingsOrThoseOfTheChosenEditAreShownAlone) {
  QComboBox& who = pane.who();
  ASSERT_EQ(who.count(), 3) << "all, BEN, ANNA";
  who.setCurrentIndex(who.findData("BEN"));
  EXPECT_EQ(texts().size(), 1);
  EXPECT_TRUE(texts().front().startsWith("BEN "));
  who.setCurrentIndex(0);
  pane.search().setText("pier");
  ASSERT_EQ(texts().size(), 1);
  EXPECT_TRUE(texts().front().contains("|Pier|"));
  pane.search().clear();
  pane.chosenOnly().setChecked(true);
  EXPECT_TRUE(texts().isEmpty()) << "none is chosen";
  pane.setChosen("EQuay");
  ASSERT_EQ(texts().size(), 1);
  EXPECT_TRUE(texts().front().contains("|Quay|"));
  pane.add({happenedOf(3, "CARL", "Pier", {"saved", {}, {}, {}, {}})});
  EXPECT_EQ(texts().size(), 1) << "what comes is narrowed, too";
}

TEST_F(HappenedPaneTest, ReturnGoesToTheObject) {
  QSignalSpy wanted(&pane, &HappenedPane::objectWanted);
  pane.show();
  pane.list().setCurrentIndex(pane.list().model()->index(1, 0));
  QTest::keyClick(&pane.list(), Qt::Key_Return);
  ASSERT_EQ(wanted.count(), 1);
  EXPECT_EQ(wanted.front().at(1).toString(), "EPier");
}

TEST_F(HappenedPaneTest, OnlyTheLatestAreKept) {
  std::vector<HappenedLine> many;
  for (long i = 0; i < 2 * static_cast<long>(HappenedModel::kMost); ++i) {
    many.push_back(happenedOf(10 + i, "BEN", QString::number(i), {"saved", {}, {}, {}, {}}));
  }
  pane.add(many);
  ASSERT_EQ(texts().size(), static_cast<qsizetype>(HappenedModel::kMost));
  EXPECT_TRUE(texts().front().contains("|999|"));
}

TEST_F(HappenedPaneTest, NamesOfOthersNeverBecomeMarkupOrSeveralLines) {
  pane.add({happenedOf(3, "<b>EVE</b>", "a\nb", {"trimmed", "x\ny", "0/1", {}, {}})});
  const QModelIndex first = pane.list().model()->index(0, 0);
  EXPECT_FALSE(texts().front().contains("\n"));
  EXPECT_FALSE(first.data(Qt::ToolTipRole).toString().contains("<b>EVE"));
}

class WindowHappenedTest : public testing::Test, protected WindowScene {
 protected:
  /// What the list of edits says under News of the edit of this name.
  static QString news(const MainWindow& window, const QString& name) {
    const ObjectsModel& model = window.objects().model(ObjectKind::eEdits);
    const int row = model.rowOf(keyOf(window, name));
    return row < 0 ? QString() : model.index(row, 1).data().toString();
  }

  static QString first(const MainWindow& window) {
    return window.happened().list().model()->index(0, 0).data().toString();
  }
};

TEST_F(WindowHappenedTest, ATrimOfAColleaguesIsNamedInListBarAndFeed) {
  script = "project create Film\nproject enter Film\nedit create Pier\n";
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Film"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(ben.command("project enter Film")["ok"].asBool());
    ASSERT_TRUE(waitFor(
        [&] { return window.people().rows().size() == 2 && !window.people().rows()[1].isSilent; },
        60'000));
    const JsonValue made = ben.command("edit import " KV_SAMPLES "/simple_cut.otio");
    const std::string cookie = made["result"].asString();
    ASSERT_TRUE(ben.command("edit rename " + cookie + " Cut")["ok"].asBool());
    ASSERT_TRUE(ben.command("edit save Cut")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Cut").isEmpty(); }));
    // What is new of it is told by then, and looked at.
    ASSERT_TRUE(waitFor([&] { return first(window) == "BEN saved it"; }))
        << first(window).toStdString();
    ASSERT_TRUE(waitFor([&] { return news(window, "Cut").startsWith("new by BEN"); }));
    clickEdit(window, "Cut");
    EXPECT_EQ(news(window, "Cut"), "");
    command(window, "edit open Cut");
    clickEdit(window, "Pier");
    ASSERT_TRUE(ben.command("edit trim Cut Clip-002 0 4")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return first(window) == "BEN trimmed Clip-002, not saved then"; }))
        << first(window).toStdString();
    EXPECT_TRUE(waitFor([&] { return news(window, "Cut").startsWith("BEN trimmed Clip-002, "); }))
        << news(window, "Cut").toStdString();
    clickEdit(window, "Cut");
    ASSERT_TRUE(ben.command("edit trim Cut Clip-003 0 4")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] {
      return window.detail().changeBar().text().startsWith("BEN trimmed Clip-003, ");
    })) << window.detail().changeBar().text().toStdString();
  });
}

TEST_F(WindowHappenedTest, TheFeedLeadsToTheEditByKeysAlone) {
  script = "project create Film\nproject enter Film\nedit create Pier\nedit create Quay\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Film"));
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    clickEdit(window, "Pier");
    QTest::keyClick(&window, Qt::Key_H, Qt::ControlModifier | Qt::AltModifier);
    QTreeView& list = window.happened().list();
    ASSERT_TRUE(waitFor([&] { return list.isVisible() && list.model()->rowCount() == 2; }));
    EXPECT_EQ(first(window), "ANNA (you) made it");
    while (window.focusWidget() != &list) QTest::keyClick(&window, Qt::Key_F6);
    QTest::keyClick(&list, Qt::Key_Home);
    QTest::keyClick(&list, Qt::Key_Return);
    ASSERT_EQ(window.objects().chosen().size(), 1U);
    EXPECT_EQ(window.objects().chosen().front().name, "Quay");
  });
}

/// A window on an edit "Cut" of BEN's, whose station is known by now.
class WindowFollowTest : public WindowHappenedTest {
 protected:
  void openCut(MainWindow& window, StationProcess& ben) {
    ASSERT_TRUE(waitForProject(window, "Film"));
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(ben.command("project enter Film")["ok"].asBool());
    ASSERT_TRUE(waitFor(
        [&] { return window.people().rows().size() == 2 && !window.people().rows()[1].isSilent; },
        60'000));
    const JsonValue made = ben.command("edit import " KV_SAMPLES "/simple_cut.otio");
    cut = made["result"].asString();
    ASSERT_TRUE(ben.command("edit rename " + cut + " Cut")["ok"].asBool());
    ASSERT_TRUE(ben.command("edit save Cut")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Cut").isEmpty(); }));
    clickEdit(window, "Cut");
    ASSERT_TRUE(waitFor([&] { return window.detail().view().timeline() != nullptr; }));
  }

  [[nodiscard]] bool isOpen(const MainWindow& window) const {
    const auto row = window.objects().find(QString::fromStdString(cut));
    return row && row->isOpen;
  }

  /// What is marked in the drawing as changed.
  static QString marked(const MainWindow& window) {
    for (const TimelineTrack& track : window.detail().view().timeline()->tracks) {
      for (const TimelineItem& item : track.items) {
        if (!item.change.isEmpty()) return item.change;
      }
    }
    return {};
  }

  std::string cut;
};

TEST_F(WindowFollowTest, WhatAColleagueDoesIsShownAsItComesAndTheKeyboardStaysWhereItIs) {
  script = "project create Film\nproject enter Film\nedit create Pier\n";
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    openCut(window, ben);
    QTest::keyClick(&window, Qt::Key_F7, Qt::ControlModifier);
    ASSERT_TRUE(window.detail().isFollowing());
    ASSERT_TRUE(waitFor([&] { return isOpen(window); })) << "announced changes come to open edits";
    auto* const search = window.findChild<QLineEdit*>("search");
    search->setFocus();
    const MessageBar& bar = window.detail().changeBar();
    for (const char* clip : {"Clip-002", "Clip-003"}) {
      const QString words = QStringLiteral("BEN trimmed ") + clip;
      ASSERT_TRUE(ben.command(std::string("edit trim Cut ") + clip + " 0 4")["ok"].asBool());
      EXPECT_TRUE(waitFor([&] { return bar.text().startsWith(words); }))
          << bar.text().toStdString();
      EXPECT_TRUE(waitFor([&] { return marked(window).startsWith(words); }))
          << marked(window).toStdString();
      EXPECT_FALSE(window.detail().isOutdated());
    }
    EXPECT_EQ(window.focusWidget(), search);
    EXPECT_TRUE(bar.isVisible());
    QTest::keyClick(&window, Qt::Key_F7, Qt::ControlModifier);
    EXPECT_FALSE(window.detail().isFollowing());
    ASSERT_TRUE(ben.command("edit trim Cut Clip-002 0 2")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return window.detail().isOutdated(); })) << "told, and not drawn";
  });
}

TEST_F(WindowFollowTest, FollowingEndsWhenOneChangesTheEditOrClosesIt) {
  script = "project create Film\nproject enter Film\nedit create Pier\n";
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    openCut(window, ben);
    window.detail().follow();
    ASSERT_TRUE(waitFor([&] { return isOpen(window); }));
    command(window, "edit close Cut");
    EXPECT_TRUE(waitFor([&] { return !window.detail().isFollowing(); }));
    ASSERT_TRUE(ben.command("edit give Cut ANNA")["ok"].asBool());
    window.detail().follow();
    ASSERT_TRUE(waitFor([&] { return isOpen(window); }));
    command(window, "edit trim Cut Clip-002 0 4");
    EXPECT_TRUE(waitFor([&] { return !window.detail().isFollowing(); }));
    EXPECT_FALSE(window.detail().whyNotFollow().isEmpty()) << "not while one has unsaved changes";
  });
}

TEST_F(WindowFollowTest, WhatIsMissingIsSaidUntilItIsSaved) {
  script = "project create Film\nproject enter Film\nedit create Pier\n";
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    openCut(window, ben);
    const MessageBar& bar = window.detail().missingBar();
    EXPECT_FALSE(bar.isVisible());
    ASSERT_TRUE(ben.command("edit trim Cut Clip-002 0 4")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return bar.isVisible(); }, 60'000));
    EXPECT_EQ(bar.text(), "Unsaved changes of BEN's are missing here until BEN saves.");
    ASSERT_TRUE(ben.command("edit save Cut")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return !bar.isVisible(); }, 60'000));
  });
}

TEST_F(WindowHappenedTest, AnotherProjectHasAFeedOfItsOwn) {
  script = "project create Film\nproject create Other\nproject enter Film\nedit create Pier\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Film"));
    const QAbstractItemModel& rows = *window.happened().list().model();
    ASSERT_TRUE(waitFor([&] { return rows.rowCount() == 1; }));
    command(window, "project enter Other");
    ASSERT_TRUE(waitForProject(window, "Other"));
    EXPECT_TRUE(waitFor([&] { return rows.rowCount() == 0; }));
    command(window, "project enter Film");
    ASSERT_TRUE(waitForProject(window, "Film"));
    EXPECT_TRUE(waitFor([&] { return rows.rowCount() == 1; }));
  });
}

}  // namespace
