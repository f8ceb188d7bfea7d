#include "tools/capture/Replay.h"

#include <gtest/gtest.h>

#include <set>

using namespace korvel;

namespace {

struct Arrival {
  int number;
  std::int64_t due;
};

/// What arrives of a thousand messages, a millisecond apart.
std::vector<Arrival> arrivals(FaultInjector& way) {
  std::vector<Arrival> all;
  const auto note = [&](const std::vector<Departure>& departures) {
    for (const auto& each : departures) all.push_back({std::stoi(each.message.bytes), each.due});
  };
  for (int number = 0; number < 1000; ++number) {
    Departure departure{number * 1'000'000L, {}};
    departure.message.bytes = std::to_string(number);
    note(way.take(std::move(departure)));
  }
  note(way.finish());
  return all;
}

std::vector<int> numbersOf(const std::vector<Arrival>& all) {
  std::vector<int> numbers;
  for (const Arrival& each : all) numbers.push_back(each.number);
  return numbers;
}

TEST(FaultInjector, WithoutFaultsLeavesEverythingAsItIs) {
  FaultInjector way({});
  const auto all = arrivals(way);
  ASSERT_EQ(all.size(), 1000u);
  for (int number = 0; number < 1000; ++number) {
    EXPECT_EQ(all[static_cast<std::size_t>(number)].number, number);
    EXPECT_EQ(all[static_cast<std::size_t>(number)].due, number * 1'000'000L);
  }
}

TEST(FaultInjector, LosesAboutAsManyAsAskedForAndCountsThem) {
  FaultInjector way({.loss = 0.3});
  EXPECT_EQ(arrivals(way).size() + way.lost(), 1000u);
  EXPECT_NEAR(static_cast<double>(way.lost()), 300, 60);
  FaultInjector all({.loss = 1});
  EXPECT_TRUE(arrivals(all).empty());
}

TEST(FaultInjector, DoublesAMessageRightBehindItself) {
  FaultInjector way({.duplicate = 0.5});
  const auto numbers = numbersOf(arrivals(way));
  EXPECT_EQ(numbers.size(), 1000 + way.duplicated());
  EXPECT_NEAR(static_cast<double>(way.duplicated()), 500, 80);
  EXPECT_TRUE(std::is_sorted(numbers.begin(), numbers.end()));
  EXPECT_EQ(std::set<int>(numbers.begin(), numbers.end()).size(), 1000u);
}

TEST(FaultInjector, LetsAMessageArriveBehindTheNextOneAndLosesNone) {
  FaultInjector way({.reorder = 0.2});
  const auto numbers = numbersOf(arrivals(way));
  EXPECT_EQ(std::set<int>(numbers.begin(), numbers.end()).size(), 1000u);
  std::size_t late = 0;
  for (std::size_t at = 0; at + 1 < numbers.size(); ++at) late += numbers[at] > numbers[at + 1];
  EXPECT_GT(late, 100u);
  EXPECT_LE(late, way.reordered());
}

TEST(FaultInjector, DelaysWithinTheBoundAndKeepsTheOrder) {
  FaultInjector way({.delay = 50});
  std::int64_t latest = 0;
  bool isAnyLate = false;
  for (const Arrival& each : arrivals(way)) {
    const std::int64_t late = each.due - each.number * 1'000'000L;
    EXPECT_GE(late, 0);
    EXPECT_LE(late, 50'000'000L);
    EXPECT_GE(each.due, latest);
    latest = each.due;
    isAnyLate = isAnyLate || late > 10'000'000L;
  }
  EXPECT_TRUE(isAnyLate);
}

TEST(FaultInjector, DoesTheSameForTheSameSeedWhateverElseIsAskedFor) {
  FaultInjector once({.loss = 0.3, .seed = 7});
  FaultInjector again({.loss = 0.3, .delay = 20, .seed = 7});
  FaultInjector other({.loss = 0.3, .seed = 8});
  const auto lostOnce = numbersOf(arrivals(once));
  EXPECT_EQ(lostOnce, numbersOf(arrivals(again)));
  EXPECT_NE(lostOnce, numbersOf(arrivals(other)));
}

}  // namespace
