#include "app/window/ObjectsPane.h"

#include <gtest/gtest.h>

#include <QScrollBar>

#include "tests/window/WindowScene.h"

using namespace korvel;

namespace {

Snapshot edits(const QStringList& names) {
  ObjectRows rows;
  for (const QString& name : names) {
    ObjectRow row;
    row.key = row.cookie = QStringLiteral("E%1").arg(rows.size());
    row.name = name;
    rows.push_back(row);
  }
  Snapshot snapshot;
  snapshot.project.cookie = QStringLiteral("P1");
  snapshot.objects[0] = std::make_shared<const ObjectRows>(std::move(rows));
  return snapshot;
}

Snapshot editsNamed(const QString& pattern, int from, int to) {
  ObjectRows rows;
  for (int i = from; i < to; ++i) {
    ObjectRow row;
    row.key = row.cookie = QStringLiteral("E%1").arg(i, 8, 10, QLatin1Char('0'));
    row.name = pattern.arg(i, 8, 10, QLatin1Char('0'));
    rows.push_back(row);
  }
  Snapshot snapshot;
  snapshot.project.cookie = QStringLiteral("P1");
  snapshot.objects[0] = std::make_shared<const ObjectRows>(std::move(rows));
  return snapshot;
}

QStringList chosenKeys(const ObjectsPane& pane) {
  QStringList keys;
  for (const ObjectRow& row : pane.chosen()) keys.append(row.key);
  keys.sort();
  return keys;
}

TEST(ObjectsPaneTest, WhatIsChosenStaysWhenHundredsOfRowsComeAndGoAtOnce) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.resize(600, 400);
  pane.show(editsNamed("Edit %1", 0, 1000));
  QTreeView& view = pane.view(ObjectKind::eEdits);
  EXPECT_FALSE(pane.grab().isNull());
  pane.choose(ObjectKind::eEdits, "E00000700");
  QTest::keyClick(&view, Qt::Key_Down, Qt::ShiftModifier);
  const QStringList chosen{"E00000700", "E00000701"};
  EXPECT_EQ(chosenKeys(pane), chosen);
  const QPoint place = view.visualRect(view.currentIndex()).topLeft();
  pane.show(editsNamed("Edit %1", 500, 2000));
  EXPECT_EQ(chosenKeys(pane), chosen);
  EXPECT_EQ(pane.chosen().front().key, "E00000701");
  EXPECT_EQ(view.visualRect(view.currentIndex()).topLeft(), place);
}

/// The edits of these numbers, each its name and key.
Snapshot editsOf(const QList<int>& numbers) {
  Snapshot snapshot = editsNamed("Edit %1", 0, 10);
  ObjectRows rows;
  for (const int each : numbers) rows.push_back(snapshot.objects[0]->at(std::size_t(each)));
  snapshot.objects[0] = std::make_shared<const ObjectRows>(std::move(rows));
  return snapshot;
}

TEST(ObjectsPaneTest, WhatWentWhileItWasChosenIsChosenAgainOnceItIsBack) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(editsOf({1, 2, 3}));
  pane.choose(ObjectKind::eEdits, "E00000001");
  QTest::keyClick(&pane.view(ObjectKind::eEdits), Qt::Key_Down, Qt::ShiftModifier);
  ASSERT_EQ(chosenKeys(pane), QStringList({"E00000001", "E00000002"}));
  // Each deletion and each return of several is a snapshot of its own.
  pane.show(editsOf({2, 3}));
  pane.show(editsOf({3}));
  EXPECT_EQ(chosenKeys(pane), QStringList());
  pane.show(editsOf({2, 3}));
  EXPECT_EQ(chosenKeys(pane), QStringList("E00000002"));
  pane.show(editsOf({1, 2, 3}));
  EXPECT_EQ(chosenKeys(pane), QStringList({"E00000001", "E00000002"}));
}

TEST(ObjectsPaneTest, WhatIsBackIsNotChosenOnceSomethingElseIs) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(editsOf({1, 2, 3}));
  pane.choose(ObjectKind::eEdits, "E00000001");
  pane.show(editsOf({2, 3}));
  pane.choose(ObjectKind::eEdits, "E00000003");
  pane.show(editsOf({2, 3}));
  pane.show(editsOf({1, 2, 3}));
  EXPECT_EQ(chosenKeys(pane), QStringList("E00000003"));
}

