#include <gtest/gtest.h>

#include <QAction>
#include <QComboBox>
#include <QDialog>
#include <QLabel>
#include <QPlainTextEdit>
#include <QPushButton>
#include <QToolButton>
#include <QTreeWidget>
#include <fstream>

#include "app/window/HistoryPane.h"
#include "app/window/MessageBar.h"
#include "tests/window/WindowScene.h"

namespace korvel {

namespace {

std::string clip(const std::string& name) {
  return R"({"OTIO_SCHEMA":"Clip.2","name":")" + name +
         R"(","source_range":{"OTIO_SCHEMA":"TimeRange.1",)"
         R"("start_time":{"OTIO_SCHEMA":"RationalTime.1","rate":24,"value":0},)"
         R"("duration":{"OTIO_SCHEMA":"RationalTime.1","rate":24,"value":48}}})";
}

std::string timelineOfClips(const std::string& clips) {
  return R"({"OTIO_SCHEMA":"Timeline.1","name":"Quay","tracks":{"OTIO_SCHEMA":"Stack.1",)"
         R"("children":[{"OTIO_SCHEMA":"Track.1","kind":"Video","children":[)" +
         clips + "]}]}}";
}

/// "Quay" with three versions: as it was imported, with a clip trimmed, and under another name.
class WindowHistoryTest : public testing::Test, protected WindowScene {
 protected:
  WindowHistoryTest() {
    const std::filesystem::path file = folder / "quay.otio";
    std::ofstream(file) << timelineOfClips(clip("Arrival") + "," + clip("Crane") + "," +
                                           clip("Gull"));
    script = "project create Harbour\nproject enter Harbour\nedit import " + file.string() +
             "\nedit trim Quay Crane 0s 1s\nedit save Quay\nedit rename Quay " + name_ +
             "\nedit save " + name_ + "\nedit create Zebra\n";
  }

  /// The edit is chosen and its history is on the screen.
  void openHistory(MainWindow& window) const {
    const QString name = QString::fromStdString(name_);
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Zebra").isEmpty(); }));
    clickEdit(window, name);
    QTest::keyClick(&window, Qt::Key_H, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([&] { return window.history().rows().size() == 3; }))
        << window.history().rows().size();
    ASSERT_TRUE(window.history().isVisible());
  }

  static void chooseVersion(MainWindow& window, int row) {
    QTreeWidget& list = window.history().list();
    QTest::mouseClick(list.viewport(), Qt::LeftButton, {},
                      list.visualItemRect(list.topLevelItem(row)).center());
  }

  /// Cuts every kept version in half; the edit's own file is a name of the same file and stays.
  void spoilVersions() const {
    std::vector<std::filesystem::path> kept;
    for (const auto& each : std::filesystem::recursive_directory_iterator(folder / "projects")) {
      const bool isKept = each.path().string().find("/.history/") != std::string::npos;
      if (isKept && each.is_regular_file()) kept.push_back(each.path());
    }
    for (const std::filesystem::path& each : kept) {
      std::filesystem::remove(each);
      std::ofstream(each) << "{\"OTIO_SC";
    }
  }

  static const Timeline* drawn(const MainWindow& window) {
    return window.detail().view().timeline().get();
  }

