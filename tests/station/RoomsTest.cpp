#include "station/project/Rooms.h"

#include "station/project/Names.h"
#include "tests/station/PluginStation.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

class RoomsTest : public PluginStation {
 protected:
  [[nodiscard]] std::string pathOf(const std::string& room) const {
    return folder / (project.asString().str() + "/rooms/" + *roomFileName(room));
  }

  [[nodiscard]] LockState stateOf(const std::string& name) const {
    const auto listed = rooms.list();
    for (const RoomInfo& room : *listed) {
      if (room.name == name) return room.state;
    }
    return LockState::eUnknown;
  }
};

TEST_F(RoomsTest, AreFreeWhenTheyAreMade) {
  ASSERT_TRUE(rooms.create("Sound"));
  EXPECT_EQ(stateOf("Sound"), LockState::eFree);
  EXPECT_FALSE(rooms.create("Sound"));
}

TEST_F(RoomsTest, AreHeldByWhoeverIsInThem) {
  ASSERT_TRUE(rooms.create("Sound"));
  ASSERT_TRUE(rooms.goInto("Sound"));
  EXPECT_EQ(stateOf("Sound"), LockState::eHeld);
  EXPECT_EQ(bytesOf(pathOf("Sound") + ".lck.inf"), "anna");
  ASSERT_TRUE(rooms.goOut());
  EXPECT_EQ(stateOf("Sound"), LockState::eFree);
}

TEST_F(RoomsTest, AHolderOfWhomOthersAreToldAnotherNameIsWarned) {
  NotedEvents noted;
  warnOfHolderName("You are in room \"Sound\"", L"anna");
  EXPECT_EQ(noted.logged, "");
  warnOfHolderName("You are in room \"Sound\"", L"bob");
  EXPECT_NE(noted.logged.find("others are told that \"bob\" holds it"), std::string::npos)
      << noted.logged;
  StationSettings longName = settings();
  longName.user = std::string(300, 'x');
  installSettings(longName);
  noted.logged.clear();
  warnOfHolderName("You are in room \"Sound\"", wideText(std::string(200, 'x')));
  EXPECT_EQ(noted.logged, "") << "readers see the first 200 bytes of a name";
}

TEST_F(RoomsTest, WhoseNameCannotBeWrittenBesideALockIsToldSoInRoomsAndPrivateProjects) {
  NotedEvents noted;
  ASSERT_TRUE(rooms.create("Sound"));
  std::filesystem::create_directory(pathOf("Sound") + ".lck.inf");
  ASSERT_TRUE(rooms.goInto("Sound"));
  EXPECT_NE(noted.logged.find("You are in room \"Sound\", but your name"), std::string::npos)
      << noted.logged;
  const auto mine = projects.create("Mine", true);
  ASSERT_TRUE(mine);
  std::filesystem::create_directory(folder / (mine->asString().str() + "/Lock.inf"));
  ASSERT_TRUE(projects.enter("Mine"));
  EXPECT_NE(noted.logged.find("You hold the private project \"Mine\", but your name"),
            std::string::npos)
      << noted.logged;
}

TEST_F(RoomsTest, ARoomThatIsNotThereIsAnsweredWithTheOneMeant) {
  ASSERT_TRUE(rooms.create("Sound"));
  const auto entered = rooms.goInto("sound");
  ASSERT_FALSE(entered);
  EXPECT_NE(entered.error().message.find("did you mean \"Sound\"?"), std::string::npos)
      << entered.error().message;
}

TEST_F(RoomsTest, ARoomIsGivenUpForAnother) {
  ASSERT_TRUE(rooms.create("A"));
  ASSERT_TRUE(rooms.create("B"));
  ASSERT_TRUE(rooms.goInto("A"));
  ASSERT_TRUE(rooms.goInto("B"));
  EXPECT_EQ(stateOf("A"), LockState::eFree);
  EXPECT_EQ(stateOf("B"), LockState::eHeld);
  ASSERT_TRUE(rooms.goInto("B"));
  EXPECT_EQ(rooms.current(), "B");
}

TEST_F(RoomsTest, ATakenRoomIsRefusedWithTheHoldersNameAndTheOldOneIsKept) {
  ASSERT_TRUE(rooms.create("A"));
  ASSERT_TRUE(rooms.create("B"));
  ASSERT_TRUE(rooms.goInto("A"));
  const auto held = holdElsewhere(pathOf("B") + ".lck", "bob");
  const auto refused = rooms.goInto("B");
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::eHeld);
  EXPECT_NE(refused.error().message.find("bob"), std::string::npos);
  EXPECT_EQ(rooms.current(), "A");
  EXPECT_EQ(stateOf("A"), LockState::eHeld);
}

TEST_F(RoomsTest, ARoomLeftBehindIsShownSoAndCanBeEntered) {
  ASSERT_TRUE(rooms.create("A"));
  write(pathOf("A") + ".lck", "");
  write(pathOf("A") + ".lck.inf", "gone");
  EXPECT_EQ(stateOf("A"), LockState::eLeftBehind);
  ASSERT_TRUE(rooms.goInto("A"));
  EXPECT_EQ(stateOf("A"), LockState::eHeld);
}

TEST_F(RoomsTest, LeavingTheProjectLeavesTheRoom) {
  ASSERT_TRUE(rooms.create("A"));
  ASSERT_TRUE(rooms.goInto("A"));
  ASSERT_TRUE(projects.leave());
  EXPECT_FALSE(std::filesystem::exists(pathOf("A") + ".lck"));
  EXPECT_FALSE(rooms.goInto("A"));
}

TEST_F(RoomsTest, BelongToSharedProjectsAlone) {
  enter("Mine", Kind::ePrivate);
  EXPECT_FALSE(rooms.create("A"));
  EXPECT_FALSE(rooms.list());
}

TEST_F(RoomsTest, ThatNobodyMadeCannotBeEntered) {
  const auto refused = rooms.goInto("Nowhere");
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::eNotFound);
}

TEST_F(RoomsTest, NamesOfAnyKindAreRooms) {
  for (const char* name : {"a b", "Grüße €", "a/b", ".hidden", "..", "end.", "50%", "a.lck", "a",
                           "a.json", "*", "C:\\x"}) {
    ASSERT_TRUE(rooms.create(name)) << name;
    ASSERT_TRUE(rooms.goInto(name)) << name;
    EXPECT_EQ(roomNameOf(*roomFileName(name)), name);
  }
  EXPECT_EQ(rooms.list()->size(), 12U);
  EXPECT_FALSE(rooms.create(std::string(300, 'x')));
  EXPECT_FALSE(rooms.create(""));
  EXPECT_FALSE(rooms.create("a\nb"));
}

}  // namespace
