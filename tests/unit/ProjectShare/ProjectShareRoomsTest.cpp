#include <gtest/gtest.h>

#include <memory>

#include "ProjectShare/ProjectShare.h"
#include "tests/fakes/FakeHost.h"

using namespace korvel;

// Rooms, client markers and the number of active users.

namespace {

using Strings = std::vector<std::string>;

constexpr const wchar_t* kRoomA = L"/rooms/A";
constexpr const wchar_t* kRoomB = L"/rooms/B";
constexpr const char* kTwoFiles[] = {"/rooms/A.lck", "/rooms/A.lck.inf"};

class ProjectShareRoomsTest : public testing::Test {
 protected:
  void TearDown() override { share.unlockCurrentRoom(); }

  /// The report of a refused room.
  static constexpr const char* kRefused =
      "assertion failed false at ProjectShare/ProjectSharing line 146\n";

  FakeHost host;
  ProjectShare share;
};

/// Notes its own virtual calls and does nothing else on them.
class NotingShare : public ProjectShare {
 public:
  void unlockCurrentRoom() override { ++unlocked; }
  LightweightString<wchar_t> getCurrentUser() override { return L"carla"; }
  int unlocked = 0;
};

TEST_F(ProjectShareRoomsTest, ARoomIsOccupiedWhileItsLockFileExists) {
  EXPECT_FALSE(share.isRoomOccupied(kRoomA));
  EXPECT_TRUE(share.lockRoom(kRoomA));
  EXPECT_TRUE(share.isRoomOccupied(kRoomA));
  host.files.put("/rooms/B.lck", "");
  EXPECT_TRUE(share.isRoomOccupied(kRoomB));
}

TEST_F(ProjectShareRoomsTest, TheEmptyRoomIsOccupiedIfAFileOfItsEndingAloneExists) {
  EXPECT_FALSE(share.isRoomOccupied(L""));
  EXPECT_EQ(host.journal.lines(), Strings{"? fileExists(.lck)"});
  host.files.put(".lck", "");
  EXPECT_TRUE(share.isRoomOccupied(L""));
}

TEST_F(ProjectShareRoomsTest, EnteringARoomTakesItsLockAndNamesTheUser) {
  EXPECT_TRUE(share.lockRoom(kRoomA));
  EXPECT_EQ(
      host.journal.effects(),
      (Strings{"iFileManager::openFile(/rooms/A.lck, 3, 1, 0, 32)", "iFile::close(/rooms/A.lck)",
               "iFileManager::openFile(/rooms/A.lck, 3, 3, 0, 32)",
               "iFileManager::openFile(/rooms/A.lck.inf, 3, 3, 4, 0)",
               "iFile::write(/rooms/A.lck.inf, anna)", "iFile::close(/rooms/A.lck.inf)"}));
  EXPECT_EQ(share.getRoomLockOwner(kRoomA), L"anna");
}

TEST_F(ProjectShareRoomsTest, TheNewRoomIsTakenBeforeTheOldOneIsGivenUpAndThenNamed) {
  share.lockRoom(kRoomA);
  host.journal.clear();
  EXPECT_TRUE(share.lockRoom(kRoomB));
  EXPECT_EQ(
      host.journal.effects(),
      (Strings{"iFileManager::openFile(/rooms/B.lck, 3, 1, 0, 32)", "iFile::close(/rooms/B.lck)",
               "iFileManager::openFile(/rooms/B.lck, 3, 3, 0, 32)", "iFile::close(/rooms/A.lck)",
               "iFileManager::removeFile(/rooms/A.lck)",
               "iFileManager::removeFile(/rooms/A.lck.inf)",
               "iFileManager::openFile(/rooms/B.lck.inf, 3, 3, 4, 0)",
               "iFile::write(/rooms/B.lck.inf, anna)", "iFile::close(/rooms/B.lck.inf)"}));
}

TEST_F(ProjectShareRoomsTest, AfterMovingOnlyTheNewRoomsFilesAreThere) {
  share.lockRoom(kRoomA);
  share.lockRoom(kRoomB);
  for (const char* file : kTwoFiles) EXPECT_FALSE(host.files.has(file)) << file;
  EXPECT_TRUE(host.files.has("/rooms/B.lck"));
  EXPECT_EQ(share.getRoomLockOwner(kRoomB), L"anna");
}

TEST_F(ProjectShareRoomsTest, ARoomHeldElsewhereIsRefusedWithOneReportAndTheOldRoomKept) {
  host.files.put("/rooms/B.lck", "");
  host.files.put("/rooms/B.lck.inf", "bob");
  host.files.heldElsewhere.insert("/rooms/B.lck");
  share.lockRoom(kRoomA);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(share.lockRoom(kRoomB));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), kRefused);
  EXPECT_EQ(host.files.openHandles("/rooms/A.lck"), 1U);
  EXPECT_EQ(share.getRoomLockOwner(kRoomA), L"anna");
  EXPECT_EQ(share.getRoomLockOwner(kRoomB), L"bob");
  EXPECT_EQ(host.journal.count("iFileManager::removeFile(/rooms/B.lck)"), 0);
}

