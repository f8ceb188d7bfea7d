#include <gtest/gtest.h>

#include <QDialog>
#include <QDropEvent>
#include <QHeaderView>
#include <QLabel>
#include <QLineEdit>
#include <QMenu>
#include <QMimeData>
#include <QSettings>
#include <QToolButton>
#include <QUrl>
#include <algorithm>
#include <fstream>

#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

ObjectRow rowOf(const QString& cookie, const QString& name, const QStringList& contents = {}) {
  ObjectRow row;
  row.key = row.cookie = cookie;
  row.name = name;
  row.contents = contents;
  return row;
}

/// Three edits that were saved by others on different days, a bin with two of them, and another.
Snapshot smallProject(const QStringList& inSelects = {"E1", "E3"}) {
  Snapshot snapshot;
  snapshot.project.cookie = "P1";
  ObjectRows edits{rowOf("E1", "Quay"), rowOf("E2", "Pier"), rowOf("E3", "Crane at the quay")};
  edits[0].savedAt = QDateTime::currentDateTimeUtc();  // shown without its day
  edits[1].savedAt = QDateTime(QDate(2025, 12, 24), QTime(11, 0), Qt::UTC);
  edits[0].savedBy = "ben";
  edits[1].savedBy = "anna";
  snapshot.objects[0] = std::make_shared<const ObjectRows>(edits);
  snapshot.objects[1] = std::make_shared<const ObjectRows>(
      ObjectRows{rowOf("G1", "Selects", inSelects), rowOf("G2", "Rest")});
  snapshot.objects[2] =
      std::make_shared<const ObjectRows>(ObjectRows{rowOf("B1", "Shelf", {"G2"})});
  return snapshot;
}

QStringList namesIn(const ObjectsPane& pane, ObjectKind kind) {
  const QAbstractItemModel& shown = *pane.view(kind).model();
  QStringList names;
  for (int row = 0; row < shown.rowCount(); ++row) names << shown.index(row, 0).data().toString();
  return names;
}

int sectionOf(const ObjectsPane& pane, ObjectsModel::Column column) {
  const ObjectsModel& model = pane.model(ObjectKind::eEdits);
  for (int section = 0; section < model.columnCount(); ++section) {
    if (model.columnAt(section) == column) return section;
  }
  return -1;
}

TEST(ObjectColumnsTest, ShowWhoSavedWhenAndSortByTheTime) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(smallProject());
  QTreeView& view = pane.view(ObjectKind::eEdits);
  const int saved = sectionOf(pane, ObjectsModel::eModified);
  view.sortByColumn(saved, Qt::AscendingOrder);
  EXPECT_EQ(namesIn(pane, ObjectKind::eEdits), QStringList({"Crane at the quay", "Pier", "Quay"}));
  view.sortByColumn(saved, Qt::DescendingOrder);
  EXPECT_EQ(namesIn(pane, ObjectKind::eEdits), QStringList({"Quay", "Pier", "Crane at the quay"}));
  const int by = sectionOf(pane, ObjectsModel::eSavedBy);
  EXPECT_EQ(view.model()->index(0, by).data().toString(), "ben");
  EXPECT_TRUE(view.model()->index(1, saved).data().toString().startsWith("24 Dec 2025"));
}

TEST(ObjectColumnsTest, ShowLengthAndSourceAndSortByTheLength) {
  const WithoutDisplay display;
  ObjectsPane pane;
  Snapshot snapshot = smallProject();
  ObjectRows edits = *snapshot.objects[0];
  edits[0].length = 10;  // "Quay", at no rate
  edits[1].length = 8.5;
  edits[1].rate = 30;
  edits[1].source = "quay\n7.mov";
  edits[1].sources = 3;
  edits[2].source = "crane.mov";  // and it cannot be read
  edits[2].sources = 1;
  snapshot.objects[0] = std::make_shared<const ObjectRows>(edits);
  pane.show(snapshot);
  QTreeView& view = pane.view(ObjectKind::eEdits);
  const int length = sectionOf(pane, ObjectsModel::eLength);
  view.sortByColumn(length, Qt::AscendingOrder);
  EXPECT_EQ(namesIn(pane, ObjectKind::eEdits), QStringList({"Crane at the quay", "Pier", "Quay"}));
  const auto textAt = [&view](int row, int section) {
    return view.model()->index(row, section).data().toString();
  };
  EXPECT_EQ(textAt(0, length), "");
  EXPECT_EQ(textAt(1, length), "00:00:08:15");
  EXPECT_EQ(textAt(2, length), "00:00:10:00");
  const int source = sectionOf(pane, ObjectsModel::eSource);
  EXPECT_EQ(textAt(0, source), "crane.mov");
  EXPECT_EQ(textAt(1, source), "quay 7.mov and 2 more");
  EXPECT_EQ(textAt(2, source), "");
  EXPECT_EQ(view.model()->headerData(length, Qt::Horizontal).toString(), "Length");
  EXPECT_EQ(view.model()->headerData(source, Qt::Horizontal).toString(), "Source");
  EXPECT_TRUE(view.model()->index(1, 0).data(Qt::ToolTipRole).toString().contains("Length"));
}

