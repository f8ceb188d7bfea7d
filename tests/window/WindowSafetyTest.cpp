#include <gtest/gtest.h>

#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QPushButton>
#include <fstream>
#include <iterator>

#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

constexpr const char* kTwoProjects =
    "project create Harbour\n"
    "project create Trailer\n"
    "project enter Harbour\n"
    "edit create Quay\n"
    "edit create Pier\n";

/// The dialog of this name, once it is there.
QPointer<QDialog> dialogOf(MainWindow& window, const char* name) {
  QPointer<QDialog> dialog;
  waitFor([&] { return (dialog = window.findChild<QDialog*>(name)) != nullptr; });
  return dialog;
}

/// Nobody manages windows on a test's display: the keyboard comes back to the window by hand.
void comeBack(MainWindow& window) { QApplication::setActiveWindow(&window); }

QStringList thingsOf(const QDialog& dialog) {
  QStringList things;
  const auto* list = dialog.findChild<QListWidget*>("things");
  for (int i = 0; list && i < list->count(); ++i) things.append(list->item(i)->text());
  return things;
}

bool isDirty(const MainWindow& window, const QString& name) {
  for (const ObjectRow& row : window.objects().rows(ObjectKind::eEdits)) {
    if (row.name == name) return row.isDirty;
  }
  return false;
}

class WindowSafetyTest : public testing::Test, protected WindowScene {
 protected:
  WindowSafetyTest() { script = kTwoProjects; }

  /// The project is open and its edit has a change that is not saved.
  static bool changeQuay(MainWindow& window) {
    if (!waitFor([&] { return !keyOf(window, "Pier").isEmpty(); })) return false;
    window.link().run("edit rename Quay Dock");
    return waitFor([&] { return isDirty(window, "Dock"); });
  }
};

TEST_F(WindowSafetyTest, DeleteActsOnTheFocusedListAlone) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    window.projects().projects().setCurrentIndex(window.projects().projects().model()->index(0, 0));
    clickEdit(window, "Quay");
    for (QWidget* other : std::initializer_list<QWidget*>{
             &window.detail().view(), &window.projects().projects(), &window.projects().rooms()}) {
      other->setFocus();
      QTest::keyClick(other, Qt::Key_Delete);
      EXPECT_FALSE(waitFor([&] { return window.findChild<QDialog*>("deleteDialog"); }, 300))
          << other->objectName().toStdString();
    }
    QTreeView& edits = window.objects().view(ObjectKind::eEdits);
    edits.setFocus();
    QTest::keyClick(&edits, Qt::Key_Delete);
    EXPECT_TRUE(dialogOf(window, "deleteDialog"));
  });
}

TEST_F(WindowSafetyTest, DeletingNamesWhatGoesAndWaitsForTheAnswer) {
  play([](MainWindow& window) {
    ASSERT_TRUE(changeQuay(window));
    clickEdit(window, "Dock");
    QTreeView& edits = window.objects().view(ObjectKind::eEdits);
    QTest::keyClick(&edits, Qt::Key_Delete);
    QPointer<QDialog> dialog = dialogOf(window, "deleteDialog");
    ASSERT_TRUE(dialog);
    ASSERT_EQ(thingsOf(*dialog).size(), 1);
    EXPECT_TRUE(thingsOf(*dialog).front().startsWith("Dock ("));
    EXPECT_TRUE(thingsOf(*dialog).front().contains("unsaved changes"));
    QTest::keyClick(dialog, Qt::Key_Return);
    EXPECT_TRUE(waitFor([&] { return dialog.isNull(); })) << "Return cancels";
    EXPECT_FALSE(keyOf(window, "Dock").isEmpty());
    comeBack(window);
    QTest::keyClick(&edits, Qt::Key_Delete);
    ASSERT_TRUE(waitFor([&] { return answer(window, "deleteDialog", "Delete"); }));
    EXPECT_TRUE(waitFor([&] { return keyOf(window, "Dock").isEmpty(); }));
    EXPECT_TRUE(waitFor([&] { return window.messages().text().contains("Dock"); }));
    EXPECT_FALSE(keyOf(window, "Pier").isEmpty());
  });
}

