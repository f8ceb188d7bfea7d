#include <algorithm>
#include <filesystem>
#include <set>
#include <thread>

#include "host/os/OS.h"
#include "station/base/Strings.h"
#include "station/os/Posix.h"
#include "station/os/ReadCache.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

/// Projects whose records are read by a station that keeps what it read.
class ProjectRecordsTest : public DocumentStation {
 protected:
  ProjectRecordsTest() {
    StationSettings chosen = settings();
    chosen.cache = cacheFolder / "korvel";
    installSettings(chosen);
  }

  /// Lets the share's clock tick, and the directory tell of it.
  void letAllComeToRest() const {
    std::this_thread::sleep_for(std::chrono::nanoseconds(kCoarsestTick + kCoarsestTick / 10));
    write(folder.path() + "/other.txt", "");
    fs::remove(folder.path() + "/other.txt");
  }

  /// The names as they are read, or "unreadable", in their order.
  static std::vector<std::string> names() {
    std::vector<std::string> names;
    EXPECT_TRUE(ProjectRecords().forEach([&names](const Cookie&, const auto& record) {
      names.push_back(record ? record->name : "unreadable");
    }));
    std::ranges::sort(names);
    return names;
  }

  /// Makes what is kept of the record untrue, so that it shows who trusts it.
  void renameInCache(const std::string& name) const {
    ReadCache cache(settings().cache, folder.path());
    cache.put(project.asString().str() + "/project.json", *stampOfFile(record()), named(name));
  }

  [[nodiscard]] bool isKept() const {
    const ReadCache cache(settings().cache, folder.path());
    return cache.find(project.asString().str() + "/project.json", *stampOfFile(record()));
  }

  [[nodiscard]] std::string record() const {
    return folder.path() + "/" + project.asString().str() + "/project.json";
  }

  static std::string named(const std::string& name) { return R"({"name":")" + name + "\"}"; }

  ScratchFolder cacheFolder;
};

using Names = std::vector<std::string>;

TEST_F(ProjectRecordsTest, ARecordAtRestIsNotReadAgain) {
  letAllComeToRest();
  EXPECT_EQ(names(), Names{"Film"});
  EXPECT_TRUE(isKept());
  renameInCache("Kept");
  EXPECT_EQ(names(), Names{"Kept"});
}

TEST_F(ProjectRecordsTest, OneThatChangedIsReadAgain) {
  letAllComeToRest();
  EXPECT_EQ(names(), Names{"Film"});
  ASSERT_TRUE(writeAtomically(record(), named("Feature")));
  EXPECT_EQ(names(), Names{"Feature"});
}

TEST_F(ProjectRecordsTest, OneThatWasJustWrittenIsNotKept) {
  letAllComeToRest();
  ASSERT_TRUE(writeAtomically(record(), named("Feature")));
  EXPECT_EQ(names(), Names{"Feature"});
  EXPECT_FALSE(isKept());
}

TEST_F(ProjectRecordsTest, BrokenLinkedAndMissingOnesAreTold) {
  letAllComeToRest();
  const std::string elsewhere = cacheFolder / "record";
  write(elsewhere, named("Linked"));
  fs::create_directory(folder / "P0001");
  fs::create_symlink(elsewhere, folder / "P0001/project.json");
  fs::create_directory(folder / "P0002");
  fs::create_directory(folder / "P0003");
  write(folder / "P0003/project.json", "{");
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(names(), (Names{"Film", "Linked", "unreadable", "unreadable"}));
  }
}

TEST_F(ProjectRecordsTest, MoreThanAreReadAtOnceComeInTheirOrder) {
  std::vector<Cookie> expected{project};
  for (int number = 0; number < 100; ++number) {
    expected.push_back(*projects.create("Film " + std::to_string(number), false));
  }
  std::sort(expected.begin(), expected.end());
  std::vector<Cookie> found;
  ASSERT_TRUE(ProjectRecords().forEach(
      [&found](const Cookie& cookie, const auto&) { found.push_back(cookie); }));
  EXPECT_EQ(found, expected);
}

// The folder is moved away while it counts as looked at: nothing of it is asked of the share.
TEST_F(ProjectRecordsTest, MeanwhileTheFolderIsNotLookedAtAgain) {
  const std::string inside = folderOf(record());
  const auto take = [&](const Cookie&, const auto&) {
    fs::rename(inside, inside + "-away");
    EXPECT_TRUE(lookAfresh(inside));
    EXPECT_FALSE(lookAfresh(inside + "/rooms"));
    fs::rename(inside + "-away", inside);
  };
  letAllComeToRest();
  ASSERT_TRUE(ProjectRecords().forEach(take, {"rooms"}));
  fs::rename(inside, inside + "-away");
  EXPECT_FALSE(lookAfresh(inside));
}