TEST(ObjectColumnsTest, AreHiddenByTheMenuAndRememberedWithTheOrder) {
  const WithoutDisplay display;
  const ScratchFolder folder;
  QSettings kept(QString::fromStdString(folder / "kept.ini"), QSettings::IniFormat);
  {
    ObjectsPane pane;
    pane.resize(1400, 400);
    pane.QWidget::show();
    pane.show(smallProject());
    const int owner = sectionOf(pane, ObjectsModel::eOwner);
    EXPECT_FALSE(pane.view(ObjectKind::eEdits).isColumnHidden(owner));
    QMenu menu;
    pane.offerColumns(menu);
    const QList<QAction*> entries = menu.actions();
    const auto found = std::ranges::find(entries, "Owner", &QAction::text);
    ASSERT_NE(found, entries.end());
    (*found)->trigger();
    EXPECT_TRUE(pane.view(ObjectKind::eEdits).isColumnHidden(owner));
    pane.view(ObjectKind::eEdits)
        .sortByColumn(sectionOf(pane, ObjectsModel::eSavedBy), Qt::DescendingOrder);
    pane.saveColumns(kept);
  }
  ObjectsPane again;
  again.resize(1400, 400);
  again.QWidget::show();
  again.restoreColumns(kept);
  again.show(smallProject());
  const QTreeView& view = again.view(ObjectKind::eEdits);
  EXPECT_TRUE(view.isColumnHidden(sectionOf(again, ObjectsModel::eOwner)));
  EXPECT_FALSE(view.isColumnHidden(sectionOf(again, ObjectsModel::eSavedBy)));
  EXPECT_EQ(namesIn(again, ObjectKind::eEdits).front(), "Quay");
  EXPECT_FALSE(again.view(ObjectKind::eBins).isColumnHidden(1)) << "each list has its own";
}

TEST(OpenBinTest, ShowsWhatIsInItAloneUntilAllIsWanted) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.QWidget::show();
  pane.show(smallProject());
  pane.setKind(ObjectKind::eBins);
  pane.showWithin(ObjectKind::eBins, "G1");
  EXPECT_EQ(pane.kind(), ObjectKind::eEdits);
  EXPECT_EQ(namesIn(pane, ObjectKind::eEdits), QStringList({"Crane at the quay", "Quay"}));
  const auto* const within = pane.findChild<QToolButton*>("within");
  EXPECT_TRUE(within->isVisible());
  EXPECT_TRUE(within->text().contains("Selects"));
  pane.show(smallProject({"E2"}));
  EXPECT_EQ(namesIn(pane, ObjectKind::eEdits), QStringList("Pier")) << "another changed the bin";
  pane.setKind(ObjectKind::eBins);
  EXPECT_TRUE(pane.findChild<QLabel*>("empty")->text().contains("Nothing of this kind is in it"));
  pane.setKind(ObjectKind::eEdits);
  QTest::keyClick(&pane.view(ObjectKind::eEdits), Qt::Key_Escape);
  EXPECT_EQ(namesIn(pane, ObjectKind::eEdits).size(), 3);
  EXPECT_FALSE(within->isVisible());
}

TEST(OpenBinTest, ThatIsGoneOrOfAnotherProjectIsClosed) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.QWidget::show();
  Snapshot without = smallProject();
  without.objects[1] = std::make_shared<const ObjectRows>();
  Snapshot other = smallProject();
  other.project.cookie = "P2";
  for (const Snapshot& next : {without, other}) {
    pane.show(smallProject());
    pane.showWithin(ObjectKind::eBins, "G1");
    EXPECT_EQ(namesIn(pane, ObjectKind::eEdits).size(), 2);
    pane.show(next);
    EXPECT_EQ(namesIn(pane, ObjectKind::eEdits).size(), 3);
    pane.show(smallProject());
    EXPECT_EQ(namesIn(pane, ObjectKind::eEdits).size(), 3) << "it stays closed when it is back";
  }
}