TEST_F(WindowSafetyTest, LeavingAsksAboutUnsavedChangesAndCancelStays) {
  play([](MainWindow& window) {
    ASSERT_TRUE(changeQuay(window));
    command(window, "project leave");
    const QPointer<QDialog> dialog = dialogOf(window, "unsavedDialog");
    ASSERT_TRUE(dialog);
    EXPECT_EQ(thingsOf(*dialog), QStringList("Dock"));
    ASSERT_TRUE(answer(window, "unsavedDialog", "Cancel"));
    EXPECT_TRUE(waitFor([&] { return dialog.isNull(); }));
    EXPECT_EQ(window.snapshot()->project.name, "Harbour");
    EXPECT_TRUE(isDirty(window, "Dock"));
  });
}

TEST_F(WindowSafetyTest, SwitchingProjectsSavesWhatIsToBeSaved) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(changeQuay(window));
    QTreeView& list = window.projects().projects();
    list.setCurrentIndex(list.model()->index(1, 0));
    QTest::keyClick(&list, Qt::Key_Return);
    ASSERT_TRUE(waitFor([&] { return answer(window, "unsavedDialog", "Save"); }));
    EXPECT_TRUE(waitForProject(window, "Trailer"));
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    EXPECT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    EXPECT_TRUE(ben.command("edit show Dock")["ok"].asBool());
  });
}

TEST_F(WindowSafetyTest, LeavingWithDiscardLeavesTheFileAsItWas) {
  play([](MainWindow& window) {
    ASSERT_TRUE(changeQuay(window));
    command(window, "project leave");
    ASSERT_TRUE(waitFor([&] { return answer(window, "unsavedDialog", "Discard"); }));
    ASSERT_TRUE(waitForProject(window, ""));
    command(window, "project enter Harbour");
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
  });
}

TEST_F(WindowSafetyTest, ClosingTheWindowAsksAndCancelKeepsItOpen) {
  play([](MainWindow& window) {
    ASSERT_TRUE(changeQuay(window));
    window.close();
    EXPECT_TRUE(window.messages().isVisible()) << "it may take as long as the host thread does";
    ASSERT_TRUE(dialogOf(window, "unsavedDialog"));
    EXPECT_FALSE(window.messages().isVisible()) << "nothing stands behind the question";
    ASSERT_TRUE(answer(window, "unsavedDialog", "Cancel"));
    EXPECT_TRUE(waitFor([&] { return !window.messages().isVisible(); }));
    EXPECT_TRUE(window.isVisible());
    EXPECT_TRUE(isDirty(window, "Dock"));
  });
}

// The scene answers that changes are discarded, and closes the window in the same moment.
TEST_F(WindowSafetyTest, TheWindowClosesRightAfterLeavingWasAnswered) {
  EXPECT_EQ(play([](MainWindow& window) {
              ASSERT_TRUE(changeQuay(window));
              command(window, "project leave");
              ASSERT_TRUE(dialogOf(window, "unsavedDialog"));
            }),
            0);
}

TEST_F(WindowSafetyTest, ASaveThatIsRefusedLeavesNothing) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(changeQuay(window));
    const std::string project = window.snapshot()->project.cookie.toStdString();
    const auto there = folder / ("projects/" + project);
    std::filesystem::rename(there, there + ".gone");
    command(window, "project leave");
    ASSERT_TRUE(waitFor([&] { return answer(window, "unsavedDialog", "Save"); }));
    EXPECT_TRUE(waitFor([&] { return window.messages().text().contains("not saved"); }))
        << window.messages().text().toStdString();
    EXPECT_EQ(window.snapshot()->project.name, "Harbour");
    EXPECT_TRUE(isDirty(window, "Dock"));
    std::filesystem::rename(there + ".gone", there);
  });
}

