#include <gtest/gtest.h>

#include <QAction>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPlainTextEdit>
#include <QPointer>
#include <QToolButton>
#include <QTreeWidget>

#include "app/window/Dialogs.h"
#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

class WindowTrashTest : public testing::Test, protected WindowScene {
 protected:
  WindowTrashTest() {
    script = "project create Harbour\nproject enter Harbour\nedit create Quay\nedit create " +
             longName_ + "\n";
  }

  void waitForEdits(MainWindow& window) const {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, longName()).isEmpty(); }));
  }

  /// Deletes an edit as a user does, with the key and the dialog.
  static void deleteByKey(MainWindow& window, const QString& name) {
    clickEdit(window, name);
    QTest::keyClick(&window.objects().view(ObjectKind::eEdits), Qt::Key_Delete);
    ASSERT_TRUE(waitFor([&] { return answer(window, "deleteDialog", "Delete"); }));
    ASSERT_TRUE(waitFor([&] { return keyOf(window, name).isEmpty(); }));
    QApplication::setActiveWindow(&window);
  }

  static TrashDialog* openTrash(MainWindow& window) {
    QTest::keyClick(&window, Qt::Key_T, Qt::ControlModifier | Qt::ShiftModifier);
    waitFor([&] { return window.findChild<TrashDialog*>() != nullptr; });
    return window.findChild<TrashDialog*>();
  }

  /// BEN's "Reel" is open here, and BEN deletes it.
  static void haveReelDeleted(MainWindow& window, StationProcess& ben) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    ASSERT_TRUE(ben.command("edit create Reel")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Reel").isEmpty(); }));
    window.link().run("edit open Reel");
    ASSERT_TRUE(waitFor([&] { return window.objects().find(keyOf(window, "Reel"))->isOpen; }));
    ASSERT_TRUE(ben.command("edit delete Reel")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return window.recovery().isVisible(); }));
  }

  [[nodiscard]] QString longName() const { return QString::fromStdString(longName_); }

  const std::string longName_ = "M\xc3\xb6we\xe2\x82\xac" + std::string(295, 'x');
};

TEST_F(WindowTrashTest, DeletingNamesWhoElseHasItOpen) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    waitForEdits(window);
    ASSERT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    ASSERT_TRUE(ben.command("edit open Quay")["ok"].asBool());
    bool isKnown = false;
    ASSERT_TRUE(waitFor([&] {
      window.link().askOpeners({keyOf(window, "Quay")}, [&isKnown](const auto& openers) {
        isKnown = isKnown || !openers.isEmpty();
      });
      return isKnown;
    }));
    clickEdit(window, "Quay");
    QTest::keyClick(&window.objects().view(ObjectKind::eEdits), Qt::Key_Delete);
    QPointer<QDialog> dialog;
    ASSERT_TRUE(waitFor([&] { return dialog = window.findChild<QDialog*>("deleteDialog"); }));
    const auto* const things = dialog->findChild<QListWidget*>("things");
    EXPECT_TRUE(waitFor([&] { return things->item(0)->text() == "Quay, open at BEN"; }))
        << things->item(0)->text().toStdString();
    EXPECT_TRUE(dialog->findChild<QLabel*>("question")->text().contains("trash"));
    ASSERT_TRUE(answer(window, "deleteDialog", "Cancel"));
  });
}

TEST_F(WindowTrashTest, UndoBringsBackWhatWasDeleted) {
  play([this](MainWindow& window) {
    waitForEdits(window);
    deleteByKey(window, longName());
    ASSERT_TRUE(waitFor([&] { return window.messages().button().isVisible(); }));
    EXPECT_EQ(window.messages().button().text(), "Undo");
    QTest::mouseClick(&window.messages().button(), Qt::LeftButton);
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, longName()).isEmpty(); }));
  });
}