TEST(OpenBinTest, ARackOpensAtTheBinsThatAreInIt) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(smallProject());
  pane.showWithin(ObjectKind::eRacks, "B1");
  EXPECT_EQ(pane.kind(), ObjectKind::eBins);
  EXPECT_EQ(namesIn(pane, ObjectKind::eBins), QStringList("Rest"));
}

TEST(FilterFindsTest, NamesThatHaveItsText) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(smallProject());
  EXPECT_EQ(pane.namesWith("QUAY"), QStringList({"Quay", "Crane at the quay"}));
  EXPECT_EQ(pane.namesWith("rest"), QStringList("Rest"));
  EXPECT_TRUE(pane.namesWith("").isEmpty());
  pane.setKind(ObjectKind::eFilters);
  pane.showFound("quay");
  EXPECT_EQ(pane.kind(), ObjectKind::eEdits);
  EXPECT_EQ(namesIn(pane, ObjectKind::eEdits), QStringList({"Crane at the quay", "Quay"}));
}

TEST(BinDropTest, BinsAndRacksAloneTakeWhatIsDragged) {
  const WithoutDisplay display;
  ObjectsPane pane;
  pane.show(smallProject());
  QStringList told;
  QObject::connect(&pane, &ObjectsPane::dropped,
                   [&](ObjectKind kind, const QString& container, const QStringList& cookies) {
                     told << QString::fromStdString(familyOf(kind)) << container << cookies;
                   });
  ObjectsModel& edits = pane.model(ObjectKind::eEdits);
  ObjectsModel& bins = pane.model(ObjectKind::eBins);
  const std::unique_ptr<QMimeData> dragged(
      edits.mimeData({edits.index(0, 0), edits.index(0, 1), edits.index(2, 0)}));
  EXPECT_TRUE(edits.flags(edits.index(0, 0)) & Qt::ItemIsDragEnabled);
  EXPECT_FALSE(edits.dropMimeData(dragged.get(), Qt::CopyAction, -1, -1, edits.index(1, 0)));
  EXPECT_FALSE(bins.dropMimeData(dragged.get(), Qt::CopyAction, -1, -1, {})) << "beside all rows";
  QMimeData text;
  text.setText("E1");
  EXPECT_FALSE(bins.dropMimeData(&text, Qt::CopyAction, -1, -1, bins.index(1, 0)));
  EXPECT_TRUE(told.isEmpty());
  EXPECT_TRUE(bins.dropMimeData(dragged.get(), Qt::CopyAction, -1, -1, bins.index(1, 0)));
  EXPECT_EQ(told, QStringList({"bin", "G2", "E1", "E3"}));
}

class WindowBinsTest : public testing::Test, protected WindowScene {
 protected:
  WindowBinsTest() {
    script =
        "project create Harbour\nproject enter Harbour\nedit create Quay\nedit create Pier\n"
        "bin create Selects\nbin add Selects Quay\n";
  }

  static bool waitForEdits(MainWindow& window, std::size_t count) {
    return waitFor([&] { return window.objects().rows(ObjectKind::eEdits).size() == count; });
  }

  static void drop(MainWindow& window, const QStringList& files) {
    QMimeData data;
    QList<QUrl> urls;
    for (const QString& file : files) urls << QUrl::fromLocalFile(file);
    data.setUrls(urls);
    QDragEnterEvent enter(QPoint(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&window, &enter);
    EXPECT_TRUE(enter.isAccepted());
    QDropEvent event(QPointF(5, 5), Qt::CopyAction, &data, Qt::LeftButton, Qt::NoModifier);
    QCoreApplication::sendEvent(&window, &event);
  }
};

TEST_F(WindowBinsTest, OnesOwnFirstRackIsNoNews) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForEdits(window, 2));
    command(window, "project leave");
    ASSERT_TRUE(waitForProject(window, ""));
    command(window, "project enter Harbour");
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    command(window, "rack create Best");
    ASSERT_TRUE(waitFor([&] { return window.objects().rows(ObjectKind::eRacks).size() == 1; }));
    EXPECT_FALSE(window.objects().hasNews());
  });
}

