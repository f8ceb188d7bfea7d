#include "station/keep/VersionFolder.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <thread>

#include "station/base/StationSettings.h"
#include "station/os/SharedFiles.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/StationScene.h"

namespace korvel {

namespace {

namespace fs = std::filesystem;

class VersionFolderTest : public testing::Test {
 protected:
  /// Makes a version of this number that is so many days old.
  void keep(long number, int daysOld, const std::string& mark = "0000abcd") {
    std::ofstream(scratch_ / "new") << number;
    const auto kept = folder_.keep(scratch_ / "new", number, mark);
    ASSERT_TRUE(kept) << kept.error().message;
    fs::last_write_time(kept->path, now_ - std::chrono::hours(24) * daysOld);
    fs::remove(scratch_ / "new");
  }

  [[nodiscard]] std::vector<long> numbers() const {
    std::vector<long> all;
    const auto versions = folder_.list();
    for (const Version& each : *versions) all.push_back(each.number);
    return all;
  }

  ScratchFolder scratch_;
  VersionFolder folder_{scratch_ / "E1.otio"};
  const fs::file_time_type now_ = fs::file_time_type::clock::now();
};

TEST_F(VersionFolderTest, ThereIsNoHistoryBeforeTheFirstVersion) {
  EXPECT_EQ(numbers(), std::vector<long>{});
  EXPECT_FALSE(fs::exists(scratch_ / ".history"));
}

TEST_F(VersionFolderTest, OfAFolderThatIsAwayNobodyKnowsTheVersions) {
  const VersionFolder away(scratch_ / "away/E1.otio");
  EXPECT_EQ(away.list().error().code, ErrorCode::eNotFound);
}

TEST_F(VersionFolderTest, TheLastAreKeptAndOneADayOfThoseBefore) {
  keep(1, 100);
  keep(2, 80);
  keep(3, 50);
  keep(4, 50, "0000bbbb");
  keep(5, 1);
  keep(6, 0);
  keep(7, 0);
  folder_.thin({2, 90});
  EXPECT_EQ(numbers(), (std::vector<long>{2, 4, 5, 6, 7}));
  folder_.thin({2, 0});
  EXPECT_EQ(numbers(), (std::vector<long>{6, 7}));
  folder_.thin({1, 0});
  EXPECT_EQ(numbers(), (std::vector<long>{7}));
}

// A hard link to another file system cannot be made, as on one without hard links.
TEST_F(VersionFolderTest, WhereThereAreNoLinksAVersionIsACopy) {
  const ScratchFolder elsewhere(fs::path("/dev/shm"));
  if (fs::path(elsewhere.path()).parent_path() != "/dev/shm") GTEST_SKIP() << "no /dev/shm";
  const std::string file = elsewhere / "E1.otio";
  std::ofstream(file) << "first";
  const auto kept = folder_.keep(file, 1, "0000abcd");
  ASSERT_TRUE(kept) << kept.error().message;
  std::ofstream(file) << "second";
  EXPECT_EQ(StationScene::read(kept->path), "first");
  EXPECT_EQ(numbers(), std::vector<long>{1});
}

TEST_F(VersionFolderTest, AClockThatIsWrongDoesNotChangeTheOrder) {
  keep(1, -1);
  keep(2, 5);
  keep(3, 0);
  EXPECT_EQ(numbers(), (std::vector<long>{1, 2, 3}));
  folder_.thin({2, 90});
  EXPECT_EQ(numbers(), (std::vector<long>{1, 2, 3}));
}

TEST_F(VersionFolderTest, TwoThatThinAtOnceKeepWhatTheRuleKeeps) {
  for (long number = 1; number <= 200; ++number) keep(number, 0);
  std::vector<std::jthread> stations;
  for (int station = 0; station < 4; ++station) {
    stations.emplace_back([this] { VersionFolder(scratch_ / "E1.otio").thin({50, 90}); });
  }
  stations.clear();
  const auto left = numbers();
  // One more than the last fifty: the newest of this day among those before.
  EXPECT_GE(left.size(), 50U);
  EXPECT_LE(left.size(), 52U);
  EXPECT_EQ(left.back(), 200);
}

TEST_F(VersionFolderTest, AVersionTakesTheRightsOfTheProjectsFolder) {
  fs::permissions(scratch_.path(), fs::perms::group_all, fs::perm_options::add);
  keep(1, 0);
  struct stat status {};
  ASSERT_EQ(::stat(folder_.path().c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 0070, 0070U);
}

TEST_F(VersionFolderTest, ASavedFileIsReplacedOnlyWhileItIsTheOneThatWasNoted) {
  const std::string path = scratch_ / "E1.otio";
  ASSERT_TRUE(writeAtomically(path, "one"));
  SavedFile file(path);
  file.note("one", 1);
  using History = SavedFile::History;
  ASSERT_TRUE(file.replace("two", 2, History::eRequired));
  EXPECT_EQ(numbers(), (std::vector<long>{1, 2}));
  ASSERT_TRUE(writeAtomically(path, "another"));
  EXPECT_EQ(file.replace("three", 3, History::eRequired).error().code, ErrorCode::eChanged);
  EXPECT_EQ(*readFresh(path), "another");
  EXPECT_EQ(numbers(), (std::vector<long>{1, 2})) << "a refused save leaves no version";
  fs::remove(path);
  EXPECT_EQ(file.replace("three", 3, History::eRequired).error().code, ErrorCode::eChanged);
  file.noteMissing();
  EXPECT_TRUE(file.replace("three", 3, History::eRequired));
}

TEST_F(VersionFolderTest, AChangeInPlaceOfTheSameLengthIsSeen) {
  const std::string path = scratch_ / "E1.otio";
  ASSERT_TRUE(writeAtomically(path, "one"));
  SavedFile file(path);
  file.note("one", 1);
  ASSERT_TRUE(file.replace("two", 2, SavedFile::History::eRequired));
  std::ofstream(path) << "six";
  EXPECT_EQ(file.replace("ten", 3, SavedFile::History::eRequired).error().code,
            ErrorCode::eChanged);
}

TEST_F(VersionFolderTest, WhatBearsAVersionsNameWrongfullyIsMovedAside) {
  const std::string path = scratch_ / "E1.otio";
  ASSERT_TRUE(writeAtomically(path, "one, whole"));
  SavedFile file(path);
  file.note("one, whole", 1);
  const std::string kept = folder_.path() + "/000001-" + file.mark() + ".otio";
  const std::vector<std::function<void()>> intruders{
      [&] { std::ofstream(kept) << "one, w"; }, [&] { std::ofstream(kept) << "ONE, WHOLE"; },
      [&] { fs::create_symlink(path, kept); },  [&] { fs::create_directory(kept); },
      [&] { ::mkfifo(kept.c_str(), 0600); },
  };
  fs::create_directories(folder_.path());
  for (std::size_t row = 0; row < intruders.size(); ++row) {
    fs::remove(kept);
    intruders[row]();
    SavedFile saved(path);
    saved.note("one, whole", 1);
    const auto replaced = saved.replace("two", 2, SavedFile::History::eRequired);
    ASSERT_TRUE(replaced) << row << replaced.error().message;
    EXPECT_EQ(*readFresh(kept), "one, whole") << row;
    ASSERT_TRUE(writeAtomically(path, "one, whole"));
  }
  EXPECT_EQ(numbers(), (std::vector<long>{1, 2}));
  // Nothing was destroyed: two files, a link, a folder and a pipe lie beside both versions.
  EXPECT_EQ(std::distance(fs::directory_iterator(folder_.path()), {}), 7);
}

TEST_F(VersionFolderTest, TwoThatSaveAtOnceLoseNoVersionThatWasReportedAsSaved) {
  constexpr std::size_t kSaves = 200;
  StationSettings settings;
  settings.config["history_versions"] = "1000";
  installSettings(settings);
  const std::string path = scratch_ / "E1.otio";
  ASSERT_TRUE(writeAtomically(path, "start"));
  std::vector<std::string> saved[2];
  const auto work = [&](int station) {
    SavedFile file(path);
    while (saved[station].size() < kSaves) {
      const auto there = readFresh(path);
      if (!there) continue;
      file.note(*there, file.number());
      const std::string text =
          std::to_string(station) + "." + std::to_string(saved[station].size());
      const long number = 1 + static_cast<long>(saved[station].size());
      if (file.replace(text, number, SavedFile::History::eRequired)) saved[station].push_back(text);
    }
  };
  {
    const std::jthread other(work, 1);
    work(0);
  }
  std::set<std::string> kept{*readFresh(path)};
  for (const auto& entry : fs::directory_iterator(folder_.path())) {
    kept.insert(*readFresh(entry.path()));
  }
  for (const auto& texts : saved) {
    for (const std::string& text : texts) EXPECT_EQ(kept.count(text), 1U) << text;
  }
}

}  // namespace

}  // namespace korvel
