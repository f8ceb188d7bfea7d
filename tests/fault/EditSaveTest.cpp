#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <filesystem>
#include <new>
#include <random>
#include <set>
#include <string>

#include "station/base/StationSettings.h"
#include "station/edit/EditHistory.h"
#include "station/edit/OtioDocument.h"
#include "station/keep/VersionFolder.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

using EditSaveFaults = DocumentStation;

std::string savedName(pid_t process, int round) {
  return std::to_string(process) + "." + std::to_string(round);
}

/// Saves an edit under a new name again and again, until it is killed. Counts what it saved.
[[noreturn]] void saveForEver(const Cookie& cookie, std::atomic<int>& saved) {
  for (int round = 0;; ++round) {
    if (!EditActions::rename(cookie, savedName(getpid(), round))) _exit(1);
    if (!EditActions::save(cookie)) _exit(2);
    ++saved;
  }
}

/// A number that processes which are forked share.
class SharedCount {
 public:
  SharedCount()
      : place_(::mmap(nullptr, sizeof(std::atomic<int>), PROT_READ | PROT_WRITE,
                      MAP_SHARED | MAP_ANONYMOUS, -1, 0)),
        count_(new (place_) std::atomic<int>(0)) {}
  SharedCount(const SharedCount&) = delete;
  SharedCount& operator=(const SharedCount&) = delete;
  ~SharedCount() { ::munmap(place_, sizeof(std::atomic<int>)); }

  std::atomic<int>& operator*() const { return *count_; }

 private:
  void* place_;
  std::atomic<int>* count_;
};

/// Kills processes that save an edit, each after so many microseconds at most; after more where a
/// save takes longer. The names under which it was saved for certain.
std::set<std::string> saveAndKill(const Cookie& cookie, int processes, unsigned longest) {
  std::mt19937 random(20240601);
  std::set<std::string> names;
  for (int number = 0; number < processes; ++number) {
    const SharedCount saved;
    const pid_t child = fork();
    if (child == 0) saveForEver(cookie, *saved);
    usleep(longest / 2 + static_cast<unsigned>(random()) % (longest / 2));
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    for (int round = 0; round < *saved; ++round) names.insert(savedName(child, round));
    if (*saved < 2 && longest < 1'000'000) longest += longest / 4;
  }
  return names;
}

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& each : fs::directory_iterator(folder)) names.insert(each.path().filename());
  return names;
}

TEST_F(EditSaveFaults, AKilledSaveLeavesTheOldOrTheNewFileWhole) {
  constexpr int kRounds = 60;
  const Cookie cookie = imported("screening_example.otio");
  std::mt19937 random(20240531);
  std::string last;
  int changes = 0;
  const SharedCount saved;
  unsigned longest = 40'000;  // microseconds; grows where a save takes longer than that
  for (int round = 0; round < kRounds; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) saveForEver(cookie, *saved);
    usleep(500 + random() % longest);
    kill(child, SIGKILL);
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the save itself failed: " << WEXITSTATUS(status);
    ASSERT_TRUE(projects.leave());
    ASSERT_TRUE(projects.enter("Film"));
    const auto shown = edits.show(cookie);
    ASSERT_TRUE(shown) << shown.error().message;
    const bool changed = edits.nameOf(cookie) != last;
    changes += changed;
    if (!changed && longest < 1'000'000) longest += longest / 4;
    last = edits.nameOf(cookie);
  }
  EXPECT_GT(changes, kRounds / 4);
}