TEST_F(WindowSafetyTest, GivingFillsNothingInAndOffersEverybodyElse) {
  script += "user add ANNA\nuser add BEN\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    // The script's last line, which comes after the edits.
    ASSERT_TRUE(waitFor(
        [&] { return window.snapshot()->owners && window.snapshot()->owners->contains("BEN"); }));
    clickEdit(window, "Pier");
    QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier);
    const QPointer<QDialog> dialog = dialogOf(window, "actionDialog");
    ASSERT_TRUE(dialog);
    auto* const owner = dialog->findChild<QComboBox*>();
    EXPECT_EQ(owner->currentText(), "");
    EXPECT_EQ(owner->findText("ANNA"), -1) << "oneself";
    EXPECT_GE(owner->findText("BEN"), 0);
    QTest::keyClicks(owner->lineEdit(), "BEN");
    EXPECT_EQ(owner->currentText(), "BEN");
    ASSERT_TRUE(answer(window, "actionDialog", "Give to"));
    const auto ownerOfPier = [&] {
      for (const ObjectRow& row : window.objects().rows(ObjectKind::eEdits)) {
        if (row.name == "Pier") return row.owner;
      }
      return QString();
    };
    EXPECT_TRUE(waitFor([&] { return ownerOfPier() == "BEN"; })) << ownerOfPier().toStdString();
  });
}

TEST_F(WindowSafetyTest, WhatWasRefusedIsAskedOnceMoreWithWhatWasTyped) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    clickEdit(window, "Pier");
    QTest::keyClick(&window, Qt::Key_F2);
    const QString tooLong(1100, 'x');
    const QPointer<QDialog> dialog = dialogOf(window, "actionDialog");
    ASSERT_TRUE(dialog);
    dialog->findChild<QLineEdit*>()->setText(tooLong);
    ASSERT_TRUE(answer(window, "actionDialog", "Rename"));
    QLabel* reason = nullptr;
    ASSERT_TRUE(waitFor([&] { return reason = window.findChild<QLabel*>("reason"); }));
    EXPECT_FALSE(reason->text().isEmpty());
    auto* const typed = reason->parentWidget()->findChild<QLineEdit*>();
    EXPECT_EQ(typed->text(), tooLong);
    typed->setText("Mole");
    ASSERT_TRUE(waitFor([&] { return !dialog; }));
    ASSERT_TRUE(answer(window, "actionDialog", "Rename"));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Mole").isEmpty(); }));
  });
}

TEST_F(WindowSafetyTest, GivingToAnUnknownOrReservedNameIsAskedAbout) {
  script += "user add BEN\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    clickEdit(window, "Pier");
    for (const QString& name : {QString("render"), QString("ben"), QString("GHOST")}) {
      QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier);
      QPointer<QDialog> dialog = dialogOf(window, "actionDialog");
      ASSERT_TRUE(dialog);
      QTest::keyClicks(dialog->findChild<QComboBox*>()->lineEdit(), name);
      ASSERT_TRUE(answer(window, "actionDialog", "Give to"));
      const QPointer<QDialog> doubt = dialogOf(window, "giveDialog");
      ASSERT_TRUE(doubt) << name.toStdString();
      EXPECT_TRUE(doubt->findChild<QLabel*>("question")->text().contains(name));
      ASSERT_TRUE(answer(window, "giveDialog", "Cancel"));
      EXPECT_TRUE(waitFor([&] { return doubt.isNull() && dialog.isNull(); }));
      comeBack(window);
    }
    EXPECT_EQ(window.snapshot()->objects[0]->size(), 2U);
    for (const ObjectRow& row : *window.snapshot()->objects[0]) EXPECT_EQ(row.owner, "ANNA");
  });
}

TEST_F(WindowSafetyTest, AGiftThatIsRefusedKeepsTheNameThatWasTyped) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    clickEdit(window, "Pier");
    QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier);
    const QPointer<QDialog> dialog = dialogOf(window, "actionDialog");
    ASSERT_TRUE(dialog);
    const QString name = QString::fromUtf8("GH€ST");  // messages cannot carry it
    dialog->findChild<QComboBox*>()->setEditText(name);
    ASSERT_TRUE(answer(window, "actionDialog", "Give to"));
    ASSERT_TRUE(dialogOf(window, "giveDialog"));
    ASSERT_TRUE(answer(window, "giveDialog", "Give all the same"));
    QLabel* reason = nullptr;
    ASSERT_TRUE(waitFor([&] { return reason = window.findChild<QLabel*>("reason"); }));
    EXPECT_TRUE(reason->text().contains("separates")) << reason->text().toStdString();
    EXPECT_EQ(reason->parentWidget()->findChild<QComboBox*>()->currentText(), name);
  });
}

