#include "tests/fault/FaultSession.h"

#include <gtest/gtest.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <random>

using namespace korvel;

namespace {

/// A sample of the sessions that fault_sweep leads one by one, another one with each operation that
/// a session gains. It ends after a few seconds, however slow the machine is.
class FaultSessionTest : public testing::Test {
 protected:
  static constexpr std::uint64_t kSessions = 4;
  static constexpr std::chrono::seconds kLimit{4};

  void meet(FaultAction action, int number, unsigned seed) {
    const auto deadline = std::chrono::steady_clock::now() + kLimit;
    std::mt19937 random(seed);
    for (std::uint64_t done = 0; done < kSessions; ++done) {
      const std::uint64_t at = 1 + random() % session.operations();
      const FaultOutcome outcome = session.run({at, action, number});
      for (const std::string& problem : outcome.problems) {
        ADD_FAILURE() << "#" << at << " " << outcome.what << ", " << std::strerror(number) << ", "
                      << outcome.command << ": " << problem;
      }
      met += outcome.isMet;
      if (std::chrono::steady_clock::now() > deadline) break;
    }
    EXPECT_GT(met, 0);
  }

  /// Meets such an operation, the first or a later one; what the command that made it failed with.
  std::string said(const std::string& operation, const std::string& path, int number,
                   std::uint64_t at = 1) {
    const FaultOutcome outcome = session.run({at, FaultAction::eFail, number, operation, path});
    EXPECT_TRUE(outcome.isMet) << operation << " " << path;
    for (const std::string& problem : outcome.problems) {
      ADD_FAILURE() << outcome.what << ", " << outcome.command << ": " << problem;
    }
    told = outcome.told;
    return outcome.said;
  }

  [[nodiscard]] bool wasTold(const std::string& part) const {
    for (const std::string& each : told) {
      if (each.find(part) != each.npos) return true;
    }
    return false;
  }

  FaultSession session;
  std::vector<std::string> told;
  int met = 0;
};

bool holds(const std::string& text, const std::string& part) {
  return text.find(part) != text.npos;
}

TEST_F(FaultSessionTest, AnOperationThatFailsIsToldAndTheNextTryWorks) {
  meet(FaultAction::eFail, EIO, 1);
}

TEST_F(FaultSessionTest, AShareThatIsFullForOneOperationIsToldAndTheNextTryWorks) {
  meet(FaultAction::eFail, ENOSPC, 2);
}

TEST_F(FaultSessionTest, HalfAReadOrWriteIsGoneOnWith) { meet(FaultAction::eShort, 0, 3); }

TEST_F(FaultSessionTest, AStationKilledBeforeAnOperationLeavesWholeFilesAndFreeLocks) {
  meet(FaultAction::eKillBefore, 0, 4);
}

TEST_F(FaultSessionTest, AStationKilledAfterAnOperationLeavesWholeFilesAndFreeLocks) {
  meet(FaultAction::eKillAfter, 0, 5);
}

TEST_F(FaultSessionTest, ALockThatTheSystemRefusesIsToldInItsWords) {
  constexpr std::uint64_t kSecond = 2;  // the first makes the file, and asks nothing of it
  for (const char* path : {"/Lock", "Sound.lck"}) {
    const std::string refusal = said("setlock", path, EIO, kSecond);
    EXPECT_TRUE(holds(refusal, "(Input/output error)")) << refusal;
  }
  EXPECT_TRUE(holds(said("setlock", ".json.lock", EIO), "(Input/output error)"));
}

TEST_F(FaultSessionTest, ARoomWhoseRecordCannotBeLookedForIsNotCalledMissing) {
  const std::string refusal = said("stat", "rooms/Sound.json", ESTALE, 2);
  EXPECT_TRUE(holds(refusal, "Stale file handle")) << refusal;
}

TEST_F(FaultSessionTest, AnEditThatCannotBeReadAgainOnceItIsWrittenIsThereAllTheSame) {
  EXPECT_EQ(said("read", ".otio", EIO).find("holds no such object"), std::string::npos);
}

TEST_F(FaultSessionTest, ALockFileThatCouldNotBeRemovedIsRemovedAtTheSecondTry) {
  EXPECT_EQ(said("unlink", "Sound.lck", EIO), "");
  EXPECT_EQ(said("unlink", "Colour.lck", EACCES), "");
  EXPECT_EQ(said("unlink", "/Lock", EIO), "");
}

TEST_F(FaultSessionTest, AFileThatAnotherHasOpenAtTheMomentIsReplacedAtTheSecondTry) {
  for (const std::uint64_t at : {1, 3, 6, 10}) {
    EXPECT_EQ(said("rename", "/.kv-", EACCES, at), "") << at;
  }
}

TEST_F(FaultSessionTest, ARoomTakenWithoutItsHoldersNameIsTold) {
  EXPECT_EQ(said("open", "Sound.lck.inf", ENOSPC), "");
  EXPECT_TRUE(wasTold("your name could not be written"));
}

TEST_F(FaultSessionTest, AShareWithoutHardLinksKeepsItsHistoryAllTheSame) {
  constexpr std::uint64_t kSecond = 2;  // the first finds no folder for versions yet
  EXPECT_EQ(said("link", "", EXDEV), "");
  EXPECT_EQ(said("link", "", EMLINK, kSecond), "");
}

TEST_F(FaultSessionTest, ASaveThatCannotKeepItsVersionSaysThatTheShareIsFull) {
  constexpr std::uint64_t kSecond = 2;  // the first finds no folder for versions yet
  const std::string refusal = said("link", "", ENOSPC, kSecond);
  EXPECT_TRUE(holds(refusal, "No space left on device")) << refusal;
}

TEST_F(FaultSessionTest, MediaThatCannotBeReadIsRefusedWithTheCause) {
  const std::string refusal = said("stat", "/cut.otio", EIO);
  EXPECT_TRUE(holds(refusal, "(Input/output error), so it was not added")) << refusal;
}

}  // namespace
