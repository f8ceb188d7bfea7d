#include "station/project/Projects.h"

#include "host/project/ProjectSpacesManager.h"
#include "tests/station/PluginStation.h"

using namespace korvel;

namespace {

class ProjectsTest : public PluginStation {
 protected:
  [[nodiscard]] std::string lockOf(const Cookie& cookie) const {
    return folder / (cookie.asString().str() + "/Lock");
  }
};

TEST_F(ProjectsTest, EnteringAnnouncesARoomChangeOfTheProject) {
  ASSERT_TRUE(projects.leave());
  EXPECT_EQ(ProjectSpacesManager::getCurrentProjectSpaceType(), 0);
  ASSERT_TRUE(projects.enter("Film"));
  EXPECT_EQ(sentTypes(), Types{6});
  EXPECT_EQ(readMessage(network.sent[0]).cookie, project.asString().str());
  EXPECT_EQ(ProjectSpacesManager::getCurrentProjectSpaceType(), 1);
}

TEST_F(ProjectsTest, APrivateProjectIsLockedWhileItIsOpen) {
  enter("Mine", Kind::ePrivate);
  EXPECT_EQ(ProjectSpacesManager::getCurrentProjectSpaceType(), 2);
  EXPECT_EQ(bytesOf(lockOf(project) + ".inf"), "anna");
  ASSERT_TRUE(projects.leave());
  EXPECT_FALSE(std::filesystem::exists(lockOf(project)));
  EXPECT_FALSE(std::filesystem::exists(lockOf(project) + ".inf"));
}

TEST_F(ProjectsTest, AnotherFolderInThePlaceOfTheDirectoryIsTheShareOnlyWithAProof) {
  namespace fs = std::filesystem;
  ASSERT_TRUE(projects.leave());
  ASSERT_TRUE(projects.directory()->check());
  fs::rename(folder.path(), folder.path() + "-away");
  fs::create_directory(folder.path());
  EXPECT_EQ(projects.create("Late", false).error().code, ErrorCode::eNotFound);
  EXPECT_FALSE(projects.list());
  EXPECT_NE(projects.enter("Film").error().message.find("mounted"), std::string::npos);
  EXPECT_TRUE(fs::is_empty(folder.path()));
  fs::create_directory(folder / project.asString().str());
  EXPECT_FALSE(projects.directory()->check());
  write(folder / (project.asString().str() + "/project.json"), "{}");
  EXPECT_TRUE(projects.directory()->check()) << "the share, mounted anew";
  EXPECT_TRUE(projects.create("Late", false));
  fs::remove_all(folder.path() + "-away");
}

TEST_F(ProjectsTest, ASharedProjectIsNotLocked) {
  EXPECT_FALSE(std::filesystem::exists(lockOf(project)));
}

TEST_F(ProjectsTest, AHeldProjectIsRefusedWithTheHoldersNameAndTheOpenOneStays) {
  const auto other = projects.create("Theirs", true);
  const auto held = holdElsewhere(lockOf(*other), "bob\x1b[2J");
  const auto refused = projects.enter("Theirs");
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::eHeld);
  EXPECT_NE(refused.error().message.find("bob?[2J"), std::string::npos) << refused.error().message;
  EXPECT_EQ(projects.current()->name, "Film");
  EXPECT_EQ(network.sent, std::vector<std::string>{});
}

TEST_F(ProjectsTest, AHolderWhoseNameCannotBeReadYetIsToldApartFromNobody) {
  const auto other = projects.create("Theirs", true);
  const auto held = holdElsewhere(lockOf(*other), "");
  const auto refused = projects.enter("Theirs");
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.error().message.find("cannot be read yet"), std::string::npos);
  const auto infos = projects.list();
  ASSERT_TRUE(infos);
  for (const ProjectInfo& info : *infos) {
    if (info.cookie == *other) {
      EXPECT_EQ(info.lock, LockState::eHeld);
      EXPECT_EQ(info.lockOwner, "");
    }
  }
}

TEST_F(ProjectsTest, AnOpenPrivateProjectStaysLockedWhenAnotherIsRefused) {
  enter("Mine", Kind::ePrivate);
  const Cookie mine = project;
  const auto other = projects.create("Theirs", true);
  const auto held = holdElsewhere(lockOf(*other), "bob");
  ASSERT_FALSE(projects.enter("Theirs"));
  EXPECT_EQ(projects.current()->cookie, mine);
  EXPECT_EQ(lookAtLock(wideText(lockOf(mine))), LockState::eHeld);
}

