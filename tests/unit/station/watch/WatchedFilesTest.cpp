#include "station/watch/FolderWatch.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <fstream>
#include <memory>
#include <thread>
#include <utility>

#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

bool isJson(std::string_view name) { return name.ends_with(".json"); }

/// A folder and what is known of it, which is nothing at first.
class WatchedFilesTest : public testing::Test {
 protected:
  void write(const std::string& name, const std::string& bytes) const {
    std::ofstream(folder / name, std::ios::binary) << bytes;
  }

  [[nodiscard]] WatchedFolder watched() const {
    WatchedFolder watched;
    watched.path = folder.path();
    watched.isWanted = isJson;
    watched.largest = 1000;
    return watched;
  }

  /// All that a look finds, by name.
  static FoundFiles lookAt(WatchedFiles& files) {
    auto names = files.look();
    EXPECT_TRUE(names) << names.error().message;
    FoundFiles found;
    while (names && !names->empty()) {
      for (FoundFile& file : files.readSome(*names)) found.push_back(std::move(file));
    }
    std::ranges::sort(found, {}, &FoundFile::name);
    return found;
  }

  /// Looks until recent changes were looked at again.
  static FoundFiles lookUntilSure(WatchedFiles& files) {
    FoundFiles all;
    while (files.recheck() != WatchedFiles::Clock::time_point::max()) {
      std::this_thread::sleep_until(files.recheck());
      for (FoundFile& file : lookAt(files)) all.push_back(std::move(file));
    }
    return all;
  }

  ScratchFolder folder;
};

TEST_F(WatchedFilesTest, ANewAReplacedAndARemovedFileAreFound) {
  write("a.json", "1");
  write("b.json", "2");
  WatchedFiles files(watched());
  lookAt(files);
  EXPECT_TRUE(lookUntilSure(files).size() >= 2);
  EXPECT_FALSE(*files.hasMoved());
  write("new", "replaced");
  std::filesystem::rename(folder / "new", folder / "a.json");
  std::filesystem::remove(folder / "b.json");
  write("c.json", "3");
  EXPECT_TRUE(*files.hasMoved());
  const FoundFiles found = lookAt(files);
  ASSERT_EQ(found.size(), 3u);
  EXPECT_EQ(*found[0].bytes, "replaced");
  EXPECT_TRUE(found[1].isGone);
  EXPECT_EQ(*found[2].bytes, "3");
}

TEST_F(WatchedFilesTest, WhatWasListedBeforeIsNotReadAgain) {
  write("a.json", "1");
  const auto old = std::chrono::file_clock::now() - std::chrono::hours(1);
  std::filesystem::last_write_time(folder / "a.json", old);
  WatchedFolder watch = watched();
  FolderListing known = *listStamped(folder.path(), isJson);
  known.folder.changed += 10 * kCoarsestTick;  // the file was made long ago
  const FileStamp folderNow = known.folder;
  watch.known = std::make_shared<const FolderListing>(std::move(known));
  WatchedFiles files(watch);
  EXPECT_EQ(files.recheck(), WatchedFiles::Clock::time_point::max());
  EXPECT_EQ(lookAt(files).size(), 0u);
  EXPECT_NE(folderNow.inode, 0u);
}

// What changed within the tick in which it was read may look as it did before from outside.
TEST_F(WatchedFilesTest, AFileIsReadAgainWhenTheClockHasTickedThoughItLooksTheSame) {
  write("a.json", "first ");
  WatchedFiles files(watched());
  const FoundFiles first = lookAt(files);
  ASSERT_EQ(first.size(), 1u);
  const FoundFiles again = lookUntilSure(files);
  ASSERT_FALSE(again.empty());
  EXPECT_EQ(again.front().stamp, first.front().stamp);
  EXPECT_EQ(*again.front().bytes, "first ");
}

TEST_F(WatchedFilesTest, AFileWithTheInodeOfARemovedOneIsAnother) {
  write("a.json", "first ");
  WatchedFiles files(watched());
  lookAt(files);
  std::filesystem::remove(folder / "a.json");
  write("a.json", "second");
  FoundFiles found = lookUntilSure(files);
  ASSERT_FALSE(found.empty());
  EXPECT_EQ(*found.back().bytes, "second");
}