// A share is asked for what is not known here alone: the folder of a shared project is not.
TEST_F(ProjectRecordsTest, OfWhatIsNotKnownOnlyAPrivateProjectsFolderIsLookedAt) {
  const Cookie secret = *projects.create("Secret", true);
  letAllComeToRest();
  std::set<Cookie> looked;
  const auto take = [&](const Cookie& each, const Result<ProjectRecord>& record) {
    EXPECT_TRUE(record);
    const std::string inside = projectFolder(each);
    fs::rename(inside, inside + "-away");
    if (lookAfresh(inside)) looked.insert(each);
    fs::rename(inside + "-away", inside);
  };
  const auto of = ProjectRecords::Asked::eOfPrivate;
  ASSERT_TRUE(ProjectRecords().forEach(take, {"Lock"}, of));
  EXPECT_EQ(looked, std::set<Cookie>{secret});
  EXPECT_TRUE(isKept());
  // Of what is known, each folder tells whether it is as it was.
  ASSERT_TRUE(ProjectRecords().forEach(take, {"Lock"}, of));
  EXPECT_EQ(looked, (std::set<Cookie>{project, secret}));
}

// What a lock's lister asks of a folder was asked by the look at it: nothing of it is asked again.
TEST_F(ProjectRecordsTest, WhatALookDidNotFindIsMissingUntilTheNext) {
  const std::string inside = folderOf(record());
  const auto isOpened = [&inside] {
    const auto file = OS().fileManager().openFile(wideText(inside + "/Lock"), eFileRead,
                                                  eFileOpenExisting, eFileShareRead, eFileNoFlags);
    return file && file->isOpen();
  };
  write(inside + "/There", "");
  const auto take = [&](const Cookie&, const auto&) {
    write(inside + "/Lock", "");
    fs::create_directory(inside + "/rooms");
    EXPECT_FALSE(existsFresh(inside + "/Lock"));
    EXPECT_FALSE(isOpened());
    EXPECT_EQ(OS().fileManager().lastError(), eFileError::eMissing);
    EXPECT_FALSE(listFresh(inside + "/rooms"));
    EXPECT_TRUE(existsFresh(inside + "/There"));
    EXPECT_TRUE(existsFresh(inside + "/project.json"));
  };
  ASSERT_TRUE(ProjectRecords().forEach(take, {"Lock", "rooms", "There"}));
  EXPECT_TRUE(existsFresh(inside + "/Lock"));
  EXPECT_TRUE(isOpened());
  EXPECT_TRUE(listFresh(inside + "/rooms"));
}

TEST(ProjectFolderTest, AFileIsCalledAfterACookieInItsOneSpelling) {
  for (const char* const stem :
       {"E0001", "E0a1b", "S123456789abcdef0123456789abcdef0", "E0001-ff00"}) {
    const Cookie cookie = cookieNamedBy(std::string(stem) + ".otio", ".otio");
    EXPECT_EQ(cookie.asString(), stem);
    EXPECT_TRUE(isProjectFile(std::string(stem) + ".otio")) << stem;
    EXPECT_TRUE(isProjectFile(std::string(stem) + ".json")) << stem;
  }
  const std::string longest = "E" + std::string(100, '1');
  for (const std::string& stem :
       {std::string(), std::string("E00001"), std::string("E0A1B"), std::string("E001"),
        std::string(".E0001"), std::string("E0001 "), std::string("E0001.E0001"),
        std::string("E0001-0000"), std::string("E0001-FF00"), longest}) {
    EXPECT_TRUE(cookieNamedBy(stem + ".otio", ".otio").isNull()) << stem;
    EXPECT_FALSE(isProjectFile(stem + ".otio")) << stem;
  }
  for (const char* const name :
       {"E0001", "E0001.", "E0001.txt", "otio", ".otio", "E0001.json~", ""}) {
    EXPECT_TRUE(cookieNamedBy(name, ".otio").isNull()) << name;
    EXPECT_FALSE(isProjectFile(name)) << name;
  }
  EXPECT_TRUE(isProjectFile("project.json"));
}

}  // namespace
