#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <filesystem>
#include <memory>
#include <vector>

#include "tests/contract/HostFilesFixture.h"
#include "tests/fakes/ForkedProcess.h"

using namespace korvel;

namespace {

/// What several processes count together.
struct Tally {
  std::atomic<int> holders{0};
  std::atomic<int> violations{0};
  std::atomic<int> acquisitions{0};

  static Tally& shared() {
    void* const memory =
        ::mmap(nullptr, sizeof(Tally), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    return *new (memory) Tally;
  }
};

bool isAt(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0;
}

}  // namespace

class HostFileManagerProcessTest : public HostFilesFixture {
 protected:
  /// A process that holds the file until it is killed or told to let go.
  std::unique_ptr<ForkedProcess> holder(const std::string& path) {
    auto child = std::make_unique<ForkedProcess>([this, path] {
      const auto held = lock(path);
      isHeld_.send();
      return held && letGo_.wait() ? 0 : 1;
    });
    EXPECT_TRUE(isHeld_.wait());
    return child;
  }

  /// Builds, holds, releases and removes as fast as it can.
  int fight(const std::string& path, Tally& tally, std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) {
      files_.openFile(wide(path), eFileReadWrite, eFileCreate, eFileShareNone, eFileGroupShared);
      auto held = lock(path);
      if (!held) continue;
      ++tally.acquisitions;
      if (++tally.holders > 1 || !isAt(path)) ++tally.violations;
      ::usleep(20);
      if (!isAt(path)) ++tally.violations;
      --tally.holders;
      held.reset();
      remove(path);
    }
    return 0;
  }

  /// Removes whatever is at the path, as fast as it can.
  int keepRemoving(const std::string& path, std::chrono::milliseconds time) {
    const auto end = std::chrono::steady_clock::now() + time;
    while (std::chrono::steady_clock::now() < end) remove(path);
    return 0;
  }

  Signal isHeld_;
  Signal letGo_;
};

TEST_F(HostFileManagerProcessTest, AFileHeldByAnotherProcessIsRefusedAtOnceAndKept) {
  const std::string path = folder_ / "Lock";
  const auto other = holder(path);
  // The soonest of some: a busy machine may hold up any of them.
  auto soonest = std::chrono::steady_clock::duration::max();
  for (int attempt = 0; attempt < 5; ++attempt) {
    const auto start = std::chrono::steady_clock::now();
    EXPECT_FALSE(lock(path));
    EXPECT_EQ(files_.lastError(), eFileError::eHeld);
    EXPECT_FALSE(openToRead(path));
    EXPECT_EQ(files_.lastError(), eFileError::eHeld);
    EXPECT_FALSE(remove(path));
    EXPECT_EQ(files_.lastError(), eFileError::eHeld);
    soonest = std::min(soonest, std::chrono::steady_clock::now() - start);
  }
  EXPECT_LT(soonest, std::chrono::milliseconds(500));
  EXPECT_TRUE(isAt(path));
  letGo_.send();
  EXPECT_EQ(other->wait(), 0);
  EXPECT_TRUE(lock(path));
}

TEST_F(HostFileManagerProcessTest, AHolderThatIsKilledFreesTheFileAtOnce) {
  const std::string path = folder_ / "Lock";
  const auto other = holder(path);
  EXPECT_FALSE(lock(path));
  other->kill();
  EXPECT_TRUE(isAt(path));
  EXPECT_TRUE(lock(path));
}

TEST_F(HostFileManagerProcessTest, AnotherDescriptorsCloseDoesNotGiveTheFileFree) {
  const std::string path = folder_ / "Lock";
  const auto held = lock(path);
  ::close(::open(path.c_str(), O_RDWR));
  ForkedProcess other([&] { return lock(path) ? 1 : 0; });
  EXPECT_EQ(other.wait(), 0);
}

TEST_F(HostFileManagerProcessTest, AFileThatWasReplacedWhileHeldIsFreeToOthersUnderItsName) {
  const std::string path = folder_ / "Lock";
  const auto old = lock(path);
  const auto replacement = lock(folder_ / "other");
  std::filesystem::rename(folder_ / "other", path);
  EXPECT_FALSE(remove(path));
  EXPECT_TRUE(isAt(path));
  ForkedProcess other([&] { return lock(path) ? 1 : 0; });
  EXPECT_EQ(other.wait(), 0);
}

TEST_F(HostFileManagerProcessTest, InTheRaceOfMakingAndRemovingNoTwoEverHoldOneName) {
  const std::string path = folder_ / "Lock";
  Tally& tally = Tally::shared();
  std::vector<std::unique_ptr<ForkedProcess>> fighters;
  for (int i = 0; i < 6; ++i) {
    fighters.push_back(std::make_unique<ForkedProcess>([&, i] {
      constexpr std::chrono::milliseconds kTime(2000);
      return i < 3 ? fight(path, tally, kTime) : keepRemoving(path, kTime);
    }));
  }
  for (const auto& fighter : fighters) EXPECT_EQ(fighter->wait(), 0);
  EXPECT_EQ(tally.violations, 0);
  EXPECT_GT(tally.acquisitions, 20);
  RecordProperty("acquisitions", tally.acquisitions);
}