TEST_F(WindowTrashTest, TheTrashIsListedTakenBackFromAndEmptied) {
  play([this](MainWindow& window) {
    waitForEdits(window);
    deleteByKey(window, "Quay");
    deleteByKey(window, longName());
    TrashDialog* const trash = openTrash(window);
    ASSERT_TRUE(trash);
    ASSERT_TRUE(waitFor([&] { return trash->rows().size() == 2; }));
    EXPECT_EQ(trash->rows()[1].name, "Quay");
    EXPECT_EQ(trash->rows()[1].by, "ANNA");
    EXPECT_EQ(trash->rows()[1].kind, "edit");
    EXPECT_TRUE(trash->rows()[1].deleted.isValid());
    EXPECT_EQ(trash->chosen(), QStringList(trash->rows()[0].key)) << "what was deleted last";
    ASSERT_TRUE(answer(window, "trashDialog", "Restore"));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, longName()).isEmpty(); }));
    EXPECT_TRUE(waitFor([&] { return trash->rows().size() == 1; }));
    ASSERT_TRUE(answer(window, "trashDialog", "Empty"));
    ASSERT_TRUE(waitFor([&] { return answer(window, "emptyDialog", "Cancel"); }));
    EXPECT_FALSE(waitFor([&] { return trash->rows().empty(); }, 500)) << "it was not to be";
    ASSERT_TRUE(answer(window, "trashDialog", "Empty"));
    ASSERT_TRUE(waitFor([&] { return answer(window, "emptyDialog", "Empty"); }));
    EXPECT_TRUE(waitFor([&] { return trash->rows().empty(); }));
    EXPECT_TRUE(keyOf(window, "Quay").isEmpty());
  });
}

TEST_F(WindowTrashTest, TheTrashKeepsWhatIsChosenWhileItShrinks) {
  const WithoutDisplay toolkit;
  TrashDialog trash(nullptr);
  TrashContent content;
  for (const char* key : {"E1.a", "E2.b", "E3.c"}) {
    TrashRow row;
    row.key = row.name = key;
    content.rows.push_back(row);
  }
  trash.take(std::make_shared<const TrashContent>(content));
  trash.list().selectAll();
  content.rows.erase(content.rows.begin());
  trash.take(std::make_shared<const TrashContent>(content));
  EXPECT_EQ(trash.chosen(), QStringList({"E2.b", "E3.c"}));
  trash.take(std::make_shared<const TrashContent>());
  EXPECT_EQ(trash.chosen(), QStringList());
  EXPECT_EQ(trash.findChild<QLabel*>("trashHint")->text(), "The trash is empty.");
}

TEST_F(WindowTrashTest, WhatAnotherDeletesIsToldAndSavedAsACopy) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    haveReelDeleted(window, ben);
    EXPECT_TRUE(window.recovery().text().startsWith("BEN deleted \"Reel\"."))
        << window.recovery().text().toStdString();
    const QString before = keyOf(window, "Reel");
    QTest::mouseClick(&window.recovery().button(0), Qt::LeftButton);
    QPointer<QDialog> dialog;
    ASSERT_TRUE(waitFor([&] { return dialog = window.findChild<QDialog*>("actionDialog"); }));
    EXPECT_EQ(dialog->findChild<QLineEdit*>()->text(), "Reel");
    ASSERT_TRUE(answer(window, "actionDialog", "Save a copy"));
    EXPECT_TRUE(waitFor([&] {
      const QString now = keyOf(window, "Reel");
      return !now.isEmpty() && now != before && !window.objects().find(before);
    }));
  });
}

TEST_F(WindowTrashTest, WhatAnotherDeletedCanBeLetGo) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    haveReelDeleted(window, ben);
    QTest::mouseClick(&window.recovery().button(1), Qt::LeftButton);
    EXPECT_TRUE(waitFor([&] { return keyOf(window, "Reel").isEmpty(); }));
    EXPECT_FALSE(window.recovery().isVisible());
  });
}

TEST_F(WindowTrashTest, WhatAnotherBringsBackIsNoLongerToldAsDeleted) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    haveReelDeleted(window, ben);
    ASSERT_TRUE(ben.command("undo")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return !window.recovery().isVisible(); }))
        << window.recovery().text().toStdString();
    EXPECT_FALSE(keyOf(window, "Reel").isEmpty());
  });
}