TEST_F(WatchedFilesTest, AFileThatWasMadeShownAndRemovedBetweenTwoLooksIsMissed) {
  WatchedFolder watch = watched();
  watch.shown = std::make_shared<NewlyShown>();
  WatchedFiles files(watch);
  lookAt(files);
  write("a.json", "1");
  write("b.json", "2");
  watch.shown->add("a.json");
  watch.shown->add("b.json");
  std::filesystem::remove(folder / "b.json");
  const FoundFiles found = lookAt(files);
  ASSERT_EQ(found.size(), 2u);
  EXPECT_FALSE(found[0].isGone);
  EXPECT_TRUE(found[1].isGone);
}

TEST_F(WatchedFilesTest, AFileThatWasBackWhenItsEndWasTakenUpAndIsGoneByTheNextLookIsMissed) {
  WatchedFolder watch = watched();
  watch.shown = std::make_shared<NewlyShown>();
  WatchedFiles files(watch);
  write("a.json", "1");
  lookAt(files);
  std::filesystem::remove(folder / "a.json");
  FoundFiles found = lookAt(files);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_TRUE(found[0].isGone);
  write("a.json", "2");
  EXPECT_FALSE(found[0].isCurrent());  // so it goes on being shown
  std::filesystem::remove(folder / "a.json");
  found = lookAt(files);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_TRUE(found[0].isGone);
  EXPECT_TRUE(found[0].isCurrent());
}

TEST_F(WatchedFilesTest, AFolderThatChangedIsLookedAtOnceMoreWhenTheClockHasTicked) {
  WatchedFiles files(watched());
  lookAt(files);
  EXPECT_LE(files.recheck(), WatchedFiles::Clock::now() + std::chrono::seconds(3));
  lookUntilSure(files);
  EXPECT_FALSE(*files.hasMoved());
}

TEST_F(WatchedFilesTest, AHundredThousandFilesOfOthersAreNotRead) {
  for (int number = 0; number < 100'000; ++number) write("other" + std::to_string(number), "");
  write("a.json", "1");
  WatchedFiles files(watched());
  EXPECT_EQ(lookAt(files).size(), 1u);
}

TEST_F(WatchedFilesTest, WhatIsNoPlainFileIsNeverWaitedFor) {
  ::mkfifo((folder / "a.json").c_str(), 0600);
  std::filesystem::create_symlink("/dev/zero", folder / "b.json");
  WatchedFiles files(watched());
  EXPECT_EQ(lookAt(files).size(), 0u);
}

TEST_F(WatchedFilesTest, AFolderWithoutItsProofLosesNothing) {
  write("a.json", "1");
  write("proof.json", "it");
  WatchedFolder watch = watched();
  watch.proof = "proof.json";
  WatchedFiles files(watch);
  lookAt(files);
  std::filesystem::remove(folder / "a.json");
  std::filesystem::remove(folder / "proof.json");
  EXPECT_FALSE(files.look());
  write("proof.json", "it");
  const FoundFiles found = lookAt(files);
  ASSERT_FALSE(found.empty());
  EXPECT_TRUE(found.front().isGone);
}

TEST_F(WatchedFilesTest, AFolderThatMayBeMissingIsMissedOnceItsProofWasSeen) {
  WatchedFolder watch = watched();
  watch.mayBeMissing = true;
  watch.proof = "proof.json";
  write("a.json", "1");
  WatchedFiles files(watch);
  EXPECT_EQ(lookAt(files).size(), 1u) << "not seen yet, so not needed";
  write("proof.json", "it");
  lookAt(files);
  std::filesystem::rename(folder.path(), folder.path() + "-away");
  EXPECT_FALSE(files.look());
  std::filesystem::create_directory(folder.path());
  EXPECT_FALSE(files.look()) << "an empty folder in its place";
  std::filesystem::remove(folder.path());
  std::filesystem::rename(folder.path() + "-away", folder.path());
  EXPECT_TRUE(files.look());
  std::filesystem::remove(folder / "a.json");
  const FoundFiles found = lookAt(files);
  ASSERT_FALSE(found.empty());
  EXPECT_TRUE(found.front().isGone);
}

TEST_F(WatchedFilesTest, AFolderThatIsMissingIsAProblemUnlessItMayBe) {
  WatchedFolder watch = watched();
  watch.path += "/missing";
  EXPECT_FALSE(WatchedFiles(watch).hasMoved());
  watch.mayBeMissing = true;
  const auto moved = WatchedFiles(watch).hasMoved();
  ASSERT_TRUE(moved);
  EXPECT_FALSE(*moved);
}

}  // namespace