TEST_F(EditSaveFaults, WhatKilledSavesLeftIsNoEdit) {
  const Cookie cookie = imported("screening_example.otio");
  saveAndKill(cookie, 20, 5'000);
  ASSERT_TRUE(projects.leave());
  ASSERT_TRUE(projects.enter("Film"));
  EXPECT_EQ(edits.list().elements().size(), 1U);
  ASSERT_TRUE(EditActions::save(cookie));
  EXPECT_EQ(
      namesIn(projects.current()->folder),
      (std::set<std::string>{".history", "project.json", fs::path(fileOf(cookie)).filename()}));
}

TEST_F(EditSaveFaults, WhatKilledSavesLeftInTheHistoryIsWholeVersionsAmongThemEachThatWasSaved) {
  StationSettings keeping = settings();
  keeping.config["history_versions"] = "100000";
  installSettings(keeping);
  const Cookie cookie = imported("screening_example.otio");
  const std::set<std::string> saved = saveAndKill(cookie, 40, 20'000);
  EXPECT_GT(saved.size(), 10U);
  ASSERT_TRUE(projects.leave());
  ASSERT_TRUE(projects.enter("Film"));
  ASSERT_TRUE(EditActions::save(cookie));
  const std::string history = VersionFolder(fileOf(cookie)).path();
  std::set<std::string> kept;
  for (const std::string& name : namesIn(history)) {
    const auto version = OtioDocument::parse(bytesOf(history + "/" + name));
    ASSERT_TRUE(version) << name << ": " << version.error().message;
    kept.insert(version->name());
  }
  for (const std::string& name : saved) EXPECT_TRUE(kept.contains(name)) << name;
  EXPECT_TRUE(kept.contains(edits.nameOf(cookie)));
  const auto listed = EditHistory::list(cookie);
  ASSERT_TRUE(listed);
  EXPECT_EQ(listed->elements().size(), namesIn(history).size());
  for (const JsonValue& each : listed->elements()) EXPECT_EQ(each["problem"].asString(), "");
}

TEST_F(EditSaveFaults, ASaveThatFindsNoRoomSaysSoAndKeepsTheOldFile) {
  const Cookie cookie = imported("screening_example.otio");
  const std::string before = bytesOf(fileOf(cookie));
  ASSERT_TRUE(EditActions::rename(cookie, "New"));
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit little{1000, 1000};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
  const auto saved = EditActions::save(cookie);
  ASSERT_FALSE(saved);
  EXPECT_EQ(saved.error().code, ErrorCode::eFull);
  EXPECT_EQ(bytesOf(fileOf(cookie)), before);
  EXPECT_TRUE(edits.loaded(cookie)->isDirty());
  EXPECT_EQ(edits.nameOf(cookie), "New");
}

TEST_F(EditSaveFaults, ARestoreThatFindsNoRoomLeavesTheEditAndItsNameAsTheyWere) {
  const Cookie cookie = imported("screening_example.otio");
  const std::string old = edits.nameOf(cookie);
  ASSERT_TRUE(edits.open(cookie));
  ASSERT_TRUE(EditActions::rename(cookie, "New"));
  ASSERT_TRUE(EditActions::save(cookie));
  std::signal(SIGXFSZ, SIG_IGN);
  const rlimit little{1000, 1000};
  ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &little), 0);
  const auto restored = EditActions::restore(cookie, "1");
  ASSERT_FALSE(restored);
  EXPECT_EQ(restored.error().code, ErrorCode::eFull);
  EXPECT_NE(old, "New");
  EXPECT_EQ(edits.nameOf(cookie), "New");
  EXPECT_EQ((*edits.show(cookie))["name"].asString(), "New");
  EXPECT_FALSE((*edits.show(cookie))["dirty"].asBool());
}

TEST_F(EditSaveFaults, AFolderThatMayNotBeWrittenToRefusesNewEdits) {
  const auto made = EditActions::create("Reel", CookieTypeEdit);
  ASSERT_TRUE(made);
  fs::remove_all(projects.current()->folder);
  write(projects.current()->folder, "a file in the folder's place");
  listener.heard.clear();
  EXPECT_FALSE(EditActions::create("Other", CookieTypeEdit));
  EXPECT_FALSE(EditActions::save(*made));
  EXPECT_EQ(edits.list().elements().size(), 1U);
  EXPECT_EQ(listener.heard, Notes{});
}

}  // namespace
