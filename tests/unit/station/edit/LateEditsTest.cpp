#include "station/MessageJudge.h"
#include "tests/support/DelayedRereadRun.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

/// A share that still shows the old file of an edit when the message comes that it was saved.
class LateEditsTest : public DocumentStation {
 protected:
  /// What plug-in and host do about the message.
  void savedElsewhere() {
    if (EditManager::isOpen(edit)) {
      const RemoteChangeScope remote;
      EXPECT_TRUE(edits.loaded(edit)->reOpen(wideText(fileOf(edit))));
    }
    noteDelivered(savedMessage(edit));
  }

  /// The file as the other station wrote it.
  void showNewFile() {
    std::string bytes = bytesOf(fileOf(edit));
    bytes.replace(bytes.find("Old"), 3, "New");
    write(fileOf(edit), bytes);
    events.changes.clear();
  }

  DelayedRereadRun run;
  const Cookie edit = made("Old");
};

TEST_F(LateEditsTest, AnOpenEditWhoseOldFileWasReadIsShownAsItIs) {
  ASSERT_TRUE(edits.open(edit));
  savedElsewhere();
  showNewFile();
  run.finish();
  EXPECT_EQ(edits.nameOf(edit), "New");
  EXPECT_EQ(events.changes, Notes{"edit reloaded remote"});
  EXPECT_EQ(listener.heard, Notes{});  // nothing goes out again
}

TEST_F(LateEditsTest, AnEditThatWasReadInTimeIsNotReadAgain) {
  ASSERT_TRUE(edits.open(edit));
  showNewFile();
  savedElsewhere();
  ASSERT_TRUE(EditActions::rename(edit, "Mine"));
  events.changes.clear();
  run.finish();
  EXPECT_EQ(edits.nameOf(edit), "Mine");
  EXPECT_EQ(events.changes, Notes{});
}

TEST_F(LateEditsTest, AnOwnSaveIsNotTakenForAnotherStations) {
  ASSERT_TRUE(edits.open(edit));
  savedElsewhere();
  ASSERT_TRUE(EditActions::rename(edit, "Saved"));
  ASSERT_TRUE(EditActions::save(edit));
  ASSERT_TRUE(EditActions::rename(edit, "Not saved"));
  run.finish();
  EXPECT_EQ(edits.nameOf(edit), "Not saved");
  EXPECT_TRUE(edits.loaded(edit)->isDirty());
}

TEST_F(LateEditsTest, ASettingWrittenHereIsNotTakenForAnotherStations) {
  ASSERT_TRUE(edits.open(edit));
  savedElsewhere();
  edits.loaded(edit)->config().set("Window", "3");
  EditManager::flushChanges(edit);
  ASSERT_TRUE(EditActions::rename(edit, "Not saved"));
  run.finish();
  EXPECT_EQ(edits.nameOf(edit), "Not saved");
}

TEST_F(LateEditsTest, AClosedEditThatWasListedTooEarlyIsListedAnew) {
  ASSERT_TRUE(edits.close(edit));
  savedElsewhere();
  EXPECT_EQ(edits.listed(edit)["name"].asString(), "Old");
  showNewFile();
  run.finish();
  EXPECT_EQ(edits.listed(edit)["name"].asString(), "New");
  EXPECT_EQ(events.changes, Notes{"edit refreshed remote"});
}

TEST_F(LateEditsTest, AnEditDeletedMeanwhileIsLeftToItsMessage) {
  ASSERT_TRUE(edits.close(edit));
  savedElsewhere();
  EXPECT_EQ(edits.listed(edit)["name"].asString(), "Old");
  std::filesystem::remove(fileOf(edit));
  events.changes.clear();
  run.finish();
  EXPECT_EQ(events.changes, Notes{});
  EXPECT_TRUE(edits.holds(edit));
}

}  // namespace