TEST_F(WindowTrashTest, WhatComesBackUnchangedIsNotToldAsChanged) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    haveReelDeleted(window, ben);
    const QString reel = keyOf(window, "Reel");
    clickEdit(window, "Reel");
    ASSERT_EQ(window.detail().key(), reel);
    for (const char* line : {"undo", "redo", "undo"}) {
      EXPECT_TRUE(ben.command(line)["ok"].asBool());
      const bool isGone = line == std::string("redo");
      EXPECT_TRUE(waitFor([&] { return window.objects().find(reel)->isDeleted == isGone; }));
      QTest::qWait(500);  // what follows would be told by now
      EXPECT_TRUE(window.detail().changeBar().isHidden()) << line;
    }
    EXPECT_FALSE(window.objects().hasNews());
    EXPECT_TRUE(ben.command("edit rename Reel Coil")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return !window.detail().changeBar().isHidden(); }));
    EXPECT_TRUE(ben.command("edit delete Coil")["ok"].asBool());
    EXPECT_TRUE(waitFor([&] { return window.recovery().isVisible(); }));
    EXPECT_TRUE(waitFor([&] { return window.detail().changeBar().isHidden(); }));
  });
}

TEST_F(WindowTrashTest, WhatIsBackIsChosenAndNamedInWords) {
  play([this](MainWindow& window) {
    waitForEdits(window);
    deleteByKey(window, longName());
    ASSERT_TRUE(waitFor([&] { return window.messages().button().isVisible(); }));
    QTest::mouseClick(&window.messages().button(), Qt::LeftButton);
    EXPECT_TRUE(waitFor([&] {
      const auto chosen = window.objects().chosen();
      return !chosen.empty() && chosen.front().name == longName();
    }));
    EXPECT_EQ(window.messages().text(), "Brought back from the trash.");
  });
}

TEST_F(WindowTrashTest, AStepThatIsUndoneIsSeenBelowTheList) {
  play([this](MainWindow& window) {
    waitForEdits(window);
    command(window, "bin create Rushes");
    ASSERT_TRUE(waitFor([&] { return !window.objects().rows(ObjectKind::eBins).empty(); }));
    window.objects().choose(ObjectKind::eBins,
                            window.objects().rows(ObjectKind::eBins).front().key);
    command(window, "bin add Rushes Quay");
    const auto words = [&window] {
      return window.detail().findChild<QPlainTextEdit*>()->toPlainText();
    };
    EXPECT_TRUE(waitFor([&] { return words() == "Quay"; })) << words().toStdString();
    command(window, "undo");
    EXPECT_TRUE(waitFor([&] { return words() == "It is empty."; })) << words().toStdString();
  });
}

QAction* stepAction(const MainWindow& window, const char* key) {
  for (QAction* action : window.findChildren<QAction*>()) {
    if (action->shortcut() == QKeySequence(QString::fromLatin1(key))) return action;
  }
  return nullptr;
}

TEST_F(WindowTrashTest, TheEditMenuNamesTheStepThatItUndoesAndDoesAgain) {
  play([this](MainWindow& window) {
    waitForEdits(window);
    QAction* const undo = stepAction(window, "Ctrl+Z");
    QAction* const redo = stepAction(window, "Ctrl+Shift+Z");
    ASSERT_TRUE(undo && redo);
    window.link().run("edit rename Quay \"Salt & Pepper\"");
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Salt & Pepper").isEmpty(); }));
    ASSERT_TRUE(waitFor([&] { return undo->text().contains("rename"); }))
        << undo->text().toStdString();
    EXPECT_FALSE(redo->isEnabled());
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    ASSERT_TRUE(waitFor([&] { return redo->isEnabled(); }));
    EXPECT_TRUE(redo->text().startsWith("Redo ")) << redo->text().toStdString();
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Salt & Pepper").isEmpty(); }));
    deleteByKey(window, longName());
    ASSERT_TRUE(waitFor([&] { return undo->text().endsWith(QChar(0x2026)); }))
        << "a long name is cut: " << undo->text().toStdString();
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, longName()).isEmpty(); }));
  });
}

}  // namespace

}  // namespace korvel
