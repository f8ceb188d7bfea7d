#include <gtest/gtest.h>

#include <QDialog>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QPointer>
#include <QToolButton>
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "app/window/HistoryPane.h"
#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

QPointer<QDialog> keepingDialog(MainWindow& window, const char* name) {
  QPointer<QDialog> dialog;
  waitFor([&] { return (dialog = window.findChild<QDialog*>(name)) != nullptr; });
  return dialog;
}

QString questionOf(const QDialog& dialog) { return dialog.findChild<QLabel*>("question")->text(); }

bool isUnsaved(const MainWindow& window, const QString& name) {
  for (const ObjectRow& row : window.objects().rows(ObjectKind::eEdits)) {
    if (row.name == name) return row.isDirty;
  }
  return false;
}

/// ANNA's "Quay", which another saves without a word while she changes it.
class WindowConflictTest : public testing::Test, protected WindowScene {
 protected:
  WindowConflictTest() {
    script =
        "project create Harbour\nproject enter Harbour\nedit create Wharf\n"
        "edit rename Wharf Quay\nedit save Quay\n";
  }

  /// Quay is called "Dock" here, unsaved, and "Pier" in its file, saved by BEN.
  void makeConflict(MainWindow& window) const {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    window.link().run("edit rename Quay Dock");
    ASSERT_TRUE(waitFor([&] { return isUnsaved(window, "Dock"); }));
    const std::filesystem::path file = fileOf(window);
    std::ifstream in(file);
    std::string text{std::istreambuf_iterator<char>(in), {}};
    text.replace(text.find("Quay"), 4, "Pier");
    if (const auto by = text.find("\"ANNA\"", text.find("saved")); by != std::string::npos) {
      text.replace(by, 6, "\"BEN\"");
    }
    std::ofstream(file.string() + ".new") << text;
    std::filesystem::rename(file.string() + ".new", file);
    clickEdit(window, "Dock");
  }

  std::filesystem::path fileOf(const MainWindow& window) const {
    const std::string project = window.snapshot()->project.cookie.toStdString();
    const std::string edit = window.objects().rows(ObjectKind::eEdits)[0].cookie.toStdString();
    return folder / ("projects/" + project + "/" + edit + ".otio");
  }

  /// The dialog that a save with its key leads to.
  static QPointer<QDialog> saveAndBeAsked(MainWindow& window) {
    QTest::keyClick(&window, Qt::Key_S, Qt::ControlModifier);
    return keepingDialog(window, "saveDialog");
  }
};

TEST_F(WindowConflictTest, ARefusedSaveSaysWhoSavedWhatAndCancelLeavesEverything) {
  play([this](MainWindow& window) {
    makeConflict(window);
    const QPointer<QDialog> dialog = saveAndBeAsked(window);
    ASSERT_TRUE(dialog);
    EXPECT_TRUE(questionOf(*dialog).contains("\"Dock\" was saved by BEN at "))
        << questionOf(*dialog).toStdString();
    ASSERT_EQ(dialog->findChild<QListWidget*>("things")->count(), 1);
    EXPECT_EQ(dialog->findChild<QListWidget*>("things")->item(0)->text(),
              "renamed to \"Pier\", was \"Quay\"");
    ASSERT_TRUE(answer(window, "saveDialog", "Cancel"));
    EXPECT_TRUE(waitFor([&] { return dialog.isNull(); }));
    EXPECT_TRUE(isUnsaved(window, "Dock"));
    EXPECT_FALSE(window.messages().isVisible()) << window.messages().text().toStdString();
  });
}

TEST_F(WindowConflictTest, SavingOverKeepsTheOtherVersionInTheHistory) {
  play([this](MainWindow& window) {
    makeConflict(window);
    ASSERT_TRUE(saveAndBeAsked(window));
    ASSERT_TRUE(answer(window, "saveDialog", "Save over it"));
    EXPECT_TRUE(waitFor([&] { return !isUnsaved(window, "Dock"); }));
    QApplication::setActiveWindow(&window);
    QTest::keyClick(&window, Qt::Key_H, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] {
      return std::ranges::any_of(window.history().rows(), [](const VersionRow& row) {
        return row.changes.contains("renamed to \"Pier\"");
      });
    }));
  });
}

TEST_F(WindowConflictTest, SavingACopyLeavesTheEditAsTheOtherSavedIt) {
  play([this](MainWindow& window) {
    makeConflict(window);
    ASSERT_TRUE(saveAndBeAsked(window));
    ASSERT_TRUE(answer(window, "saveDialog", "Save a copy"));
    const QPointer<QDialog> dialog = keepingDialog(window, "actionDialog");
    ASSERT_TRUE(dialog);
    EXPECT_EQ(dialog->findChild<QLineEdit*>()->text(), "Dock (ANNA)");
    dialog->findChild<QLineEdit*>()->setText(QString::fromUtf8("Düne 5 €"));
    ASSERT_TRUE(answer(window, "actionDialog", "Save a copy"));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, QString::fromUtf8("Düne 5 €")).isEmpty(); }));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Pier").isEmpty(); }));
    EXPECT_FALSE(isUnsaved(window, "Pier"));
  });
}

