#include <gtest/gtest.h>

#include <memory>
#include <stdexcept>

#include "ProjectShare/ProjectShare.h"
#include "host/base/Text.h"
#include "tests/fakes/FakeHost.h"
#include "tests/support/Cookies.h"

using namespace korvel;

// Projects: locks and their owners. Rooms and active users are in ProjectShareRoomsTest.

namespace {

using Strings = std::vector<std::string>;

class ProjectShareTest : public testing::Test {
 protected:
  void TearDown() override {
    host.journal.onLine = nullptr;
    share.unlockCurrentlyLockedProject();
  }

  std::string lockFile(const char* project) {
    return toUTF8(share.getProjectLockFile(cookie(project))).str();
  }

  /// The owner of P0001 when its information file holds these bytes.
  LightweightString<wchar_t> ownerFrom(const std::string& bytes) {
    host.files.put("/projects/P0001/Lock.inf", bytes);
    return share.getProjectLockOwner(cookie("P0001"));
  }

  FakeHost host;
  ProjectShare share;
};

/// Overrides what the other operations call.
class ElsewhereShare : public ProjectShare {
 public:
  LightweightString<wchar_t> getProjectLockFile(const Cookie&) override { return L"/x/Guard"; }
  LightweightString<wchar_t> getCurrentUser() override { return L"carla"; }
};

TEST_F(ProjectShareTest, ItRegistersWithTheHostAsProjectSharing) {
  EXPECT_EQ(iProjectShare::instance(), &share);
  EXPECT_EQ(share.componentName(), "Project sharing");
}

TEST_F(ProjectShareTest, TheLockFileLiesInTheProjectsFolder) {
  EXPECT_EQ(lockFile("P0001"), "/projects/P0001/Lock");
  EXPECT_EQ(lockFile("G0001-ff00"), "/projects/G0001-ff00/Lock");
}

TEST_F(ProjectShareTest, WithoutAPathSeparatorNothingIsInserted) {
  host.files.separator = 0;
  EXPECT_EQ(lockFile("P0001"), "/projects/P0001Lock");
}

TEST_F(ProjectShareTest, TheProjectsDirectorysTextIsTakenAsItIs) {
  host.os.projectsDirectory = L"//store/share-";
  EXPECT_EQ(lockFile("P0001"), "//store/share-P0001/Lock");
}

TEST_F(ProjectShareTest, ACookieOfNoProjectHasNoLockFileAndIsNeverOccupied) {
  host.files.put("Lock", "");
  EXPECT_EQ(lockFile("I0001"), "");
  EXPECT_FALSE(share.isProjectOccupied(cookie("I0001")));
  EXPECT_TRUE(host.journal.lines().empty());
}

TEST_F(ProjectShareTest, TheOwnerOfNoProjectIsLookedForBesideTheEmptyPath) {
  EXPECT_EQ(share.getProjectLockOwner(cookie("I0001")), L"");
  EXPECT_EQ(host.journal.effects(), Strings{"iFileManager::openFile(.inf, 1, 0, 1, 0)"});
}

TEST_F(ProjectShareTest, AProjectIsOccupiedWhileItsLockFileExistsWhoeverHoldsIt) {
  EXPECT_FALSE(share.isProjectOccupied(cookie("P0001")));
  share.lockProject(cookie("P0001"));
  EXPECT_TRUE(share.isProjectOccupied(cookie("P0001")));
  share.unlockCurrentlyLockedProject();
  EXPECT_FALSE(share.isProjectOccupied(cookie("P0001")));
  host.files.put("/projects/P0001/Lock", "");
  EXPECT_TRUE(share.isProjectOccupied(cookie("P0001")));
}

TEST_F(ProjectShareTest, LockingTakesTheLockAndWritesTheUsersNameBesideIt) {
  EXPECT_TRUE(share.lockProject(cookie("P0001")));
  EXPECT_EQ(host.journal.effects(),
            (Strings{"iFileManager::openFile(/projects/P0001/Lock, 3, 1, 0, 32)",
                     "iFile::close(/projects/P0001/Lock)",
                     "iFileManager::openFile(/projects/P0001/Lock, 3, 3, 0, 32)",
                     "iFileManager::openFile(/projects/P0001/Lock.inf, 3, 3, 4, 0)",
                     "iFile::write(/projects/P0001/Lock.inf, anna)",
                     "iFile::close(/projects/P0001/Lock.inf)"}));
  EXPECT_EQ(share.getProjectLockOwner(cookie("P0001")), L"anna");
}

TEST_F(ProjectShareTest, ARefusedProjectIsNotUnlocked) {
  host.files.put("/projects/P0001/Lock", "");
  host.files.heldElsewhere.insert("/projects/P0001/Lock");
  EXPECT_FALSE(share.lockProject(cookie("P0001")));
  EXPECT_EQ(host.journal.count("iFileManager::removeFile(/projects/P0001/Lock)"), 0);
}

TEST_F(ProjectShareTest, AnOwnersNameEndsWhereItsFileEndedWhenItsSizeWasAsked) {
  host.files.reportedSizes["/projects/P0001/Lock.inf"] = 4;
  EXPECT_EQ(ownerFrom("annabell"), L"anna");
}

TEST_F(ProjectShareTest, AProjectLockedElsewhereIsRefusedAndItsFilesStay) {
  host.files.put("/projects/P0001/Lock", "");
  host.files.put("/projects/P0001/Lock.inf", "bob");
  host.files.heldElsewhere.insert("/projects/P0001/Lock");
  testing::internal::CaptureStdout();
  EXPECT_FALSE(share.lockProject(cookie("P0001")));
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_TRUE(share.isProjectOccupied(cookie("P0001")));
  EXPECT_EQ(share.getProjectLockOwner(cookie("P0001")), L"bob");
  EXPECT_FALSE(share.unlockCurrentlyLockedProject());
}

TEST_F(ProjectShareTest, LockingWhatIsNoProjectIsReportedAndDoneAllTheSame) {
  for (const std::string object : {"G0001", "E0001"}) {
    SCOPED_TRACE(object);
    testing::internal::CaptureStdout();
    EXPECT_TRUE(share.lockProject(cookie(object.c_str())));
    EXPECT_EQ(testing::internal::GetCapturedStdout(),
              "assertion failed pCookie.getType() == CookieTypeProject at "
              "ProjectShare/ProjectSharing line 180\n");
    EXPECT_EQ(host.files.content("/projects/" + object + "/Lock.inf"), "anna");
  }
}

TEST_F(ProjectShareTest, ASecondProjectDropsTheFirstLockWhichStaysHeld) {
  EXPECT_TRUE(share.lockProject(cookie("P0001")));
  EXPECT_TRUE(share.lockProject(cookie("P0002")));
  EXPECT_TRUE(share.unlockCurrentlyLockedProject());
  EXPECT_FALSE(share.isProjectOccupied(cookie("P0002")));
  EXPECT_EQ(host.files.openHandles("/projects/P0001/Lock"), 1U);
  EXPECT_FALSE(share.unlockCurrentlyLockedProject());
  EXPECT_FALSE(share.lockProject(cookie("P0001")));
}

TEST_F(ProjectShareTest, ARefusedSecondProjectLeavesTheFirstHeldAndOutOfReach) {
  host.files.heldElsewhere.insert("/projects/P0002/Lock");
  EXPECT_TRUE(share.lockProject(cookie("P0001")));
  EXPECT_FALSE(share.lockProject(cookie("P0002")));
  EXPECT_EQ(host.files.openHandles("/projects/P0001/Lock"), 1U);
  EXPECT_FALSE(share.unlockCurrentlyLockedProject());
}

TEST_F(ProjectShareTest, ALockWhoseNameCannotBeWrittenIsHeldWithoutAName) {
  host.files.refusals["/projects/P0001/Lock.inf"] = eFileError::eNoRights;
  EXPECT_TRUE(share.lockProject(cookie("P0001")));
  EXPECT_EQ(share.getProjectLockOwner(cookie("P0001")), L"");
  EXPECT_TRUE(share.unlockCurrentlyLockedProject());
}

TEST_F(ProjectShareTest, UnlockingWithoutALockIsRefusedAndTouchesNoFile) {
  EXPECT_FALSE(share.unlockCurrentlyLockedProject());
  EXPECT_TRUE(host.journal.lines().empty());
}

TEST_F(ProjectShareTest, UnlockingRemovesBothFiles) {
  share.lockProject(cookie("P0001"));
  EXPECT_TRUE(share.unlockCurrentlyLockedProject());
  EXPECT_FALSE(host.files.has("/projects/P0001/Lock"));
  EXPECT_FALSE(host.files.has("/projects/P0001/Lock.inf"));
}

TEST_F(ProjectShareTest, ALockLeftBehindKeepsTheProjectOccupiedAndCanBeTakenOver) {
  host.files.put("/projects/P0001/Lock", "");
  host.files.put("/projects/P0001/Lock.inf", "somebody gone");
  EXPECT_TRUE(share.isProjectOccupied(cookie("P0001")));
  EXPECT_TRUE(share.lockProject(cookie("P0001")));
  EXPECT_EQ(share.getProjectLockOwner(cookie("P0001")), L"anna");
  share.unlockCurrentlyLockedProject();
  EXPECT_FALSE(share.isProjectOccupied(cookie("P0001")));
}

TEST_F(ProjectShareTest, DestroyingTheObjectReleasesNothingAndAnotherOneCanUnlock) {
  auto first = std::make_unique<ProjectShare>();
  first->lockProject(cookie("P0001"));
  first.reset();
  EXPECT_EQ(host.files.openHandles("/projects/P0001/Lock"), 1U);
  EXPECT_TRUE(share.unlockCurrentlyLockedProject());
}

TEST_F(ProjectShareTest, TheOwnerIsReadFromTheInformationFileWithSharedReading) {
  EXPECT_EQ(ownerFrom("Ren\xc3\xa9"), L"Ren\u00e9");
  EXPECT_EQ(host.journal.effects(),
            (Strings{"iFileManager::openFile(/projects/P0001/Lock.inf, 1, 0, 1, 0)",
                     "iFile::close(/projects/P0001/Lock.inf)"}));
}

TEST_F(ProjectShareTest, AnOwnerThatCannotBeReadIsEmpty) {
  EXPECT_EQ(share.getProjectLockOwner(cookie("P0001")), L"");
  host.files.failedOpensGiveHandles = true;
  EXPECT_EQ(share.getProjectLockOwner(cookie("P0001")), L"");
  EXPECT_EQ(ownerFrom(""), L"");
}

TEST_F(ProjectShareTest, AnOwnersNameIsCutAfter200BytesAndEndsAtAZeroByte) {
  const std::string a199(199, 'a');
  const struct {
    const char* what;
    std::string bytes;
    std::string owner;
  } rows[] = {{"199 bytes", a199, a199},
              {"200 bytes", a199 + "b", a199 + "b"},
              {"300 bytes", a199 + "b" + std::string(100, 'c'), a199 + "b"},
              {"a letter cut at byte 200", a199 + "\xc3\xa9", a199 + "\xc3"},
              {"a zero byte", std::string("anna\0bob", 8), "anna"},
              {"no UTF-8", "\xff\xfe", "\xff\xfe"}};
  for (const auto& row : rows) {
    EXPECT_EQ(toUTF8(ownerFrom(row.bytes)).str(), row.owner) << row.what;
  }
}

TEST_F(ProjectShareTest, TheCurrentUserIsTheSystemsNameUnchanged) {
  host.os.userName = L" M\u00fcller ";
  EXPECT_EQ(share.getCurrentUser(), L" M\u00fcller ");
}

TEST_F(ProjectShareTest, OperationsCallEachOtherThroughTheVirtualTable) {
  ElsewhereShare elsewhere;
  EXPECT_TRUE(elsewhere.lockProject(cookie("P0001")));
  EXPECT_EQ(host.files.content("/x/Guard.inf"), "carla");
  EXPECT_TRUE(elsewhere.isProjectOccupied(cookie("P0001")));
  EXPECT_EQ(elsewhere.getProjectLockOwner(cookie("P0001")), L"carla");
  EXPECT_FALSE(share.isProjectOccupied(cookie("P0001")));
}

TEST_F(ProjectShareTest, ASpaceIsManagedOnlyIfSharedAndInNetworkMode) {
  const struct {
    int type;
    bool networkMode;
    bool can;
    int asked;  ///< how often network mode was asked for
  } rows[] = {{1, true, true, 1},  {1, false, false, 1}, {0, true, false, 0},
              {2, true, false, 0}, {2, false, false, 0}, {3, true, false, 0}};
  for (const auto& row : rows) {
    host.project.spaceType = row.type;
    host.project.networkMode = row.networkMode;
    host.journal.clear();
    EXPECT_EQ(share.canManageCurrentProjectSpace(), row.can) << row.type;
    EXPECT_EQ(host.journal.count("? ProjectSpacesManager::machineIsInNetworkMode()"), row.asked)
        << row.type;
  }
}

TEST_F(ProjectShareTest, AnExceptionIsLoggedOnceAndNoLockIsBelievedToBeHeld) {
  host.journal.onLine = [](const std::string& line) {
    if (line.find("Lock, 3, 3, 0, 32") != line.npos) throw std::runtime_error("share is gone");
  };
  EXPECT_FALSE(share.lockProject(cookie("P0001")));
  EXPECT_EQ(host.logLines, Strings{"both: Project Share: lockProject failed: share is gone\n"});
}

}  // namespace
