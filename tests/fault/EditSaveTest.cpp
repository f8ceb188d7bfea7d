#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <random>

#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

using EditSaveFaults = DocumentStation;

/// Saves an edit under a new name again and again, until it is killed.
[[noreturn]] void saveForEver(const Cookie& cookie) {
  for (int round = 0;; ++round) {
    const std::string name = std::to_string(getpid()) + "." + std::to_string(round);
    if (!EditActions::rename(cookie, name)) _exit(1);
    if (!EditActions::save(cookie)) _exit(2);
  }
}

TEST_F(EditSaveFaults, AKilledSaveLeavesTheOldOrTheNewFileWhole) {
  constexpr int kRounds = 60;
  const Cookie cookie = imported("screening_example.otio");
  std::mt19937 random(20240531);
  std::string last;
  int changes = 0;
  unsigned longest = 40'000;  // microseconds; grows where a save takes longer than that
  for (int round = 0; round < kRounds; ++round) {
    const pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) saveForEver(cookie);
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
  for (int round = 0; round < 20; ++round) {
    const pid_t child = fork();
    if (child == 0) saveForEver(cookie);
    usleep(5'000);
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
  ASSERT_TRUE(projects.leave());
  ASSERT_TRUE(projects.enter("Film"));
  EXPECT_EQ(edits.list().elements().size(), 1U);
  ASSERT_TRUE(EditActions::save(cookie));
  std::size_t files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(projects.current()->folder)) {
    const auto name = entry.path().filename();
    files += name != "project.json" && name != ".history";
  }
  EXPECT_EQ(files, 1U);
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

TEST_F(EditSaveFaults, AFolderThatMayNotBeWrittenToRefusesNewEdits) {
  const auto made = EditActions::create("Reel", CookieTypeEdit);
  ASSERT_TRUE(made);
  std::filesystem::remove_all(projects.current()->folder);
  write(projects.current()->folder, "a file in the folder's place");
  listener.heard.clear();
  EXPECT_FALSE(EditActions::create("Other", CookieTypeEdit));
  EXPECT_FALSE(EditActions::save(*made));
  EXPECT_EQ(edits.list().elements().size(), 1U);
  EXPECT_EQ(listener.heard, Notes{});
}

}  // namespace