  std::string name_ = "Dock";
};

TEST_F(WindowHistoryTest, AClipThatIsTrimmedIsNamedByItsTrackAndPlace) {
  play([this](MainWindow& window) {
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Zebra").isEmpty(); }));
    clickEdit(window, QString::fromStdString(name_));
    ASSERT_TRUE(waitFor([&] { return drawn(window); }));
    QTest::keyClick(&window, Qt::Key_T, Qt::ControlModifier);
    const QComboBox* clips = nullptr;
    ASSERT_TRUE(waitFor([&] {
      const auto* const dialog = window.findChild<QDialog*>("trimDialog");
      return dialog && (clips = dialog->findChild<QComboBox*>());
    }));
    EXPECT_EQ(clips->itemText(1), "Crane  (track 1, clip 2)");
    EXPECT_FALSE(clips->isEditable()) << "what is typed there is no clip";
  });
}

TEST_F(WindowHistoryTest, TheHistoryListsWhoSavedWhatAndWhatChanged) {
  play([this](MainWindow& window) {
    openHistory(window);
    const auto& rows = window.history().rows();
    EXPECT_TRUE(rows[0].isNow);
    EXPECT_TRUE(rows[0].changes.contains("renamed to \"Dock\"")) << rows[0].changes.toStdString();
    EXPECT_TRUE(rows[1].changes.contains("Crane")) << rows[1].changes.toStdString();
    for (const VersionRow& row : rows) {
      EXPECT_EQ(row.user, "ANNA");
      EXPECT_TRUE(row.time.isValid());
      EXPECT_GT(row.size, 100);
    }
    EXPECT_FALSE(window.history().restoreButton().isEnabled()) << "nothing is chosen";
    chooseVersion(window, 0);
    EXPECT_FALSE(window.history().restoreButton().isEnabled()) << "it is the newest";
  });
}

TEST_F(WindowHistoryTest, AChosenVersionIsDrawnWithWhatChangedSince) {
  play([this](MainWindow& window) {
    openHistory(window);
    chooseVersion(window, 2);
    ASSERT_TRUE(waitFor([&] { return drawn(window) && !drawn(window)->version.isEmpty(); }));
    const TimelineTrack& track = drawn(window)->tracks[0];
    EXPECT_EQ(track.items[0].change, "");
    EXPECT_TRUE(track.items[1].change.contains(
        "trimmed to 00:00:00:00-00:00:01:00, was 00:00:00:00-00:00:02:00"))
        << track.items[1].change.toStdString();
    const TimelineView& view = window.detail().view();
    EXPECT_TRUE(view.tipAt(view.rectOf(0, 1).center()).contains("trimmed"));
    EXPECT_TRUE(waitFor(
        [&] { return window.history().changes().toPlainText().contains("renamed to \"Dock\""); }));
    QTest::keyClick(&window, Qt::Key_H, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return drawn(window) && drawn(window)->version.isEmpty(); }))
        << "without the history the edit is drawn as it is now";
  });
}

TEST_F(WindowHistoryTest, RestoringSavesTheVersionAndUndoTakesItBack) {
  play([this](MainWindow& window) {
    StationProcess ben(other("BEN"));
    ASSERT_TRUE(ben.waitUntilReady());
    openHistory(window);
    ASSERT_TRUE(ben.command("project enter Harbour")["ok"].asBool());
    chooseVersion(window, 1);
    QTest::mouseClick(&window.history().restoreButton(), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    EXPECT_TRUE(waitFor([&] { return window.history().rows().size() == 4; }));
    EXPECT_TRUE(ben.command("edit show Quay")["ok"].asBool()) << "others see it";
    ASSERT_TRUE(waitFor([&] { return window.messages().button().isVisible(); }));
    EXPECT_TRUE(window.messages().text().contains("is again as it was saved"));
    QTest::mouseClick(&window.messages().button(), Qt::LeftButton);
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Dock").isEmpty(); }));
    // As every step: done again, and undone by the key.
    ASSERT_TRUE(waitFor([&] { return window.snapshot()->redo.startsWith("Redo return of Quay"); }));
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    ASSERT_TRUE(waitFor([&] { return window.snapshot()->undo.startsWith("Undo return of Quay"); }));
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Dock").isEmpty(); }));
    EXPECT_TRUE(waitFor([&] { return window.history().rows().size() == 7; })) << "each is kept";
  });
}

TEST_F(WindowHistoryTest, ATrimThatIsUndoneOrDoneAgainIsDrawnAnew) {
  play([this](MainWindow& window) {
    const QString name = QString::fromStdString(name_);
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Zebra").isEmpty(); }));
    clickEdit(window, name);
    const auto length = [&window] {
      const auto& timeline = window.detail().view().timeline();
      return timeline ? timeline->length : 0;
    };
    ASSERT_TRUE(waitFor([&] { return length() > 0; }));
    const auto whole = length();
    window.link().run("edit trim " + keyOf(window, name) + " Gull 0s 1s");
    ASSERT_TRUE(waitFor([&] { return length() < whole; }));
    const auto trimmed = length();
    ASSERT_TRUE(waitFor([&] { return !window.snapshot()->undo.isEmpty(); }));
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier);
    EXPECT_TRUE(waitFor([&] { return length() == whole; })) << length();
    ASSERT_TRUE(waitFor([&] { return !window.snapshot()->redo.isEmpty(); }));
    QTest::keyClick(&window, Qt::Key_Z, Qt::ControlModifier | Qt::ShiftModifier);
    EXPECT_TRUE(waitFor([&] { return length() == trimmed; })) << length();
  });
}