TEST_F(WindowBinsTest, ImportIsAskedForOnceAtATime) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForEdits(window, 2));
    for (QAction* action : window.findChildren<QAction*>()) {
      if (action->shortcut() != QKeySequence(Qt::CTRL | Qt::Key_I)) continue;
      action->trigger();
      action->trigger();
    }
    const auto dialogs = window.findChildren<ActionDialog*>();
    EXPECT_EQ(dialogs.size(), 1);
    for (ActionDialog* each : dialogs) each->close();
  });
}

TEST_F(WindowBinsTest, FilesDroppedOnTheWindowAreImportedWithProgressAndASummary) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitForEdits(window, 2));
    const QString broken = QString::fromStdString(folder / "broken.otio");
    std::ofstream(folder / "broken.otio") << "{";
    QStringList texts;
    const QObject here;
    QObject::connect(&window.messages(), &MessageBar::tells, &here,
                     [&] { texts << window.messages().text(); });
    drop(window, {KV_DATA "/otio/simple_cut.otio", broken, KV_DATA "/otio/transition_test.otio"});
    ASSERT_TRUE(waitFor([&] {
      return window.messages().text().startsWith("2 edits are imported.");
    })) << window.messages().text().toStdString();
    EXPECT_TRUE(window.messages().text().contains("broken.otio"));
    EXPECT_TRUE(texts.contains("Importing 1 of 3: simple_cut.otio"))
        << texts.join('\n').toStdString();
    EXPECT_TRUE(waitForEdits(window, 4));
    drop(window, {KV_DATA "/otio/multitrack.otio"});
    EXPECT_TRUE(waitFor([&] { return window.messages().text().startsWith("One edit"); }))
        << "the count begins anew";
  });
}

TEST_F(WindowBinsTest, WithoutAProjectADropSaysWhatToDo) {
  script.clear();
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return window.snapshot() != nullptr; }));
    drop(window, {KV_DATA "/otio/simple_cut.otio"});
    EXPECT_EQ(window.messages().text(), "Open a project first.");
  });
}

TEST_F(WindowBinsTest, ADuplicateHasANameOfItsOwnAndIsChosen) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForEdits(window, 2));
    for (const char* name : {"Quay copy", "Quay copy 2"}) {
      clickEdit(window, "Quay");
      QTest::keyClick(&window, Qt::Key_D, Qt::ControlModifier);
      ASSERT_TRUE(waitFor([&] { return !keyOf(window, name).isEmpty(); })) << name;
      EXPECT_TRUE(waitFor([&] { return window.objects().chosen().front().name == name; }));
    }
  });
}

TEST_F(WindowBinsTest, ACopyIsSavedUnderTheNameThatIsTyped) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForEdits(window, 2));
    clickEdit(window, "Quay");
    window.menus().action("edit save-copy {object} {0}")->trigger();
    const auto dialog = [&] { return window.findChild<QDialog*>("actionDialog"); };
    ASSERT_TRUE(waitFor([&] { return dialog() && dialog()->isVisible(); }));
    dialog()->findChild<QLineEdit*>()->setText(QString::fromUtf8("Düne 5 €"));
    ASSERT_TRUE(answer(window, "actionDialog", "Save a copy"));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, QString::fromUtf8("Düne 5 €")).isEmpty(); }));
    EXPECT_FALSE(keyOf(window, "Quay").isEmpty());
  });
}

TEST_F(WindowBinsTest, ReturnOpensABinAndWhatIsDroppedOnItIsPutIn) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForEdits(window, 2));
    ObjectsPane& objects = window.objects();
    ASSERT_TRUE(waitFor([&] { return objects.rows(ObjectKind::eBins).size() == 1; }));
    objects.choose(ObjectKind::eBins, objects.rows(ObjectKind::eBins)[0].key);
    QTest::keyClick(&objects.view(ObjectKind::eBins), Qt::Key_Return);
    ASSERT_TRUE(waitFor([&] { return objects.kind() == ObjectKind::eEdits; }));
    EXPECT_EQ(namesIn(objects, ObjectKind::eEdits), QStringList("Quay"));
    ObjectsModel& edits = objects.model(ObjectKind::eEdits);
    const std::unique_ptr<QMimeData> pier(
        edits.mimeData({edits.index(edits.rowOf(keyOf(window, "Pier")), 0)}));
    ObjectsModel& bins = objects.model(ObjectKind::eBins);
    ASSERT_TRUE(bins.dropMimeData(pier.get(), Qt::CopyAction, -1, -1, bins.index(0, 0)));
    EXPECT_TRUE(waitFor([&] { return namesIn(objects, ObjectKind::eEdits).size() == 2; }));
  });
}

}  // namespace

}  // namespace korvel
