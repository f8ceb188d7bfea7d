#include "station/keep/TrashFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <set>

#include "station/os/SharedFiles.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/AsNobody.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

class TrashFolderTest : public testing::Test {
 protected:
  std::string made(const std::string& name = "E0001.otio") {
    std::ofstream(folder_ / name) << "what it holds";
    return folder_ / name;
  }

  ScratchFolder folder_;
  TrashFolder trash_{folder_.path()};
};

TEST_F(TrashFolderTest, WhatWhenAndByWhomAreReadFromTheName) {
  const std::string names[] = {"anna",  "A/N\\A..",     ".hidden", "ends.",
                               "a~b~c", "\xE2\x82\xAC", "?"};
  for (const std::string& user : names) {
    const auto taken = trash_.take(made(), user);
    ASSERT_TRUE(taken) << user << taken.error().message;
    const auto all = trash_.list();
    ASSERT_TRUE(all);
    ASSERT_EQ(all->size(), 1U) << user;
    EXPECT_EQ(all->front().by, user);
    EXPECT_EQ(all->front().object, "E0001");
    EXPECT_EQ(all->front().ending, ".otio");
    EXPECT_EQ(all->front().at, taken->at);
    EXPECT_EQ(all->front().size, 13U);
    EXPECT_EQ(trash_.whoDeleted("E0001"), user);
    ASSERT_TRUE(TrashFolder::remove(all->front()));
  }
}

TEST_F(TrashFolderTest, AVeryLongNameOfAUserIsCutBetweenItsLetters) {
  std::string user;
  for (int i = 0; i < 300; ++i) user += "\xC3\x84/";
  ASSERT_TRUE(trash_.take(made(), user));
  const auto all = trash_.list();
  ASSERT_TRUE(all);
  ASSERT_EQ(all->size(), 1U);
  const std::string& by = all->front().by;
  ASSERT_TRUE(by.ends_with("\xE2\x80\xA6")) << by;
  EXPECT_TRUE(user.starts_with(by.substr(0, by.size() - 3)));
  EXPECT_GT(by.size(), 60U);
  EXPECT_LE(fs::path(all->front().path).filename().string().size(), 255U);
}

TEST_F(TrashFolderTest, TwoDeletionsOfOneObjectBothStay) {
  std::set<std::string> marks;
  for (int i = 0; i < 3; ++i) {
    const auto taken = trash_.take(made(), "anna");
    ASSERT_TRUE(taken);
    marks.insert(taken->mark);
  }
  EXPECT_EQ(marks.size(), 3U);
  EXPECT_EQ(trash_.list()->size(), 3U);
}

TEST_F(TrashFolderTest, WhatIsNoDeletionIsLeftOut) {
  ASSERT_TRUE(trash_.take(made(), "anna"));
  for (const char* name :
       {"E2.otio", ".kv-1.tmp", "E2~20240531T120000Z~1a2b3c4d.otio",
        "E2~20240531T120000Z~1a2b~A.otio", "E2~2024~1a2b3c4d~A.otio",
        "~20240531T120000Z~1a2b3c4d~A.otio", "E2~20240531T120000Z~1a2b3c4x~A.otio",
        "E2~20240531T120000Z~1a2b3c4d~A"}) {
    std::ofstream(trash_.path() + "/" + name) << "x";
  }
  EXPECT_EQ(trash_.list()->size(), 1U);
}

TEST_F(TrashFolderTest, WhatIsGivenBackReplacesNothing) {
  const auto taken = trash_.take(made(), "anna");
  ASSERT_TRUE(taken);
  std::ofstream(folder_ / "E0001.otio") << "another";
  EXPECT_EQ(TrashFolder::giveBack(*taken, folder_ / "E0001.otio").error().code, ErrorCode::eExists);
  EXPECT_EQ(*readFresh(folder_ / "E0001.otio"), "another");
  fs::remove(folder_ / "E0001.otio");
  ASSERT_TRUE(TrashFolder::giveBack(*taken, folder_ / "E0001.otio"));
  EXPECT_EQ(*readFresh(folder_ / "E0001.otio"), "what it holds");
  EXPECT_EQ(TrashFolder::giveBack(*taken, folder_ / "E0001.otio").error().code,
            ErrorCode::eNotFound);
  EXPECT_FALSE(*TrashFolder::remove(*taken));
}

