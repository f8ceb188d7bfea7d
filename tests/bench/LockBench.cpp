#include <benchmark/benchmark.h>

#include "host/base/Text.h"
#include "tests/bench/BenchShare.h"
#include "tests/bench/HandWrittenLock.h"

// Each pair does the same work, by the plug-in and by hand; BenchTable puts them side by side.

namespace {

void fail(benchmark::State& state) { state.SkipWithError("the lock could not be had"); }

void takeAndRelease(benchmark::State& state) {
  BenchShare& bench = BenchShare::instance();
  for (auto _ : state) {
    const bool taken = bench.share().lockProject(bench.project());
    if (!taken || !bench.share().unlockCurrentlyLockedProject()) return fail(state);
  }
}
BENCHMARK(takeAndRelease)->Name("take and release/ours");

void takeAndReleaseByHand(benchmark::State& state) {
  HandWrittenLock lock(BenchShare::instance().projectFolder());
  for (auto _ : state) {
    if (!lock.take("ANNA") || !lock.release()) return fail(state);
  }
}
BENCHMARK(takeAndReleaseByHand)->Name("take and release/by hand");

/// The project while another holds it, as it is when somebody asks.
class HeldProject {
 public:
  HeldProject() : lock(BenchShare::instance().projectFolder()) { isHeld = lock.take("BEN"); }
  HeldProject(const HeldProject&) = delete;
  HeldProject& operator=(const HeldProject&) = delete;
  ~HeldProject() { lock.release(); }

  HandWrittenLock lock;
  bool isHeld = false;
};

void isOccupied(benchmark::State& state) {
  const HeldProject held;
  BenchShare& bench = BenchShare::instance();
  for (auto _ : state) {
    if (!bench.share().isProjectOccupied(bench.project())) return fail(state);
  }
}
BENCHMARK(isOccupied)->Name("isProjectOccupied/ours");

void isOccupiedByHand(benchmark::State& state) {
  const HeldProject held;
  for (auto _ : state) {
    if (!held.lock.isOccupied()) return fail(state);
  }
}
BENCHMARK(isOccupiedByHand)->Name("isProjectOccupied/by hand");

void owner(benchmark::State& state) {
  const HeldProject held;
  BenchShare& bench = BenchShare::instance();
  for (auto _ : state) {
    if (bench.share().getProjectLockOwner(bench.project()) != L"BEN") return fail(state);
  }
}
BENCHMARK(owner)->Name("getProjectLockOwner/ours");

void ownerByHand(benchmark::State& state) {
  const HeldProject held;
  for (auto _ : state) {
    if (held.lock.owner() != "BEN") return fail(state);
  }
}
BENCHMARK(ownerByHand)->Name("getProjectLockOwner/by hand");

constexpr int kFiles = 100'000;
constexpr int kMarkers = 10'000;

void activeUsers(benchmark::State& state) {
  BenchShare& bench = BenchShare::instance();
  bench.fill(kFiles, kMarkers);
  for (auto _ : state) {
    if (bench.share().getNumActiveUsers() != kMarkers) return fail(state);
  }
  bench.clear(kFiles, kMarkers);
}
BENCHMARK(activeUsers)
    ->Name("getNumActiveUsers, 10 000 of 100 000 files/ours")
    ->Iterations(5)
    ->Repetitions(2);

}  // namespace