TEST_F(WindowSafetyTest, TheFocusOfAQuestionShowsWhatReturnDoes) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    clickEdit(window, "Pier");
    QTest::keyClick(&window.objects().view(ObjectKind::eEdits), Qt::Key_Delete);
    const QPointer<QDialog> dialog = dialogOf(window, "deleteDialog");
    ASSERT_TRUE(dialog);
    const auto* const button = qobject_cast<QPushButton*>(dialog->focusWidget());
    ASSERT_TRUE(button) << "the focus is in no button";
    EXPECT_TRUE(button->isDefault()) << button->text().toStdString();
    QTest::keyClick(dialog, Qt::Key_Return);
    EXPECT_TRUE(waitFor([&] { return dialog.isNull(); }));
    EXPECT_FALSE(keyOf(window, "Pier").isEmpty());
  });
}

TEST_F(WindowSafetyTest, WhoIsHereCanBeGivenAnEditWithoutAUserList) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(waitFor([&] {
      const auto& owners = window.snapshot() ? window.snapshot()->owners : nullptr;
      return owners && owners->contains("BEN") && !keyOf(window, "Pier").isEmpty();
    }));
    clickEdit(window, "Pier");
    QTest::keyClick(&window, Qt::Key_G, Qt::ControlModifier);
    const QPointer<QDialog> dialog = dialogOf(window, "actionDialog");
    ASSERT_TRUE(dialog);
    EXPECT_GE(dialog->findChild<QComboBox*>()->findText("BEN"), 0);
    QTest::keyClicks(dialog->findChild<QComboBox*>()->lineEdit(), "BEN");
    ASSERT_TRUE(answer(window, "actionDialog", "Give to"));
    EXPECT_TRUE(waitFor([&] {
      for (const ObjectRow& row : window.objects().rows(ObjectKind::eEdits)) {
        if (row.name == "Pier" && row.owner == "BEN") return true;
      }
      return false;
    })) << window.messages().text().toStdString();
    EXPECT_FALSE(window.findChild<QDialog*>("giveDialog"));
  });
}

TEST_F(WindowSafetyTest, WhatAnotherHasNotSavedIsNotAskedAboutOnLeaving) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    ASSERT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    ASSERT_TRUE(ben.command("edit create Wharf")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Wharf").isEmpty(); }));
    clickEdit(window, "Wharf");
    window.link().run("edit open Wharf");
    ASSERT_TRUE(waitFor([&] { return window.objects().chosen().front().isOpen; }));
    ASSERT_TRUE(ben.command("edit rename Wharf Jetty")["ok"].asBool());
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Jetty").isEmpty(); }));
    const ObjectRow shown = window.objects().chosen().front();
    EXPECT_FALSE(shown.isDirty) << "they are BEN's changes";
    EXPECT_TRUE(shown.isUnsavedElsewhere);
    QTest::keyClick(&window, Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(waitForProject(window, ""));
    EXPECT_FALSE(window.findChild<QDialog*>("unsavedDialog"));
  });
}

