#include <filesystem>
#include <functional>
#include <thread>

#include "station/edit/EditSummary.h"
#include "station/os/FolderListing.h"
#include "station/os/ReadCache.h"
#include "station/os/SharedFiles.h"
#include "station/watch/CatchUp.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

/// A project that is entered again by a station that keeps what it read.
class KeptSummariesTest : public DocumentStation {
 protected:
  KeptSummariesTest() {
    StationSettings chosen = settings();
    chosen.cache = cacheFolder / "korvel";
    installSettings(chosen);
    edit = made("Cut");
    EXPECT_TRUE(projects.leave());
  }

  /// Lets the share's clock tick, and the folder tell of it.
  void letAllComeToRest() const {
    std::this_thread::sleep_for(std::chrono::nanoseconds(kCoarsestTick + kCoarsestTick / 10));
    write(folderOfProject() + "/other.txt", "");
    fs::remove(folderOfProject() + "/other.txt");
  }

  void enterAndLeave() {
    ASSERT_TRUE(projects.enter("Film"));
    ASSERT_TRUE(projects.leave());
  }

  /// What the cache says of the edit as its file is now.
  [[nodiscard]] std::string keptName() const {
    const ReadCache cache(settings().cache, folderOfProject());
    const auto* const text = cache.find(nameOfFile(), *stampOfFile(file()));
    const auto summary = text ? keptSummary(*text) : std::nullopt;
    return summary ? summary->name : "nothing";
  }

  /// Makes what is kept of the edit untrue, so that it shows who trusts it.
  void renameInCache(const std::string& name) const {
    ReadCache cache(settings().cache, folderOfProject());
    EditSummary summary = *readEditSummary(bytesOf(file()));
    summary.name = name;
    cache.put(nameOfFile(), *stampOfFile(file()), keptText(summary));
  }

  [[nodiscard]] std::string enteredName() {
    EXPECT_TRUE(projects.enter("Film"));
    const std::string name = edits.nameOf(edit);
    EXPECT_TRUE(projects.leave());
    return name;
  }

  [[nodiscard]] std::string folderOfProject() const {
    return folder.path() + "/" + project.asString().str();
  }
  [[nodiscard]] std::string nameOfFile() const { return edit.asString().str() + ".otio"; }
  [[nodiscard]] std::string file() const { return folderOfProject() + "/" + nameOfFile(); }

  ScratchFolder cacheFolder;
  Cookie edit;
};

TEST_F(KeptSummariesTest, AnEditAtRestIsNotReadAgain) {
  letAllComeToRest();
  enterAndLeave();
  EXPECT_EQ(keptName(), "Cut");
  renameInCache("Kept");
  EXPECT_EQ(enteredName(), "Kept");
}

TEST_F(KeptSummariesTest, AYoungEditIsNotKept) {
  enterAndLeave();
  EXPECT_EQ(keptName(), "nothing");
}

TEST_F(KeptSummariesTest, AYoungEditIsKeptWhenItHasComeToRestInTheOpenProject) {
  HostThread thread;
  CatchUp catchUp{thread};
  ASSERT_TRUE(projects.enter("Film"));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  const auto isKept = [this] {
    return projects.current()->cache->find(nameOfFile(), *stampOfFile(file())) != nullptr;
  };
  while (!isKept() && std::chrono::steady_clock::now() < deadline) {
    thread.runPending();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  ASSERT_TRUE(projects.leave());
  EXPECT_EQ(keptName(), "Cut");
}

TEST_F(KeptSummariesTest, AReplacedEditIsReadThoughItsSizeAndTimeAreTheSame) {
  letAllComeToRest();
  enterAndLeave();
  const auto time = fs::last_write_time(file());
  std::string bytes = bytesOf(file());
  for (auto at = bytes.find("Cut"); at != bytes.npos; at = bytes.find("Cut", at + 3)) {
    bytes.replace(at, 3, "New");
  }
  write(file(), bytes);  // in place: it stays the same file
  fs::last_write_time(file(), time);
  EXPECT_EQ(enteredName(), "New");
}

TEST_F(KeptSummariesTest, AFileOfTomorrowIsReadEachTime) {
  fs::last_write_time(file(), fs::file_time_type::clock::now() + std::chrono::hours(24));
  letAllComeToRest();
  enterAndLeave();
  EXPECT_EQ(keptName(), "nothing");
  EXPECT_EQ(enteredName(), "Cut");
}

TEST_F(KeptSummariesTest, AFolderOfTomorrowMakesNoYoungFileOld) {
  fs::last_write_time(folderOfProject(), fs::file_time_type::clock::now() + std::chrono::hours(24));
  enterAndLeave();
  EXPECT_EQ(keptName(), "nothing");
}

TEST_F(KeptSummariesTest, ADeletedEditIsNotShownThoughItIsKept) {
  letAllComeToRest();
  enterAndLeave();
  fs::remove(file());
  ASSERT_TRUE(projects.enter("Film"));
  EXPECT_FALSE(edits.holds(edit));
}

TEST_F(KeptSummariesTest, WhatIsKeptIsReadBackOrNotAtAll) {
  const EditSummary summary{
      std::string("a\0b \xC3\xA9", 6),     "ANNA", {}, 0x1234, "BEN", "2026-03-04T12:04:00Z",
      {1.0 / 3, 29.97, "quay \xE9.mov", 3}};
  const std::string text = keptText(summary);
  EXPECT_EQ(*keptSummary(text), summary);
  EXPECT_EQ(*keptSummary(keptText({})), EditSummary{});
  for (const char* const bad : {"",
                                " ",
                                "1",
                                "1 ",
                                "x 0 0 0 0 0 0 0 ",
                                "1 x 0 0 0 0 0 0 ",
                                "1 0 0 0 x 0 0 0 ",
                                "1 0 0 0 0 x 0 0 ",
                                "1 0 0 0 0 0 0 x ",
                                "1 0 0 0 0 0 0 ",
                                "1 0 0 0 0 0 0 0",
                                "1 9 0 0 0 0 0 0 abc",
                                "1 0 9 0 0 0 0 0 abc",
                                "1 0 0 9 0 0 0 0 abc",
                                "1 0 0 0 9 0 0 0 abc",
                                "1 2 2 0 0 0 0 0 abc",
                                "1 1 1 1 1 0 0 0 abc",
                                "1 -1 0 0 0 0 0 0 abc",
                                "1 0 0 0 0 0 7ff0000000000000 0 ",
                                "1 0 0 0 0 0 0 7ff8000000000000 ",
                                "1 0 0 0 0 0 bff0000000000000 0 "}) {
    EXPECT_FALSE(keptSummary(bad)) << bad;
  }
  EXPECT_EQ(keptSummary("1 1 1 1 0 0 0 0 abc")->savedBy, "c");
}

}  // namespace
