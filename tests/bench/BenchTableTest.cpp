#include "tests/bench/BenchTable.h"

#include <gtest/gtest.h>

#include "tests/bench/Figures.h"

namespace korvel {

namespace {

TEST(Figures, AMedianIsTheMiddleAndNotMovedByAnOutlier) {
  EXPECT_EQ(median({}), 0);
  EXPECT_EQ(median({3, 1, 2}), 2);
  EXPECT_EQ(median({4, 1, 2, 1000}), 3);
}

TEST(Figures, APercentileIsTheNearestValue) {
  std::vector<double> values;
  for (int value = 100; value >= 0; --value) values.push_back(value);
  EXPECT_EQ(percentile(values, 0.99), 99);
  EXPECT_EQ(percentile(values, 0.5), 50);
  EXPECT_EQ(percentile({7}, 0.99), 7);
  EXPECT_EQ(percentile({}, 0.5), 0);
}

TEST(Figures, AnExponentIsThePowerOfTheSize) {
  struct Row {
    const char* name;
    std::vector<std::pair<double, double>> points;
    double exponent;
  };
  const Row rows[] = {{"constant", {{1, 5}, {10, 5}, {100, 5}}, 0},
                      {"proportional", {{1, 2}, {10, 20}, {100, 200}}, 1},
                      {"quadratic", {{1, 1}, {10, 100}, {100, 10'000}}, 2},
                      {"falling", {{1, 100}, {10, 10}, {100, 1}}, -1},
                      {"not measured", {{1, 0}, {10, 30}, {100, 300}}, 1},
                      {"one point", {{10, 30}}, 0},
                      {"one size", {{10, 30}, {10, 40}}, 0}};
  for (const Row& row : rows) {
    EXPECT_NEAR(fittedExponent(row.points), row.exponent, 1e-9) << row.name;
  }
}

TEST(BenchTable, ABoundIsKeptOrMissedAndShown) {
  struct Row {
    const char* name;
    Bound bound;
    double ours;
    double floor;
    bool isKept;
  };
  const Row rows[] = {{"below", Bound::atMost(1.5), 14, 10, true},
                      {"above", Bound::atMost(1.5), 16, 10, false},
                      {"fast enough", Bound::atLeast(0.8), 9, 10, true},
                      {"too slow", Bound::atLeast(0.8), 7, 10, false},
                      {"in time", Bound::timeAtMost(20), 16, 0, true},
                      {"too late", Bound::timeAtMost(15), 16, 0, false},
                      {"without a floor", Bound::atMost(1.5), 16, 0, false},
                      {"not measured", Bound::atMost(1.5), 0, 10, false},
                      {"without a bound", Bound::none(), 16, 10, true}};
  for (const Row& row : rows) {
    const Figure figure{row.name, 0, Unit::eSeconds, row.ours, row.floor, row.bound, {}};
    BenchTable table;
    table.add(figure);
    EXPECT_EQ(figure.isKept(), row.isKept) << row.name;
    EXPECT_EQ(table.missed(), row.isKept ? 0 : 1) << row.name;
    EXPECT_EQ(table.text().find("MISSED") == std::string::npos, row.isKept) << table.text();
  }
}

TEST(BenchTable, AFigureStandsBesideItsFloorAndItsRatio) {
  BenchTable table;
  table.add({"a lock", 0, Unit::eSeconds, 48.1e-6, 44.6e-6, Bound::atMost(1.3), {}});
  table.add({"a rate", 4, Unit::ePerSecond, 40'000, 50'000, Bound::none(), "slow"});
  table.leaveOut("a bus", "not installed");
  const std::string text = table.text();
  EXPECT_NE(text.find("a lock                                                 -     48.1 us     "
                      "44.6 us   1.08  <= 1.30  kept\n"),
            std::string::npos)
      << text;
  EXPECT_NE(text.find(" 4    40.0 k/s    50.0 k/s   0.80        -    slow\n"), std::string::npos)
      << text;
  EXPECT_NE(text.find("not run: a bus: not installed\n"), std::string::npos) << text;
}

TEST(BenchTable, AFigureAtThreeSizesShowsHowItGrows) {
  BenchTable table;
  for (const double size : {10.0, 100.0, 1000.0}) {
    table.add({"a walk", size, Unit::eSeconds, size * size, size, Bound::none(), {}});
    if (size > 10) table.add({"a pair", size, Unit::eSeconds, size, size, Bound::none(), {}});
  }
  const std::string text = table.text();
  const std::string growth = text.substr(text.find("grows with the size"));
  EXPECT_NE(growth.find("a walk"), std::string::npos);
  EXPECT_NE(growth.find("2.00        1.00\n"), std::string::npos) << growth;
  EXPECT_EQ(growth.find("a pair"), std::string::npos) << growth;
}

}  // namespace

}  // namespace korvel