TEST(ObjectsPaneTest, AnotherProjectsObjectsAreNotChosenForWhatWent) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(editsOf({1, 2, 3}));
  pane.choose(ObjectKind::eEdits, "E00000001");
  pane.show(editsOf({2, 3}));
  Snapshot other = editsOf({0, 1});
  other.project.cookie = QStringLiteral("P2");
  pane.show(other);
  EXPECT_EQ(chosenKeys(pane), QStringList("E00000000"));
}

TEST(ObjectsPaneTest, NamesStandInTheOrderOfTheirNumbers) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(edits({"Edit 10", "edit 9", "Edit 1", "Reel 2", "EDIT 2"}));
  const QAbstractItemModel& shown = *pane.view(ObjectKind::eEdits).model();
  QStringList names;
  for (int row = 0; row < shown.rowCount(); ++row)
    names.append(shown.index(row, 0).data().toString());
  EXPECT_EQ(names, QStringList({"Edit 1", "EDIT 2", "edit 9", "Edit 10", "Reel 2"}));
}

TEST(ObjectsPaneTest, NamesStayInOrderWhateverChangesComesAndGoes) {
  const WithoutDisplay display;
  ObjectsPane pane;
  const QAbstractItemModel& shown = *pane.view(ObjectKind::eEdits).model();
  const auto names = [&shown] {
    QStringList all;
    for (int row = 0; row < shown.rowCount(); ++row)
      all.append(shown.index(row, 0).data().toString());
    return all;
  };
  pane.show(edits({"b", "d", "f"}));
  pane.show(edits({"b", "g", "f"}));
  EXPECT_EQ(names(), QStringList({"b", "f", "g"})) << "renamed";
  pane.show(edits({"b", "g", "f", "a"}));
  EXPECT_EQ(names(), QStringList({"a", "b", "f", "g"})) << "one came last";
  Snapshot fewer = edits({"b", "g", "f", "a", "e"});
  ObjectRows rows = *fewer.objects[0];
  rows.erase(rows.begin() + 1);
  fewer.objects[0] = std::make_shared<const ObjectRows>(rows);
  pane.show(fewer);
  EXPECT_EQ(names(), QStringList({"a", "b", "e", "f"})) << "one of the middle went";
  pane.show(edits({"z", "y", "x", "a", "w"}));
  EXPECT_EQ(names(), QStringList({"a", "w", "x", "y", "z"}));
  QTreeView& view = pane.view(ObjectKind::eEdits);
  view.sortByColumn(3, Qt::DescendingOrder);  // by the owner, whom none has
  view.sortByColumn(0, Qt::DescendingOrder);
  EXPECT_EQ(names(), QStringList({"z", "y", "x", "w", "a"}));
  pane.show(editsNamed("Edit %1", 0, 400));
  EXPECT_EQ(names().front(), "Edit 00000399") << "so many that the list begins anew";
}

TEST(ObjectsPaneTest, AnEditThatAnotherDeletedSaysSo) {
  const WithoutDisplay display;
  ObjectsPane pane;
  Snapshot snapshot = edits({"Quay"});
  ObjectRows rows = *snapshot.objects[0];
  rows[0].isDeleted = true;
  rows[0].elsewhere = {1, true, "BEN", QDateTime::currentDateTime()};
  snapshot.objects[0] = std::make_shared<const ObjectRows>(std::move(rows));
  pane.show(snapshot);
  EXPECT_EQ(pane.model(ObjectKind::eEdits).index(0, 1).data().toString(), "deleted by another");
}

// The station may have answered before it heard of the new owner.
TEST(ObjectsPaneTest, WhoMayChangeAnEditThatChangedSinceIsAskedAgain) {
  const WithoutDisplay display;
  ObjectsPane pane;
  const ObjectsModel& model = pane.model(ObjectKind::eEdits);
  const auto showOwnedBy = [&](const char* owner) {
    Snapshot snapshot = edits({"Quay"});
    ObjectRows rows = *snapshot.objects[0];
    rows.front().owner = QLatin1String(owner);
    snapshot.objects[0] = std::make_shared<const ObjectRows>(std::move(rows));
    pane.show(snapshot);
    // What is drawn is asked about.
    for (int column = 0; column < model.columnCount(); ++column) model.index(0, column).data();
  };
  showOwnedBy("ANNA");
  pane.takeAnswers({{"E0", true}});
  EXPECT_EQ(model.mayChange("E0"), true);
  pane.takeAnswers({{"E7", true}});
  EXPECT_EQ(model.mayChange("E7"), std::nullopt) << "nobody asked";
  showOwnedBy("BEN");
  EXPECT_EQ(model.mayChange("E0"), std::nullopt);
  pane.takeAnswers({{"E0", false}});
  EXPECT_EQ(model.mayChange("E0"), false);
}

