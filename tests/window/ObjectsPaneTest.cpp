#include "app/window/ObjectsPane.h"

#include <gtest/gtest.h>

#include <QScrollBar>

#include "tests/window/WindowScene.h"

namespace {

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
  qputenv("QT_QPA_PLATFORM", "offscreen");
  int none = 0;
  const QApplication application(none, nullptr);
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

}  // namespace