TEST_F(WindowHistoryTest, RestoringAsksWhatBecomesOfUnsavedChanges) {
  play([this](MainWindow& window) {
    openHistory(window);
    window.link().run("edit rename Dock Mole");
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Mole").isEmpty(); }));
    chooseVersion(window, 1);
    QTest::mouseClick(&window.history().restoreButton(), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return answer(window, "restoreDialog", "Save them first"); }));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    ASSERT_TRUE(waitFor([&] { return window.history().rows().size() == 5; }))
        << "what was unsaved is a version of its own";
    EXPECT_TRUE(window.history().rows()[1].changes.contains("Mole"));
  });
}

TEST_F(WindowHistoryTest, UnsavedChangesAreDroppedOnlyIfTheVersionCanBeRestored) {
  play([this](MainWindow& window) {
    openHistory(window);
    window.link().run("edit rename Dock Mole");
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Mole").isEmpty(); }));
    chooseVersion(window, 1);
    QTest::mouseClick(&window.history().restoreButton(), Qt::LeftButton);
    ASSERT_TRUE(waitFor([&] { return answer(window, "restoreDialog", "Drop them"); }));
    EXPECT_TRUE(waitFor([&] { return !keyOf(window, "Quay").isEmpty(); }));
    window.link().run("edit rename Quay Mole");
    ASSERT_TRUE(waitFor([&] { return !keyOf(window, "Mole").isEmpty(); }));
    chooseVersion(window, 2);
    QTest::mouseClick(&window.history().restoreButton(), Qt::LeftButton);
    spoilVersions();
    ASSERT_TRUE(waitFor([&] { return answer(window, "restoreDialog", "Drop them"); }));
    ASSERT_TRUE(waitFor([&] { return window.messages().isVisible(); }));
    EXPECT_TRUE(window.messages().text().contains("cannot be read"))
        << window.messages().text().toStdString();
    EXPECT_TRUE(window.objects().find(keyOf(window, "Mole"))->isDirty);
  });
}

TEST_F(WindowHistoryTest, AVersionThatGoesWhileItIsChosenIsNoLongerDrawn) {
  play([this](MainWindow& window) {
    openHistory(window);
    for (const int row : {2, 1, 0}) {
      chooseVersion(window, row);
      ASSERT_TRUE(waitFor([&] { return drawn(window) && !drawn(window)->version.isEmpty(); }));
      EditVersions fewer;
      fewer.cookie = keyOf(window, "Dock");
      for (int left = 0; left < row; ++left) {
        fewer.rows.push_back(window.history().rows()[static_cast<std::size_t>(left)]);
      }
      window.history().takeVersions(std::make_shared<const EditVersions>(fewer));
      EXPECT_FALSE(window.history().chosen().has_value()) << row;
      EXPECT_TRUE(waitFor([&] { return drawn(window) && drawn(window)->version.isEmpty(); }));
    }
  });
}

TEST_F(WindowHistoryTest, AnotherEditHasItsOwnHistory) {
  play([this](MainWindow& window) {
    openHistory(window);
    chooseVersion(window, 2);
    clickEdit(window, "Zebra");
    EXPECT_TRUE(waitFor([&] { return window.history().rows().size() == 1; }));
    EXPECT_FALSE(window.history().chosen().has_value());
    EXPECT_EQ(drawn(window) ? drawn(window)->version : QString(), "");
    window.objects().view(ObjectKind::eEdits).clearSelection();
    EXPECT_TRUE(waitFor([&] { return window.history().rows().empty(); }));
  });
}

TEST_F(WindowHistoryTest, AVersionThatCannotBeReadSaysSo) {
  play([this](MainWindow& window) {
    openHistory(window);
    spoilVersions();
    QTest::keyClick(&window, Qt::Key_H, Qt::ControlModifier);
    QTest::keyClick(&window, Qt::Key_H, Qt::ControlModifier);
    ASSERT_TRUE(waitFor([&] { return !window.history().rows().back().problem.isEmpty(); }));
    chooseVersion(window, static_cast<int>(window.history().rows().size()) - 1);
    EXPECT_FALSE(window.history().restoreButton().isEnabled());
    EXPECT_TRUE(waitFor([&] { return !window.history().changes().toPlainText().isEmpty(); }));
  });
}

}  // namespace

}  // namespace korvel