TEST_F(ProjectShareRoomsTest, EnteringTheRoomThatIsHeldIsRefusedAndKeepsIt) {
  share.lockRoom(kRoomA);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(share.lockRoom(kRoomA));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), kRefused);
  EXPECT_EQ(host.files.openHandles("/rooms/A.lck"), 1U);
  for (const char* file : kTwoFiles) EXPECT_TRUE(host.files.has(file)) << file;
}

TEST_F(ProjectShareRoomsTest, ARoomLeftBehindCanBeTakenOver) {
  host.files.put("/rooms/A.lck", "");
  host.files.put("/rooms/A.lck.inf", "somebody gone");
  EXPECT_TRUE(share.lockRoom(kRoomA));
  EXPECT_EQ(share.getRoomLockOwner(kRoomA), L"anna");
}

TEST_F(ProjectShareRoomsTest, ARoomWhoseNameCannotBeWrittenIsHeldWithoutAName) {
  host.files.refusals["/rooms/A.lck.inf"] = eFileError::eFull;
  EXPECT_TRUE(share.lockRoom(kRoomA));
  EXPECT_EQ(share.getRoomLockOwner(kRoomA), L"");
}

TEST_F(ProjectShareRoomsTest, LeavingRoomsReleasesTheRoomAndLeavesAMarker) {
  share.lockRoom(kRoomA);
  host.journal.clear();
  EXPECT_TRUE(share.lockRoom(L""));
  EXPECT_EQ(host.journal.effects(),
            (Strings{"iFile::close(/rooms/A.lck)", "iFileManager::removeFile(/rooms/A.lck)",
                     "iFileManager::removeFile(/rooms/A.lck.inf)",
                     "iFileManager::markFile(/projects/anna.cli, 2)"}));
  EXPECT_TRUE(host.files.has("/projects/anna.cli"));
}

TEST_F(ProjectShareRoomsTest, LeavingRoomsWithoutHoldingOneLeavesAMarkerAndSaysTrue) {
  host.files.marksFail = true;
  EXPECT_TRUE(share.lockRoom(L""));
  EXPECT_EQ(host.journal.effects(), Strings{"iFileManager::markFile(/projects/anna.cli, 2)"});
}

TEST_F(ProjectShareRoomsTest, EnteringARoomFirstMarksTheLastMarkerAndRemembersItFurther) {
  share.lockRoom(L"");
  for (const wchar_t* room : {kRoomA, kRoomB}) {
    host.journal.clear();
    EXPECT_TRUE(share.lockRoom(room));
    EXPECT_EQ(host.journal.effects().front(), "iFileManager::markFile(/projects/anna.cli, 1)");
  }
}

TEST_F(ProjectShareRoomsTest, ARoomIsEnteredAlthoughTheLastMarkerCannotBeMarked) {
  share.lockRoom(L"");
  host.files.marksFail = true;
  EXPECT_TRUE(share.lockRoom(kRoomA));
  EXPECT_EQ(host.journal.count("iFileManager::markFile(/projects/anna.cli, 1)"), 1);
  EXPECT_EQ(share.getRoomLockOwner(kRoomA), L"anna");
}