std::string contentOf(const std::string& path) {
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

TEST_F(WindowSafetyTest, AnExportAsksBeforeItReplacesAFile) {
  play([this](MainWindow& window) {
    const std::string there = folder / "cut of friday.otio";
    std::ofstream(there) << "Friday";
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    clickEdit(window, "Pier");
    for (const bool isToBe : {false, true}) {
      comeBack(window);
      QTest::keyClick(&window, Qt::Key_E, Qt::ControlModifier | Qt::ShiftModifier);
      const QPointer<QDialog> dialog = dialogOf(window, "actionDialog");
      ASSERT_TRUE(dialog);
      dialog->findChild<QLineEdit*>()->setText(QString::fromStdString(there));
      ASSERT_TRUE(answer(window, "actionDialog", "Export"));
      const QPointer<QDialog> question = dialogOf(window, "replaceDialog");
      ASSERT_TRUE(question);
      EXPECT_EQ(thingsOf(*question), QStringList(QString::fromStdString(there)));
      EXPECT_EQ(contentOf(there), "Friday");
      ASSERT_TRUE(answer(window, "replaceDialog", isToBe ? "Replace" : "Cancel"));
      EXPECT_TRUE(waitFor([&] { return question.isNull() && dialog.isNull(); }));
    }
    EXPECT_TRUE(waitFor([&] { return contentOf(there) != "Friday"; }));
    EXPECT_TRUE(waitFor([&] {
      return window.messages().text().contains(QString::fromStdString(there));
    })) << window.messages().text().toStdString();
  });
}

TEST_F(WindowSafetyTest, ASecondProjectOrEditOfOneNameIsAskedAbout) {
  script += "edit create Twin\n";
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Twin").isEmpty(); }));
    const auto count = [&window] { return window.objects().rows(ObjectKind::eEdits).size(); };
    const std::size_t before = count();
    const auto typeName = [&window](Qt::Key key, const QString& name) {
      comeBack(window);
      QTest::keyClick(&window, key, Qt::ControlModifier);
      const QPointer<QDialog> dialog = dialogOf(window, "actionDialog");
      ASSERT_TRUE(dialog);
      dialog->findChild<QLineEdit*>()->setText(name);
      QTest::keyClick(dialog, Qt::Key_Return);
      ASSERT_TRUE(waitFor([&] { return dialog.isNull(); }));
    };
    for (const Qt::Key key : {Qt::Key_E, Qt::Key_L, Qt::Key_N}) {
      typeName(key, key == Qt::Key_N ? "Harbour" : "Twin");
      ASSERT_TRUE(dialogOf(window, "nameDialog")) << key;
      ASSERT_TRUE(answer(window, "nameDialog", "Cancel"));
      ASSERT_TRUE(waitFor([&] { return !window.findChild<QDialog*>("nameDialog"); }));
    }
    EXPECT_EQ(count(), before);
    typeName(Qt::Key_E, "Twin");
    ASSERT_TRUE(dialogOf(window, "nameDialog"));
    ASSERT_TRUE(answer(window, "nameDialog", "Use it all the same"));
    EXPECT_TRUE(waitFor([&] { return count() == before + 1; }));
  });
}

TEST_F(WindowSafetyTest, AProjectMadeHereIsChosenAndReturnAndCtrlOOpenIt) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitForProject(window, "Harbour"));
    command(window, "project create Alley");
    QTreeView& list = window.projects().projects();
    EXPECT_TRUE(waitFor([&] {
      const auto chosen = window.projects().chosenProject();
      return chosen && chosen->name == "Alley" && window.focusWidget() == &list;
    }));
    QTest::keyClick(&list, Qt::Key_Return);
    EXPECT_TRUE(waitForProject(window, "Alley"));
    command(window, "project create Beach");
    EXPECT_TRUE(waitFor([&] {
      const auto chosen = window.projects().chosenProject();
      return chosen && chosen->name == "Beach" && window.focusWidget() == &list;
    }));
    QApplication::setActiveWindow(&window);
    QTest::keyClick(&list, Qt::Key_O, Qt::ControlModifier);
    EXPECT_TRUE(waitForProject(window, "Beach"));
  });
}

TEST_F(WindowSafetyTest, OfTwoOfOneNameTheQuestionSaysWhichIsUnsaved) {
  play([](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    const QString pier = keyOf(window, "Pier");
    window.link().run("edit rename Pier Quay");
    ASSERT_TRUE(waitFor([&] { return keyOf(window, "Pier").isEmpty(); }));
    command(window, "project leave");
    const auto dialog = dialogOf(window, "unsavedDialog");
    ASSERT_TRUE(dialog);
    ASSERT_EQ(thingsOf(*dialog).size(), 1);
    EXPECT_TRUE(thingsOf(*dialog).front().startsWith("Quay")) << thingsOf(*dialog)[0].toStdString();
    EXPECT_TRUE(thingsOf(*dialog).front().contains(pier.left(9)));
    ASSERT_TRUE(answer(window, "unsavedDialog", "Cancel"));
    EXPECT_TRUE(waitFor([&] { return dialog.isNull(); }));
  });
}

}  // namespace

}  // namespace korvel