TEST_F(TrashFolderTest, SomethingElseInThePlaceOfTheTrashLosesNothing) {
  const std::string file = made();
  const std::string place = trash_.path();
  const auto refused = [&] {
    const auto taken = trash_.take(file, "anna");
    EXPECT_FALSE(taken);
    EXPECT_TRUE(fs::exists(file));
    EXPECT_FALSE(trash_.list()) << "what a link leads to would be emptied as well";
    fs::remove(place);
    return taken ? std::string() : taken.error().message;
  };
  std::ofstream(place) << "a file";
  EXPECT_NE(refused().find("is no folder"), std::string::npos);
  fs::create_directory(folder_ / "elsewhere");
  fs::create_directory_symlink(folder_ / "elsewhere", place);
  EXPECT_NE(refused().find("is no folder"), std::string::npos);
  ASSERT_EQ(::mkfifo(place.c_str(), 0600), 0);
  EXPECT_NE(refused().find("is no folder"), std::string::npos);
  EXPECT_TRUE(fs::is_empty(folder_ / "elsewhere"));
}

TEST_F(TrashFolderTest, ATrashWithoutRightsRefuses) {
  const std::string file = made();
  fs::create_directory(trash_.path());
  fs::permissions(folder_.path(), fs::perms::all);
  fs::permissions(trash_.path(), fs::perms::owner_read | fs::perms::others_exec);
  const AsNobody nobody;
  const auto taken = trash_.take(file, "anna");
  ASSERT_FALSE(taken);
  EXPECT_EQ(taken.error().code, ErrorCode::eNoRights);
  EXPECT_TRUE(fs::exists(file));
  EXPECT_EQ(trash_.list().error().code, ErrorCode::eNoRights);
}

TEST_F(TrashFolderTest, ItsFolderAndFilesAreAsOpenAsTheProject) {
  fs::permissions(folder_.path(), fs::perms::all);
  const std::string file = made();
  fs::permissions(file, static_cast<fs::perms>(0664));
  const auto taken = trash_.take(file, "anna");
  ASSERT_TRUE(taken);
  EXPECT_EQ(fs::status(trash_.path()).permissions(), fs::perms::all);
  EXPECT_EQ(fs::status(taken->path).permissions(), static_cast<fs::perms>(0664));
}

TEST_F(TrashFolderTest, AClockThatIsWrongMakesNothingTooOldTooSoon) {
  constexpr std::int64_t kNow = 1'717'156'800;  // 2024-05-31T12:00:00Z
  constexpr std::int64_t kHour = 3'600;
  struct Row {
    const char* at;
    std::int64_t moved;
    std::int64_t deleted;
  };
  for (const Row& row : std::initializer_list<Row>{
           {"2024-05-31T12:00:00Z", kNow, kNow},
           {"2024-05-31T11:00:00Z", kNow, kNow},                  // an hour late
           {"2024-05-31T13:00:00Z", kNow, kNow + kHour},          // an hour early
           {"2034-05-31T12:00:00Z", kNow - kHour, kNow - kHour},  // ten years early
           {"2024-05-31T12:00:00Z", 0, kNow}}) {  // a share that keeps no time of moving
    Trashed trashed;
    trashed.at = row.at;
    trashed.moved = row.moved * 1'000'000'000;
    EXPECT_EQ(trashed.deletedAt(kNow), row.deleted) << row.at;
  }
}

TEST_F(TrashFolderTest, TheSharesTimeLeavesNothingBehind) {
  ASSERT_TRUE(trash_.take(made(), "anna"));
  const auto now = trash_.shareTime();
  ASSERT_TRUE(now);
  EXPECT_LE(std::abs(*now - std::time(nullptr)), 5);
  EXPECT_EQ(listFresh(trash_.path())->size(), 1U);
}

}  // namespace
