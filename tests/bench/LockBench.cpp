#include <dirent.h>

#include <filesystem>
#include <fstream>
#include <memory>

#include "tests/bench/BenchShare.h"
#include "tests/bench/HandWrittenLock.h"
#include "tests/bench/MicroBench.h"

namespace korvel {

namespace {

constexpr int kOtherFiles[] = {10, 1'000, 10'000};
constexpr int kMarkersOf = 10;  ///< one file in so many of a folder is an active user's marker
constexpr double kMarkersLimit = 0.1;

BenchShare& bench() { return BenchShare::instance(); }

void fail(benchmark::State& state) { state.SkipWithError("the lock could not be had"); }

void takeAndRelease(benchmark::State& state) {
  for (auto _ : state) {
    const bool taken = bench().share().lockProject(bench().project());
    if (!taken || !bench().share().unlockCurrentlyLockedProject()) return fail(state);
  }
}

void takeAndReleaseByHand(benchmark::State& state) {
  HandWrittenLock lock(bench().projectFolder());
  for (auto _ : state) {
    if (!lock.take("ANNA") || !lock.release()) return fail(state);
  }
}

/// The project while another holds it, as it is when somebody asks.
class HeldProject {
 public:
  HeldProject() : lock(bench().projectFolder()) { isHeld = lock.take("BEN"); }
  HeldProject(const HeldProject&) = delete;
  HeldProject& operator=(const HeldProject&) = delete;
  ~HeldProject() { lock.release(); }

  HandWrittenLock lock;
  bool isHeld = false;
};

void isOccupied(benchmark::State& state) {
  const HeldProject held;
  for (auto _ : state) {
    if (!bench().share().isProjectOccupied(bench().project())) return fail(state);
  }
}

void isOccupiedByHand(benchmark::State& state) {
  const HeldProject held;
  for (auto _ : state) {
    if (!held.lock.isOccupied()) return fail(state);
  }
}

void owner(benchmark::State& state) {
  const HeldProject held;
  for (auto _ : state) {
    if (bench().share().getProjectLockOwner(bench().project()) != L"BEN") return fail(state);
  }
}

void ownerByHand(benchmark::State& state) {
  const HeldProject held;
  for (auto _ : state) {
    if (held.lock.owner() != "BEN") return fail(state);
  }
}

void fill(const std::string& folder, int files, int markers) {
  for (int number = 0; number < files; ++number) {
    std::ofstream(folder + "/USER" + std::to_string(number) + (number < markers ? ".cli" : ".dat"));
  }
}

/// Pairs about a project whose folder on `parent` holds other files besides.
void addFor(MicroBench& to, const std::string& parent, const std::string& fileSystem) {
  for (const int files : kOtherFiles) {
    const std::string folder = parent + "/locks-" + std::to_string(files);
    const auto prepare = [folder, files] {
      bench().use(folder);
      if (std::filesystem::is_empty(bench().projectFolder()))
        fill(bench().projectFolder(), files, 0);
    };
    const auto name = [&](const char* what) { return std::string(what) + ", " + fileSystem; };
    to.add({name("lock taken and released"), double(files), Bound::atMost(1.3), takeAndRelease,
            takeAndReleaseByHand, BenchPair::Clock::eWall, prepare});
    to.add({name("isProjectOccupied"), double(files), Bound::atMost(1.5), isOccupied,
            isOccupiedByHand, BenchPair::Clock::eWall, prepare});
    to.add({name("getProjectLockOwner"), double(files), Bound::atMost(1.5), owner, ownerByHand,
            BenchPair::Clock::eWall, prepare});
  }
}

int countByHand(const std::string& folder) {
  const std::unique_ptr<DIR, int (*)(DIR*)> open(::opendir(folder.c_str()), ::closedir);
  int count = 0;
  while (const dirent* entry = open ? ::readdir(open.get()) : nullptr) {
    count += std::string_view(entry->d_name).ends_with(".cli") ? 1 : 0;
  }
  return count;
}

void addActiveUsers(MicroBench& to, int files) {
  const std::string folder = bench().memory() + "/users-" + std::to_string(files);
  const auto markers = static_cast<unsigned>(files / kMarkersOf);
  to.add({"getNumActiveUsers, a marker in 10 files", double(files),
          Bound::timeAtMost(kMarkersLimit),
          [markers](benchmark::State& state) {
            for (auto _ : state) {
              if (bench().share().getNumActiveUsers() != markers) return fail(state);
            }
          },
          [markers, folder](benchmark::State& state) {
            for (auto _ : state) {
              if (countByHand(folder) != static_cast<int>(markers)) return fail(state);
            }
          },
          BenchPair::Clock::eWall,
          [folder, files, markers] {
            bench().use(folder);
            fill(folder, files, static_cast<int>(markers));
          },
          [folder] { std::filesystem::remove_all(folder); }});
}

}  // namespace

void addLockPairs(MicroBench& to) {
  addFor(to, bench().memory(), BenchShare::fileSystemOf(bench().memory()));
  if (const auto disk = bench().disk()) addFor(to, *disk, BenchShare::fileSystemOf(*disk));
  for (const int files : {1'000, 10'000, 100'000}) addActiveUsers(to, files);
}

}  // namespace korvel
