#include "station/containers/Containers.h"

#include <gtest/gtest.h>

#include "station/wire/MessageTable.h"
#include "tests/support/ContainerListener.h"
#include "tests/support/StationScene.h"

using namespace korvel;

namespace {

using Notes = std::vector<std::string>;

class FiltersTest : public testing::Test {
 protected:
  FiltersTest() { scene.enter(filters); }

  StationScene scene;
  Filters filters;
  ContainerListener<BinData> listener{filters};
};

TEST_F(FiltersTest, AFilterIsMadeChangedAndDestroyedWithItsFile) {
  const Cookie made = *filters.create("Unused", "uses=0");
  const std::string file = scene.fileOf(text(made));
  EXPECT_EQ(*parseJson(scene.read(file)), *parseJson(R"({"name": "Unused", "filter": "uses=0"})"));
  ASSERT_TRUE(filters.change(made, "uses<2"));
  EXPECT_EQ((*parseJson(scene.read(file)))["filter"].asString(), "uses<2");
  ASSERT_TRUE(filters.discard(made));
  EXPECT_FALSE(existsFresh(file));
  EXPECT_EQ(listener.notes, (Notes{text(made) + " 82", text(made) + " 82", text(made) + " 04"}));
}

TEST_F(FiltersTest, ATextThatIsTheSameIsNoChange) {
  const Cookie made = *filters.create("Unused", "uses=0");
  listener.notes.clear();
  ASSERT_TRUE(filters.change(made, "uses=0"));
  EXPECT_EQ(listener.notes, Notes{});
}

TEST_F(FiltersTest, ReadingAllAgainTellsOfEachThatIsNewDiffersOrIsGone) {
  const Cookie kept = *filters.create("Kept", "a");
  const Cookie changed = *filters.create("Changed", "a");
  const Cookie gone = *filters.create("Gone", "a");
  scene.write(scene.fileOf(text(changed)), R"({"name": "Changed", "filter": "b"})");
  scene.write(scene.fileOf("F0001"), R"({"name": "New", "filter": "c"})");
  ASSERT_TRUE(removeFileAt(scene.fileOf(text(gone))));
  scene.events.changes.clear();
  const RemoteChangeScope remote;
  filters.reInit();
  std::ranges::sort(scene.events.changes);
  Notes expected{"filter F0001 created remote", "filter " + text(changed) + " reloaded remote",
                 "filter " + text(gone) + " destroyed remote"};
  std::ranges::sort(expected);
  EXPECT_EQ(scene.events.changes, expected);
  EXPECT_TRUE(filters.holds(kept));
}

TEST_F(FiltersTest, ABrokenFileLeavesTheFilterAsItWasShown) {
  const Cookie made = *filters.create("Unused", "uses=0");
  scene.write(scene.fileOf(text(made)), R"({"name": "Unused", "filter": 7})");
  filters.reInit();
  ASSERT_TRUE(filters.find(made));
  EXPECT_EQ(filters.find(made)->record["filter"].asString(), "uses=0");
  EXPECT_TRUE(scene.events.loggedThat(scene.fileOf(text(made))))
      << ::testing::PrintToString(scene.events.lines);
}

TEST_F(FiltersTest, AFolderThatCannotBeReadLeavesAllFiltersAsTheyWere) {
  const Cookie made = *filters.create("Unused", "uses=0");
  std::filesystem::rename(scene.project.folder, scene.scratch / "away");
  filters.reInit();
  EXPECT_TRUE(filters.holds(made));
  EXPECT_TRUE(scene.events.loggedThat(scene.project.folder))
      << ::testing::PrintToString(scene.events.lines);
}

TEST_F(FiltersTest, TheMetadataFileIsTheRecordInTheOpenProject) {
  EXPECT_EQ(utf8Text(UserFilter::getFilterMetadataFileName(cookie("F0001"))),
            scene.fileOf("F0001"));
  filters.leave();
  EXPECT_TRUE(UserFilter::getFilterMetadataFileName(cookie("F0001")).empty());
}

TEST_F(FiltersTest, WhileAMessageIsDeliveredAFilterIsFoundInTheProjectThatItNames) {
  const ReceivedMessage message = receivedMessage(
      "d\xAC"
      "15\xACP0002\xAC"
      "F0002\xAC"
      "1\xAC");
  const std::string there = scene.scratch / "P0002/F0002.json";
  const auto found = [] {
    return utf8Text(UserFilter::getFilterMetadataFileName(cookie("F0002")));
  };
  for (const bool isOpen : {true, false}) {
    SCOPED_TRACE(isOpen);
    if (!isOpen) filters.leave();
    EXPECT_EQ(found(), isOpen ? scene.fileOf("F0002") : "");
    const RemoteChangeScope delivery(&message);
    EXPECT_EQ(found(), there);
  }
}

TEST_F(FiltersTest, TheOpenProjectsFilterCountsWhateverProjectTheMessageNames) {
  const ReceivedMessage message = receivedMessage(
      "d\xAC"
      "15\xACP0002\xAC"
      "F0001\xAC"
      "1\xAC");
  scene.write(scene.fileOf("F0001"), R"({"name": "New", "filter": "c"})");
  const RemoteChangeScope delivery(&message);
  EXPECT_EQ(utf8Text(UserFilter::getFilterMetadataFileName(cookie("F0001"))),
            scene.fileOf("F0001"));
}

}  // namespace