TEST(ObjectsPaneTest, WhatMattersMostIsNeverOffToTheRight) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(edits({"Quay"}));
  pane.QWidget::show();
  QTreeView& view = pane.view(ObjectKind::eEdits);
  int shownBefore = 0;
  for (const int width : {200, 330, 420, 1000}) {
    pane.resize(width, 300);
    QCoreApplication::processEvents();
    int shown = 0;
    for (int i = 0; i < 5; ++i) shown += !view.isColumnHidden(i);
    EXPECT_GE(shown, shownBefore) << width;
    EXPECT_TRUE(width < 330 || !view.isColumnHidden(1)) << "the news, at " << width;
    EXPECT_EQ(view.horizontalScrollBar()->maximum(), 0) << width;
    EXPECT_GE(view.columnWidth(0), 100) << width;
    shownBefore = shown;
  }
  EXPECT_EQ(shownBefore, 5);
  pane.resize(668, 300);
  QCoreApplication::processEvents();
  EXPECT_FALSE(view.isColumnHidden(4));
  EXPECT_GE(view.columnWidth(0), 170) << "names, beside news that need not have all of the rest";
  EXPECT_TRUE(view.model()->index(0, 0).data(Qt::ToolTipRole).toString().contains("Owner: nobody"));
}

TEST(ObjectsPaneTest, WhatNamesCanDoWithoutGoesToTextsThatWouldBeCut) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(edits({"Quay"}));
  pane.QWidget::show();
  const QTreeView& view = pane.view(ObjectKind::eEdits);
  const QAbstractItemModel& shown = *view.model();
  int source = 0;
  while (shown.headerData(source, Qt::Horizontal).toString() != "Source") ++source;
  const auto widthAt = [&](int width) {
    pane.resize(width, 300);
    QCoreApplication::processEvents();
    return view.columnWidth(source);
  };
  const int usual = widthAt(1300);
  EXPECT_GT(usual, 0);
  EXPECT_GE(widthAt(2300), usual + 100);
  EXPECT_GE(view.columnWidth(0), 480);
  EXPECT_EQ(widthAt(1300), usual);
}

TEST(ObjectsPaneTest, WhereThereAreNoNewsNamesHaveTheirRoom) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.QWidget::show();
  pane.resize(500, 300);
  pane.show(edits({"Quay"}));
  QCoreApplication::processEvents();
  const QTreeView& view = pane.view(ObjectKind::eEdits);
  const int ofShort = view.columnWidth(0);
  pane.show(edits({"A name that is somewhat longer"}));
  QCoreApplication::processEvents();
  EXPECT_GT(view.columnWidth(0), ofShort + 20);
  EXPECT_FALSE(view.isColumnHidden(1));
}

TEST(ObjectsPaneTest, AProjectThatIsEnteredShowsItsFirstEditUnlessOneIsChosen) {
  const WithoutDisplay display;
  ObjectsPane pane;
  bool wasItsOwn = false;
  QObject::connect(&pane, &ObjectsPane::choiceChanged, &pane,
                   [&] { wasItsOwn = pane.isChoosing(); });
  pane.show(edits({}));
  EXPECT_TRUE(pane.chosen().empty());
  pane.show(edits({"Edit 10", "Edit 9"}));
  EXPECT_EQ(chosenKeys(pane), QStringList("E1"));
  EXPECT_TRUE(wasItsOwn);
  pane.choose(ObjectKind::eEdits, "E0");
  EXPECT_FALSE(wasItsOwn);
  pane.show(edits({"Edit 10", "Edit 9", "Edit 8"}));
  EXPECT_EQ(chosenKeys(pane), QStringList("E0"));
  Snapshot other = edits({"Beach", "Alley"});
  other.project.cookie = "P2";
  pane.show(other);
  EXPECT_EQ(chosenKeys(pane), QStringList("E1"));
}

}  // namespace
