#include "ProjectShare/PermissionsManager.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "host/base/Text.h"
#include "tests/fakes/FakeHost.h"
#include "tests/support/Cookies.h"

using namespace korvel;

namespace {

using Strings = std::vector<std::string>;

class PermissionsManagerTest : public testing::Test {
 protected:
  void SetUp() override { host.os.hostName = L"Edit-1"; }

  void writeUserList(const std::string& content) {
    host.files.put("/projects/userlist.dat", content);
  }

  Strings users() {
    Strings names;
    for (const auto& name : manager.getUserList()) names.push_back(toUTF8(name).str());
    return names;
  }

  FakeEdit& addEdit(const char* text, const std::string& owner) {
    FakeEdit& edit = host.edits.add(cookie(text));
    edit.settings.values["OWNER"] = owner;
    return edit;
  }

  FakeEdit& addShot(const char* text, const std::string& owner) {
    FakeEdit& shot = addEdit(text, owner);
    shot.logType = 1;
    shot.edit = false;
    return shot;
  }

  bool mayModify(const char* text) const {
    return manager.isModificationAllowed(cookie(text), eModTrim);
  }

  FakeHost host;
  PermissionsManager manager;
};

/// A manager whose answers a test sets, to see which calls go through the virtual table.
class OverridingManager : public PermissionsManager {
 public:
  [[nodiscard]] LightweightString<wchar_t> getCurrentUser() const override { return L"BOB"; }
  [[nodiscard]] bool isModificationAllowed(const Cookie& object,
                                           EditModificationType kind) const override {
    asked = kind;
    return PermissionsManager::isModificationAllowed(object, kind);
  }
  mutable EditModificationType asked = eModNone;
};

TEST_F(PermissionsManagerTest, ItRegistersWithTheHostAsProjectSharing) {
  EXPECT_EQ(iPermissionsManager::instance(), &manager);
  EXPECT_EQ(manager.componentName(), "Project sharing");
}

TEST_F(PermissionsManagerTest, TheCurrentUserIsTheUpperCasedHostName) {
  EXPECT_EQ(manager.getHostName(), L"EDIT-1");
  EXPECT_EQ(manager.getCurrentUser(), L"EDIT-1");
}

TEST_F(PermissionsManagerTest, TheHostNameIsAskedUntilThereIsOneAndThenRemembered) {
  host.os.hostName = L"";
  EXPECT_TRUE(manager.getHostName().empty());
  host.os.hostName = L"late";
  EXPECT_EQ(manager.getHostName(), L"LATE");
  host.os.hostName = L"later";
  EXPECT_EQ(manager.getHostName(), L"LATE");
}

TEST_F(PermissionsManagerTest, TheUserListIsTheFilesNamesWithoutDuplicatesAndThenThisStation) {
  writeUserList("alice\nAlice\nBOB\n");
  EXPECT_EQ(users(), (Strings{"ALICE", "BOB", "EDIT-1"}));
  EXPECT_EQ(host.journal.count("? TextFile(/projects/userlist.dat, true)"), 1);
}

TEST_F(PermissionsManagerTest, AFileThatNamesThisStationKeepsItAtItsPlace) {
  writeUserList("alice\neDIT-1\nbob\n");
  EXPECT_EQ(users(), (Strings{"ALICE", "EDIT-1", "BOB"}));
}

TEST_F(PermissionsManagerTest, AMissingFileLeavesThisStationAlone) {
  EXPECT_EQ(users(), Strings{"EDIT-1"});
}

TEST_F(PermissionsManagerTest, AFileChangedAfterTheFirstLookHasNoEffect) {
  writeUserList("alice\n");
  EXPECT_EQ(users(), (Strings{"ALICE", "EDIT-1"}));
  writeUserList("bob\n");
  EXPECT_EQ(users(), (Strings{"ALICE", "EDIT-1"}));
  EXPECT_EQ(host.journal.count("? TextFile(/projects/userlist.dat, true)"), 1);
}

TEST_F(PermissionsManagerTest, AUserAddedBeforeTheFirstLookComesFirst) {
  writeUserList("alice\nCarol\n");
  manager.addUser(L"carol");
  EXPECT_EQ(users(), (Strings{"CAROL", "ALICE", "EDIT-1"}));
}

TEST_F(PermissionsManagerTest, AUserAddedTwiceIsListedOnceAndTheFileIsNotTouched) {
  EXPECT_EQ(users(), Strings{"EDIT-1"});
  manager.addUser(L"dave");
  manager.addUser(L"DAVE");
  EXPECT_EQ(users(), (Strings{"EDIT-1", "DAVE"}));
  EXPECT_FALSE(host.files.has("/projects/userlist.dat"));
}

TEST_F(PermissionsManagerTest, AnEmptyLineIsAnEmptyNameOnce) {
  writeUserList("alice\n\n\nbob\n");
  EXPECT_EQ(users(), (Strings{"ALICE", "", "BOB", "EDIT-1"}));
}

TEST_F(PermissionsManagerTest, LinesAreNotTrimmedAndEachByteIsOneCharacter) {
  writeUserList(" bob \n\xc3\xa9\n");
  EXPECT_EQ(manager.getUserList()[0], L" BOB ");
  EXPECT_EQ(manager.getUserList()[1], L"\u00c3\u00a9");
}

TEST_F(PermissionsManagerTest, TheProjectsDirectorysTextIsTakenAsItIs) {
  host.os.projectsDirectory = L"/share/projects-";
  EXPECT_EQ(users(), Strings{"EDIT-1"});
  EXPECT_EQ(host.journal.count("? TextFile(/share/projects-userlist.dat, true)"), 1);
}

TEST_F(PermissionsManagerTest, TenThousandNamesKeepTheirOrder) {
  std::string content;
  for (int i = 0; i < 10'000; ++i) content += "user" + std::to_string(i) + "\n";
  writeUserList(content + content);
  const Strings names = users();
  ASSERT_EQ(names.size(), 10'001U);
  EXPECT_EQ(names[0], "USER0");
  EXPECT_EQ(names[9'999], "USER9999");
  EXPECT_EQ(names[10'000], "EDIT-1");
}

TEST_F(PermissionsManagerTest, AllInstancesShareTheirState) {
  PermissionsManager other;
  manager.addUser(L"alice");
  addShot("S0001", "");
  manager.setOwner(cookie("S0001"), L"bob", iPermissionsManager::eShot, false);
  EXPECT_EQ(other.getUserList().front(), L"ALICE");
  EXPECT_FALSE(other.isModificationAllowed(cookie("S0001"), eModTrim));
}

TEST_F(PermissionsManagerTest, AChangeOfProjectForgetsOwnersAndKeepsUsers) {
  writeUserList("alice\n");
  manager.addUser(L"dora");
  const Strings before = users();
  writeUserList("somebody else\n");
  FakeEdit& edit = addEdit("E0001", "bob");
  EXPECT_FALSE(mayModify("E0001"));
  edit.settings.values["OWNER"] = "edit-1";
  EXPECT_FALSE(mayModify("E0001"));
  manager.flushOnProjectChange();
  EXPECT_TRUE(mayModify("E0001"));
  EXPECT_EQ(users(), before);
}

TEST_F(PermissionsManagerTest, OnlySharedProjectSpacesCanBeManagedWhateverTheNetworkMode) {
  const struct {
    int type;
    bool networkMode;
    bool can;
  } rows[] = {{1, true, true},  {1, false, true},  {0, true, false},
              {2, true, false}, {0, false, false}, {3, true, false}};
  for (const auto& row : rows) {
    host.project.spaceType = row.type;
    host.project.networkMode = row.networkMode;
    EXPECT_EQ(manager.canManageCurrentProjectSpace(), row.can) << row.type << row.networkMode;
  }
}

TEST_F(PermissionsManagerTest, ItsCapabilitiesAreThoseOfAManagerThatTransfersOwnership) {
  const iPermissionsManager& asTheHostSeesIt = manager;
  EXPECT_TRUE(asTheHostSeesIt.canTranferOwnership());
  EXPECT_EQ(asTheHostSeesIt.getCaps(), 12U);
  EXPECT_TRUE(asTheHostSeesIt.canModifyProject({}));
  EXPECT_TRUE(asTheHostSeesIt.canCreateProjects());
}

TEST_F(PermissionsManagerTest, OutsideNetworkModeEverythingIsModifiableAndNothingIsLookedAt) {
  host.project.networkMode = false;
  addEdit("E0001", "RENDER");
  host.journal.clear();
  EXPECT_TRUE(mayModify("E0001"));
  EXPECT_TRUE(host.journal.effects().empty());
}

TEST_F(PermissionsManagerTest, TheCurrentProjectItselfIsModifiable) {
  const Cookie project = convertCookie(host.project.current, 'E', 255);
  host.edits.add(project).settings.values["OWNER"] = "RENDER";
  EXPECT_TRUE(manager.isModificationAllowed(project, eModTrim));
  host.project.current = cookie("P0002");
  EXPECT_FALSE(manager.isModificationAllowed(project, eModTrim));
}

TEST_F(PermissionsManagerTest, WhatCannotBeOpenedIsAllowedAndTriedAgain) {
  EXPECT_TRUE(mayModify("E0001"));
  EXPECT_TRUE(mayModify("E0001"));
  EXPECT_EQ(host.journal.count("EditPtr::i_open(E0001, 0)"), 2);
  addEdit("E0001", "bob");
  EXPECT_FALSE(mayModify("E0001"));
}

TEST_F(PermissionsManagerTest, AnOwnerOnceReadIsNotReadAgain) {
  addEdit("E0001", "edit-1");
  host.journal.clear();
  EXPECT_TRUE(mayModify("E0001"));
  EXPECT_TRUE(mayModify("E0001"));
  EXPECT_EQ(host.journal.effects(),
            (Strings{"EditPtr::i_open(E0001, 0)", "EditPtr::i_close(E0001)"}));
}

TEST_F(PermissionsManagerTest, AnOwnerThatIsRecordedLaterCountsFromThenOn) {
  addShot("S0001", "");
  EXPECT_TRUE(mayModify("S0001"));
  EXPECT_TRUE(mayModify("S0001"));
  manager.setOwner(cookie("S0001"), L"bob", iPermissionsManager::eShot, false);
  EXPECT_FALSE(mayModify("S0001"));
}

TEST_F(PermissionsManagerTest, ObjectsWithEqualPartsOfTheirUuidsHaveOwnersOfTheirOwn) {
  addEdit("E0001", "edit-1");
  addEdit("E0101", "bob");
  addShot("S0001", "bob");
  for (int round = 0; round < 3; ++round) {
    EXPECT_TRUE(mayModify("E0001"));
    EXPECT_FALSE(mayModify("E0101"));
    EXPECT_FALSE(mayModify("S0001"));
  }
}

TEST_F(PermissionsManagerTest, TheStoredOwnerDecides) {
  const std::string nobody = toUTF8(iPermissionsManager::kNoOwner).str();
  const struct {
    const char* what;
    int logType;
    std::string owner;
    bool allowed;
  } rows[] = {{"own edit", 2, "EDIT-1", true},
              {"own edit in lower case", 2, "edit-1", true},
              {"another's edit", 2, "BOB", false},
              {"edit without owner", 2, "", false},
              {"edit of nobody", 2, nobody, false},
              {"edit of a render job", 2, "RENDER", false},
              {"edit of a render job in lower case", 2, "render", false},
              {"own shot", 1, "edit-1", true},
              {"another's shot", 1, "bob", false},
              {"shot without owner", 1, "", true},
              {"shot of nobody", 1, nobody, true},
              {"shot of a render job", 1, "render", false},
              {"another kind of log without owner", 0, "", true}};
  for (const auto& row : rows) {
    addEdit("E0001", row.owner).logType = row.logType;
    manager.flushOnProjectChange();
    EXPECT_EQ(mayModify("E0001"), row.allowed) << row.what;
  }
}

TEST_F(PermissionsManagerTest, AnEditWithoutOwnerIsOpenToAUserWithoutName) {
  host.os.hostName = L"";
  addEdit("E0001", "");
  EXPECT_TRUE(mayModify("E0001"));
}

TEST_F(PermissionsManagerTest, NetworkModeIsAskedAgainOnceTheOwnerIsKnown) {
  addEdit("E0001", "bob");
  addEdit("E0002", "render");
  host.journal.onLine = [this](const std::string& line) {
    if (line.rfind("EditPtr::i_open", 0) == 0) host.project.networkMode = false;
  };
  EXPECT_TRUE(mayModify("E0001"));
  host.project.networkMode = true;
  EXPECT_FALSE(mayModify("E0002"));
}

TEST_F(PermissionsManagerTest, AnObjectOfAnUnsupportedKindIsRefusedWithAReport) {
  manager.setOwner(cookie("V0001"), L"edit-1", iPermissionsManager::eUnsupported, false);
  testing::internal::CaptureStdout();
  EXPECT_FALSE(mayModify("V0001"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "assertion failed false at ProjectShare/PermissionsManager line 203\n");
}

TEST_F(PermissionsManagerTest, AnObjectOfAnUnknownKindIsReportedAndTreatedAsAShot) {
  const auto unknown = static_cast<iPermissionsManager::eObjectType>(3);
  manager.setOwner(cookie("V0001"), L"", unknown, false);
  testing::internal::CaptureStdout();
  EXPECT_TRUE(mayModify("V0001"));
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "assertion failed p.type_ == eShot at ProjectShare/PermissionsManager line 188\n");
}

TEST_F(PermissionsManagerTest, TheKindOfModificationNeverChangesTheAnswer) {
  addEdit("E0001", "edit-1");
  addEdit("E0002", "bob");
  for (const int kind : {-1, 0, 1, 32, 53, 55, 1000}) {
    const auto type = static_cast<EditModificationType>(kind);
    EXPECT_TRUE(manager.isModificationAllowed(cookie("E0001"), type)) << kind;
    EXPECT_FALSE(manager.isModificationAllowed(cookie("E0002"), type)) << kind;
  }
}

TEST_F(PermissionsManagerTest, DirtyingIsJudgedAsKind32ThroughTheVirtualTable) {
  const OverridingManager overriding;
  addEdit("E0001", "edit-1");
  addEdit("E0002", "bob");
  EXPECT_TRUE(manager.isDirtiable(cookie("E0001")));
  EXPECT_FALSE(manager.isDirtiable(cookie("E0002")));
  EXPECT_TRUE(overriding.isDirtiable(cookie("E0002")));
  EXPECT_EQ(overriding.asked, 32);
}

TEST_F(PermissionsManagerTest, AnOverriddenCurrentUserDecidesWhoMayModify) {
  const OverridingManager overriding;
  addEdit("E0001", "bob");
  EXPECT_TRUE(overriding.isModificationAllowed(cookie("E0001"), eModTrim));
  EXPECT_FALSE(mayModify("E0001"));
}

TEST_F(PermissionsManagerTest, AShotGivenToBobIsModifiableOnlyOnTheStationOfThatName) {
  addShot("S0001", "");
  manager.setOwner(cookie("S0001"), L"bob", iPermissionsManager::eShot, false);
  EXPECT_FALSE(mayModify("S0001"));
  EXPECT_TRUE(OverridingManager().isModificationAllowed(cookie("S0001"), eModTrim));
}

TEST_F(PermissionsManagerTest, AShotsOwnerIsRememberedAndNeverStored) {
  const FakeEdit& shot = addShot("S0001", "");
  host.journal.clear();
  manager.setOwner(cookie("S0001"), L"bob", iPermissionsManager::eShot, true);
  EXPECT_EQ(host.journal.effects(),
            (Strings{"EditPtr::i_open(S0001, 0)", "EditPtr::i_close(S0001)"}));
  EXPECT_EQ(shot.settings.get("OWNER"), "");
}

TEST_F(PermissionsManagerTest, AnEditsNewOwnerIsStoredUpperCasedFlushedAndDescribed) {
  addEdit("E0001", "ALICE");
  host.journal.clear();
  manager.setOwner(cookie("E0001"), L"ren\u00e9", iPermissionsManager::eEdit, true);
  EXPECT_EQ(
      host.journal.effects(),
      (Strings{"EditPtr::i_open(E0001, 0)", "configb::set(E0001, OWNER, REN\xc3\x89)",
               "EditManager::flushChanges(E0001)", "Edit::setChangeDescription(E0001, 53, true)",
               "announce(E0001, 53)", "EditPtr::i_close(E0001)"}));
}

TEST_F(PermissionsManagerTest, WithoutTheDescriptionAnEditsNewOwnerIsStoredAlone) {
  addEdit("E0001", "");
  host.journal.clear();
  manager.setOwner(cookie("E0001"), L"bob", iPermissionsManager::eEdit, false);
  EXPECT_EQ(host.journal.effects(),
            (Strings{"EditPtr::i_open(E0001, 0)", "configb::set(E0001, OWNER, BOB)",
                     "EditManager::flushChanges(E0001)", "EditPtr::i_close(E0001)"}));
}

TEST_F(PermissionsManagerTest, AnOwnerIsComparedWithTheStoredOneAsItWasGiven) {
  const struct {
    const char* stored;
    const wchar_t* given;
    int flushes;
  } rows[] = {{"BOB", L"BOB", 0}, {"BOB", L"bob", 1}, {"bob", L"bob", 0},
              {"", L"", 0},       {"BOB", L"", 1},    {"", L"BOB", 1}};
  for (const auto& row : rows) {
    addEdit("E0001", row.stored);
    host.journal.clear();
    manager.setOwner(cookie("E0001"), row.given, iPermissionsManager::eEdit, true);
    EXPECT_EQ(host.journal.count("EditManager::flushChanges(E0001)"), row.flushes) << row.stored;
    EXPECT_EQ(host.journal.effects().back(), "EditPtr::i_close(E0001)") << row.stored;
  }
}

TEST_F(PermissionsManagerTest, AnOwnerIsRecordedEvenIfTheObjectCannotBeOpened) {
  manager.setOwner(cookie("S0001"), L"bob", iPermissionsManager::eShot, false);
  EXPECT_FALSE(mayModify("S0001"));
}

TEST_F(PermissionsManagerTest, TheRecordedKindComesFromTheCallerNotFromTheObject) {
  addEdit("E0001", "");
  manager.setOwner(cookie("E0001"), L"", iPermissionsManager::eShot, false);
  EXPECT_TRUE(mayModify("E0001"));
}

TEST_F(PermissionsManagerTest, AnExceptionIsLoggedOnceAndRefusesTheModification) {
  host.journal.onLine = [](const std::string& line) {
    if (line.rfind("EditPtr::i_open", 0) == 0) throw std::runtime_error("no memory");
  };
  EXPECT_FALSE(mayModify("E0001"));
  EXPECT_EQ(host.logLines,
            Strings{"both: Project Share: isModificationAllowed failed: no memory\n"});
}

}  // namespace
