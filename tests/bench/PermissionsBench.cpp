#include <algorithm>
#include <map>
#include <memory>
#include <random>
#include <vector>

#include "ProjectShare/PermissionsManager.h"
#include "tests/bench/BenchShare.h"
#include "tests/bench/MicroBench.h"

namespace korvel {

namespace {

/// So many objects with their owners, asked for in an order of no pattern.
struct OwnedObjects {
  explicit OwnedObjects(int count) {
    PermissionsManager permissions;
    permissions.flushOnProjectChange();
    for (int number = 0; number < count; ++number) {
      objects.push_back(Cookie::create(CookieTypeShot));
      permissions.setOwner(objects.back(), L"ANNA", iPermissionsManager::eShot, false);
      byHand[objects.back()] = {L"ANNA", iPermissionsManager::eShot};
    }
    std::shuffle(objects.begin(), objects.end(), std::mt19937(1));
  }

  [[nodiscard]] const Cookie& next() {
    if (++at >= objects.size()) at = 0;
    return objects[at];
  }

  std::vector<Cookie> objects;
  std::map<Cookie, iPermissionsManager::PermissionsInfo> byHand;
  std::size_t at = 0;
};

std::unique_ptr<OwnedObjects> owned;

void failWithoutOwner(benchmark::State& state) { state.SkipWithError("the owner was not known"); }

void isAllowed(benchmark::State& state) {
  const PermissionsManager permissions;
  for (auto _ : state) {
    if (!permissions.isModificationAllowed(owned->next(), eModContentsChanged))
      return failWithoutOwner(state);
  }
}

void lookUpByHand(benchmark::State& state) {
  for (auto _ : state) {
    const auto found = owned->byHand.find(owned->next());
    if (found == owned->byHand.end()) return failWithoutOwner(state);
    benchmark::DoNotOptimize(found->second);
  }
}

}  // namespace

void addPermissionPairs(MicroBench& to) {
  BenchShare& bench = BenchShare::instance();
  for (const int count : {10, 10'000, 1'000'000}) {
    to.add({"isModificationAllowed, cached", double(count), Bound::atMost(1.5), isAllowed,
            lookUpByHand, BenchPair::Clock::eProcessor,
            [&bench, count] {
              bench.use(bench.memory() + "/open");
              owned = std::make_unique<OwnedObjects>(count);
            },
            [] { owned.reset(); }});
  }
}

}  // namespace korvel