TEST_F(ProjectsTest, ALockLeftBehindIsShownSoAndTakenOver) {
  const auto other = projects.create("Theirs", true);
  write(lockOf(*other), "");
  write(lockOf(*other) + ".inf", "gone");
  const auto infos = projects.list();
  const auto isIt = [&](const ProjectInfo& info) { return info.cookie == *other; };
  const auto info = std::find_if(infos->begin(), infos->end(), isIt);
  EXPECT_EQ(info->lock, LockState::eLeftBehind);
  EXPECT_EQ(info->lockOwner, "gone");
  ASSERT_TRUE(projects.enter("Theirs"));
  EXPECT_EQ(bytesOf(lockOf(*other) + ".inf"), "anna");
}

TEST_F(ProjectsTest, ABrokenRecordIsListedAsUnreadableAndLeftAsItIs) {
  const auto other = projects.create("Broken", false);
  const std::string record = folder / (other->asString().str() + "/project.json");
  write(record, "{\"name\": ");
  const auto infos = projects.list();
  ASSERT_TRUE(infos);
  EXPECT_EQ(infos->size(), 2U);
  EXPECT_FALSE(projects.enter(other->asString().str()));
  EXPECT_EQ(projects.current()->name, "Film");
  EXPECT_EQ(bytesOf(record), "{\"name\": ");
}

TEST_F(ProjectsTest, NamesOfAnyKindAreKept) {
  for (const std::string& name :
       {std::string("a b"), std::string("\"q\""), std::string("Grüße €"), std::string(300, 'x'),
        std::string("a/b"), std::string(".dot"), std::string("../up")}) {
    ASSERT_TRUE(projects.create(name, false)) << name;
    ASSERT_TRUE(projects.enter(name)) << name;
    EXPECT_EQ(projects.current()->name, name);
  }
}

TEST_F(ProjectsTest, NamesThatAreNoneAreRefused) {
  for (const std::string& name :
       {std::string(), std::string("a\nb"), std::string("a\0b", 3), std::string(1001, 'x')}) {
    const auto refused = projects.create(name, false);
    ASSERT_FALSE(refused) << name;
    EXPECT_EQ(refused.error().code, ErrorCode::eUsage);
  }
}

TEST_F(ProjectsTest, AFolderThatGoesAwayIsARefusalThatSaysSo) {
  ASSERT_TRUE(projects.leave());
  std::filesystem::remove_all(folder.path());
  for (const Result<void>& refused : {projects.enter("Film"), projects.enter("P0001")}) {
    ASSERT_FALSE(refused);
    EXPECT_NE(refused.error().message.find(folder.path()), std::string::npos);
  }
  EXPECT_FALSE(projects.create("New", false));
  EXPECT_FALSE(projects.list());
}

TEST_F(ProjectsTest, AProjectWhoseRecordCannotBeReadIsNotCalledMissing) {
  const auto other = projects.create("Other", false);
  ASSERT_TRUE(other);
  write(folder / (other->asString().str() + "/project.json"), "{");
  const auto entered = projects.enter("Other");
  ASSERT_FALSE(entered);
  EXPECT_EQ(entered.error().code, ErrorCode::eBadContent);
  EXPECT_NE(entered.error().message.find("not every one can"), std::string::npos);
  EXPECT_NE(entered.error().message.find("project.json"), std::string::npos);
}

TEST_F(ProjectsTest, WhatAKilledStationLeftOfAProjectIsRemovedAnHourLater) {
  namespace fs = std::filesystem;
  struct Row {
    const char* name;
    int minutes;  ///< since it was made
    bool stays;
  };
  const Row rows[] = {{".new-P0001", 61, false}, {".new-P0002", 50, true}, {".new-Q0001", 61, true},
                      {".new-P", 61, true},      {".new-", 61, true},      {".older", 61, true}};
  for (const Row& row : rows) {
    const std::string path = folder / row.name;
    fs::create_directory(path);
    write(path + "/project.json", "{}");
    fs::last_write_time(path, fs::file_time_type::clock::now() - std::chrono::minutes(row.minutes));
  }
  ASSERT_TRUE(projects.create("Next", false));
  for (const Row& row : rows) EXPECT_EQ(fs::exists(folder / row.name), row.stays) << row.name;
}

}  // namespace
