#include <gtest/gtest.h>

#include <QAction>
#include <QComboBox>
#include <QDockWidget>
#include <QLineEdit>
#include <QTreeView>
#include <QTreeWidget>

#include "app/window/PeoplePane.h"
#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

constexpr const char* kSavedEdits =
    "project create Harbour\n"
    "project enter Harbour\n"
    "edit create Quay\n"
    "edit save Quay\n"
    "edit create Pier\n"
    "edit save Pier\n";

class WindowPeopleTest : public testing::Test, protected WindowScene {
 protected:
  /// What the list of edits says of who has one open.
  static QString openAt(const MainWindow& window, const QString& name) {
    const QAbstractItemModel& edits = *window.objects().view(ObjectKind::eEdits).model();
    for (int row = 0; row < edits.rowCount(); ++row) {
      const QModelIndex index = edits.index(row, 0);
      if (index.data().toString() == name) return index.data(Qt::AccessibleTextRole).toString();
    }
    return {};
  }

  static QString inRoom(const MainWindow& window) {
    return window.projects().rooms().model()->index(0, 0).data(Qt::AccessibleTextRole).toString();
  }
};

TEST_F(WindowPeopleTest, WhereAColleagueIsShowsBesideProjectRoomAndEdit) {
  script = kSavedEdits;
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    StationProcess ben(other("BEN"));
    ben.waitUntilReady();
    for (const char* line :
         {"project enter Harbour", "room create Sound", "room enter Sound", "edit open Quay",
          "edit open Pier", "edit give Pier BEN", "edit rename Pier Mole"}) {
      ben.command(line);
    }
    EXPECT_TRUE(waitFor([&] { return openAt(window, "Quay").endsWith("open at: BEN"); }, 30'000));
    EXPECT_TRUE(waitFor([&] { return inRoom(window).endsWith("In it: BEN"); }, 30'000));
    const QModelIndex project = window.projects().projects().model()->index(0, 0);
    EXPECT_TRUE(project.data(Qt::AccessibleTextRole).toString().endsWith("In it: BEN"));
    ben.command("project leave --discard");
    EXPECT_TRUE(waitFor([&] { return openAt(window, "Quay").isEmpty(); }, 30'000));
  });
}

TEST_F(WindowPeopleTest, OneFindsAColleagueAndWritesByKeysAlone) {
  script = kSavedEdits;
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    StationProcess ben(other("BEN"));
    ben.waitUntilReady();
    ben.command("project enter Harbour");
    ben.command("edit open Pier");
    QTest::keyClick(&window, Qt::Key_P, Qt::ControlModifier | Qt::AltModifier);
    QTreeWidget& list = window.people().list();
    ASSERT_TRUE(waitFor([&] { return list.isVisible() && list.topLevelItemCount() == 2; }, 30'000));
    EXPECT_EQ(list.topLevelItem(0)->text(0), "ANNA (this station)");
    ASSERT_TRUE(waitFor([&] { return window.people().rows()[1].edits.size() == 1; }, 30'000));
    while (window.focusWidget() != &list) QTest::keyClick(&window, Qt::Key_F6);
    QTest::keyClick(&list, Qt::Key_Home);
    QTest::keyClick(&list, Qt::Key_End);
    ASSERT_TRUE(window.people().goAction().isEnabled());
    window.findChild<QLineEdit*>("search")->setText("Quay");
    window.people().goAction().trigger();
    ASSERT_EQ(window.objects().chosen().size(), 1U);
    EXPECT_EQ(window.objects().chosen().front().name, "Pier") << "also out of a narrowed list";
    QTest::keyClick(&list, Qt::Key_Return);
    EXPECT_TRUE(waitFor([&] { return window.panel().state().recipient == "BEN"; }));
    EXPECT_TRUE(waitFor([&] { return window.focusWidget() == &window.panel().entry(); }));
  });
}

}  // namespace