TEST_F(ProjectShareRoomsTest, EvenARefusedRoomMarksTheLastMarker) {
  share.lockRoom(L"");
  host.files.heldElsewhere.insert("/rooms/A.lck");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(share.lockRoom(kRoomA));
  testing::internal::GetCapturedStdout();
  EXPECT_EQ(host.journal.count("iFileManager::markFile(/projects/anna.cli, 1)"), 1);
}

TEST_F(ProjectShareRoomsTest, TheMarkerOfAnotherUserNameReplacesTheRememberedOne) {
  share.lockRoom(L"");
  host.os.userName = L"bob";
  share.lockRoom(L"");
  host.journal.clear();
  share.lockRoom(kRoomA);
  EXPECT_EQ(host.journal.effects().front(), "iFileManager::markFile(/projects/bob.cli, 1)");
}

TEST_F(ProjectShareRoomsTest, ReleasingTheRoomRemovesItsFilesAndIsHarmlessWithoutOne) {
  share.lockRoom(kRoomA);
  share.unlockCurrentRoom();
  for (const char* file : kTwoFiles) EXPECT_FALSE(host.files.has(file)) << file;
  host.journal.clear();
  share.unlockCurrentRoom();
  EXPECT_TRUE(host.journal.lines().empty());
}

TEST_F(ProjectShareRoomsTest, ARoomThatWasReleasedCanBeEnteredAgain) {
  for (int i = 0; i < 2; ++i) {
    EXPECT_TRUE(share.lockRoom(kRoomA));
    share.unlockCurrentRoom();
  }
}

TEST_F(ProjectShareRoomsTest, DestroyingTheObjectReleasesNoRoom) {
  auto first = std::make_unique<ProjectShare>();
  first->lockRoom(kRoomA);
  first.reset();
  EXPECT_EQ(host.files.openHandles("/rooms/A.lck"), 1U);
  EXPECT_TRUE(share.lockRoom(kRoomB));
  EXPECT_FALSE(host.files.has("/rooms/A.lck"));
}

TEST_F(ProjectShareRoomsTest, TheOwnersNameIsCutAfter200Bytes) {
  EXPECT_EQ(share.getRoomLockOwner(kRoomA), L"");
  host.files.put("/rooms/A.lck.inf", std::string(200, 'a') + std::string(100, 'b'));
  host.journal.clear();
  EXPECT_EQ(share.getRoomLockOwner(kRoomA).view(), std::wstring(200, L'a'));
  EXPECT_EQ(host.journal.effects().front(), "iFileManager::openFile(/rooms/A.lck.inf, 1, 0, 1, 0)");
}

TEST_F(ProjectShareRoomsTest, ActiveUsersAreTheMarkersInTheProjectsDirectoryWhoeverWroteThem) {
  EXPECT_EQ(share.getNumActiveUsers(), 0U);
  EXPECT_EQ(host.journal.lines(), Strings{"? iFileManager::listDirectory(/projects/*.cli, 1, 0)"});
  for (const char* name : {"anna.cli", "bob.cli", ".cli", "notes.txt", "P0001/carla.cli"}) {
    host.files.put(std::string("/projects/") + name, "");
  }
  EXPECT_EQ(share.getNumActiveUsers(), 3U);
}

TEST_F(ProjectShareRoomsTest, WithoutAReadableProjectsDirectoryNobodyIsActive) {
  host.files.listingsFail = true;
  EXPECT_EQ(share.getNumActiveUsers(), 0U);
}

TEST_F(ProjectShareRoomsTest, LeavingRoomsGoesThroughTheVirtualTable) {
  NotingShare noting;
  EXPECT_TRUE(noting.lockRoom(L""));
  EXPECT_EQ(noting.unlocked, 1);
  EXPECT_TRUE(host.files.has("/projects/carla.cli"));
  EXPECT_TRUE(noting.lockRoom(kRoomA));
  EXPECT_EQ(noting.getRoomLockOwner(kRoomA), L"carla");
  EXPECT_EQ(noting.unlocked, 1);
}

}  // namespace