TEST_F(WindowConflictTest, ACopyOfAnEditThatAnotherDeletedTakesItsPlace) {
  play([this](MainWindow& window) {
    makeConflict(window);
    std::filesystem::remove(fileOf(window));
    const QPointer<QDialog> dialog = saveAndBeAsked(window);
    ASSERT_TRUE(dialog);
    EXPECT_TRUE(questionOf(*dialog).contains("was deleted by another"));
    ASSERT_TRUE(answer(window, "saveDialog", "Save a copy"));
    ASSERT_TRUE(waitFor([&] { return answer(window, "actionDialog", "Save a copy"); }));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Dock (ANNA)").isEmpty(); }));
    EXPECT_TRUE(waitFor([&] { return keyOf(window, "Dock").isEmpty(); }));
  });
}

TEST_F(WindowConflictTest, LeavingWithASaveThatIsRefusedStays) {
  play([this](MainWindow& window) {
    makeConflict(window);
    window.link().lookAgain();
    QTest::keyClick(&window, Qt::Key_L, Qt::ControlModifier | Qt::ShiftModifier);
    ASSERT_TRUE(waitFor([&] { return answer(window, "unsavedDialog", "Save"); }));
    ASSERT_TRUE(keepingDialog(window, "saveDialog"));
    ASSERT_TRUE(answer(window, "saveDialog", "Cancel"));
    EXPECT_EQ(window.snapshot()->project.name, "Harbour");
    EXPECT_TRUE(isUnsaved(window, "Dock"));
  });
}

class WindowUnkeptTest : public testing::Test, protected WindowScene {};

TEST_F(WindowUnkeptTest, ChangesThatThisMachineCannotKeepStandInTheStatusLineUntilItCan) {
  const std::string state = folder / "state";
  std::ofstream(state) << "a file in the way";
  script =
      "project create Harbour\nproject enter Harbour\nedit create Quay\nedit rename Quay Dock\n";
  play([&](MainWindow& window) {
    EXPECT_TRUE(waitFor([&] {
      return window.status().busyText().startsWith("Unsaved changes are not being kept");
    }));
    std::filesystem::remove(state);
    EXPECT_TRUE(waitFor([&] { return window.status().busyText() == "Ready"; }));
  });
}

/// A station of ANNA's that was killed with unsaved changes in two edits.
class WindowRecoveryTest : public testing::Test, protected WindowScene {
 protected:
  WindowRecoveryTest() {
    StationProcess killed(other("ANNA"));
    killed.waitUntilReady();
    for (const std::string& line :
         {std::string("project create Harbour"), std::string("project enter Harbour"),
          std::string("edit create Quay"), std::string("edit create Pier"),
          std::string("edit rename Quay Dock"), "edit rename Pier " + longName_}) {
      killed.command(line);
    }
    while (leftFiles() < 2) QTest::qSleep(20);
    killed.kill9();
    script = "project enter Harbour\n";
  }

  /// How many recovery files there are.
  [[nodiscard]] std::size_t leftFiles() const {
    std::size_t count = 0;
    std::error_code none;
    for (const auto& each : std::filesystem::recursive_directory_iterator(folder / "state", none)) {
      if (each.path().extension() == ".json") ++count;
    }
    return count;
  }

  static bool isOffered(MainWindow& window) {
    return waitFor([&] { return window.recovery().isVisible(); });
  }

  const std::string longName_ = "M\xc3\xb6we" + std::string(296, 'x');
};

TEST_F(WindowRecoveryTest, WhatWasLeftIsOfferedAndTakenUpUnsaved) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(isOffered(window));
    EXPECT_TRUE(window.recovery().text().contains("in 2 edits"))
        << window.recovery().text().toStdString();
    QTest::mouseClick(&window.recovery().button(0), Qt::LeftButton);
    EXPECT_TRUE(waitFor([&] { return isUnsaved(window, "Dock"); }));
    EXPECT_TRUE(waitFor([&] { return isUnsaved(window, QString::fromStdString(longName_)); }));
    EXPECT_TRUE(waitFor([&] { return !window.recovery().isVisible(); }));
  });
}

TEST_F(WindowRecoveryTest, ThrowingAwayAsksAndCancelOffersAgain) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(isOffered(window));
    QTest::mouseClick(&window.recovery().button(1), Qt::LeftButton);
    const QPointer<QDialog> dialog = keepingDialog(window, "throwAwayDialog");
    ASSERT_TRUE(dialog);
    EXPECT_EQ(dialog->findChild<QListWidget*>("things")->count(), 2);
    ASSERT_TRUE(answer(window, "throwAwayDialog", "Cancel"));
    ASSERT_TRUE(isOffered(window));
    EXPECT_EQ(leftFiles(), 2u);
    QTest::mouseClick(&window.recovery().button(1), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return answer(window, "throwAwayDialog", "Throw away"); }));
    EXPECT_TRUE(waitFor([&] { return leftFiles() == 0; }));
    EXPECT_FALSE(keyOf(window, "Quay").isEmpty()) << "the edits themselves stay";
    EXPECT_TRUE(waitFor([&] { return !window.recovery().isVisible(); }));
  });
}

TEST_F(WindowRecoveryTest, LaterIsWhenTheProjectIsEnteredAgain) {
  play([](MainWindow& window) {
    ASSERT_TRUE(isOffered(window));
    QTest::mouseClick(&window.recovery().button(2), Qt::LeftButton);
    EXPECT_FALSE(window.recovery().isVisible());
    command(window, "edit create Alley");
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Alley").isEmpty(); }));
    EXPECT_FALSE(window.recovery().isVisible());
    command(window, "project leave");
    ASSERT_TRUE(waitForProject(window, ""));
    EXPECT_FALSE(window.recovery().isVisible());
    command(window, "project enter Harbour");
    EXPECT_TRUE(isOffered(window));
  });
}

}  // namespace

}  // namespace korvel
