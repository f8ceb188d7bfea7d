#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <iostream>
#include <memory>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "ProjectShare/NetLock.h"
#include "host/base/Text.h"
#include "station/os/HostOS.h"
#include "station/os/SharedFiles.h"
#include "tests/fakes/ForkedProcess.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/LoopNetwork.h"

using namespace korvel;

// Eight processes fight for one lock. By itself this takes a few seconds; with
// KV_LOCK_FIGHT_SECONDS it goes on as long as that says, and each fight must reach its share of 100
// 000 acquisitions. KV_LOCK_FIGHT_FOLDER names a folder to fight in, such as one on a network
// mount.

namespace {

constexpr int kFighters = 8;
constexpr int kShareOfAcquisitions = 34'000;
constexpr std::chrono::minutes kLongest(15);

/// What the processes tell each other past the lock.
struct Ring {
  std::atomic<int> holder{0};
  std::atomic<int> acquisitions{0};
  std::atomic<int> twoAtOnce{0};   ///< somebody else was in the ring as well
  std::atomic<int> wrongNames{0};  ///< the information file named somebody else than the holder
};

LightweightString<wchar_t> wide(const std::string& text) {
  return fromUTF8(LightweightString<char>(std::string_view(text)));
}

int numberFromEnvironment(const char* name, int otherwise) {
  const char* const text = std::getenv(name);
  return text ? std::atoi(text) : otherwise;
}

std::string folderFromEnvironment() {
  const char* const folder = std::getenv("KV_LOCK_FIGHT_FOLDER");
  return folder ? folder : "/dev/shm";
}

using Clock = std::chrono::steady_clock;

class LockFight : public testing::Test {
 public:
  LockFight() {
    void* const memory =
        ::mmap(nullptr, sizeof(Ring), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    ring_ = new (memory) Ring;
  }
  ~LockFight() override { ::munmap(ring_, sizeof(Ring)); }

  /// Until the time is over and, in a long fight, enough was won.
  [[nodiscard]] bool goesOn() const {
    const auto now = Clock::now();
    const bool wonEnough = !isLong_ || ring_->acquisitions > kShareOfAcquisitions;
    return now < end_ || (!wonEnough && now < end_ + kLongest);
  }

  /// One turn of fighter `number`: whether it won.
  bool fightOnce(NetLock& lock, int number) {
    if (!lock.Lock()) return false;
    const std::string name = "fighter " + std::to_string(number);
    ++ring_->acquisitions;
    ring_->holder = number;
    const bool named = lock.SetLockInfo(wide(name));
    const auto witness = readFresh(path_ + ".inf");
    if (!named || !witness || *witness != name) ++ring_->wrongNames;
    if (ring_->holder != number) ++ring_->twoAtOnce;
    lock.Unlock();
    return true;
  }

  /// Builds a lock for every turn, so that files are made and removed all the time.
  int fightWithNewLocks(int number) {
    while (goesOn()) {
      NetLock lock(wide(path_));
      fightOnce(lock, number);
    }
    return 0;
  }

  /// Holds by one lock that it keeps, and lets the others in between.
  int fightWithOneLock(int number) {
    NetLock lock(wide(path_));
    while (goesOn()) {
      if (!fightOnce(lock, number)) std::this_thread::yield();
    }
    return 0;
  }

  using Fight = int (LockFight::*)(int);

  std::unique_ptr<ForkedProcess> start(Fight fight, int number) {
    return std::make_unique<ForkedProcess>(
        [this, fight, number] { return (this->*fight)(number); });
  }

  /// Runs all fighters to the end; those below `killed` are killed at random moments and replaced.
  void run(Fight fight, int killed) {
    std::vector<std::unique_ptr<ForkedProcess>> fighters;
    for (int i = 0; i < kFighters; ++i) fighters.push_back(start(fight, i + 1));
    std::mt19937 random(1);
    while (killed > 0 && goesOn()) {
      // Nothing is waited for: the moment of death is to be random.
      std::this_thread::sleep_for(std::chrono::microseconds(random() % 20'000));
      const int victim = static_cast<int>(random() % static_cast<unsigned>(killed));
      fighters[static_cast<std::size_t>(victim)]->kill();
      fighters[static_cast<std::size_t>(victim)] = start(fight, victim + 1);
    }
    for (const auto& fighter : fighters) EXPECT_EQ(fighter->wait(), 0);
    report();
  }

  void report() {
    std::cout << ring_->acquisitions << " acquisitions, " << ring_->twoAtOnce << " by two at once, "
              << ring_->wrongNames << " under a wrong name\n";
    EXPECT_EQ(ring_->twoAtOnce, 0);
    EXPECT_EQ(ring_->wrongNames, 0);
    EXPECT_GT(ring_->acquisitions, isLong_ ? kShareOfAcquisitions : 20);
  }

  LoopNetwork network_;
  HostOS os_{network_};
  ScratchFolder folder_{folderFromEnvironment()};
  std::string path_ = folder_ / "Lock";
  bool isLong_ = std::getenv("KV_LOCK_FIGHT_SECONDS") != nullptr;
  Clock::time_point end_ =
      Clock::now() + std::chrono::seconds(numberFromEnvironment("KV_LOCK_FIGHT_SECONDS", 2));
  Ring* ring_;
};

TEST_F(LockFight, NoTwoOfEightProcessesEverHoldTheLockAtOnce) {
  run(&LockFight::fightWithOneLock, 0);
}

TEST_F(LockFight, NoTwoHoldItWhileHalfOfThemAreKilledAtRandomMoments) {
  run(&LockFight::fightWithNewLocks, kFighters / 2);
}

TEST_F(LockFight, NoTwoHoldItWhileAllMakeAndRemoveItsFilesAsFastAsTheyCan) {
  run(&LockFight::fightWithNewLocks, 0);
}

}  // namespace
