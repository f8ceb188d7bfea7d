#include <gtest/gtest.h>

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>

#include "tests/lab/Space.h"
#include "tests/support/OwnHome.h"

using namespace korvel;

namespace korvel {

namespace {

/// As test runners know it: this was not run.
constexpr int kSkipped = 77;

/// "AStationIsKilled" as "a station is killed".
std::string sentenceOf(const std::string& name) {
  std::string sentence;
  for (const char letter : name) {
    if (letter == '_') continue;
    const bool isCapital = letter >= 'A' && letter <= 'Z';
    if (isCapital && !sentence.empty()) sentence += ' ';
    sentence += isCapital ? static_cast<char>(letter - 'A' + 'a') : letter;
  }
  return sentence;
}

std::string onOneLine(std::string text) {
  for (char& letter : text) {
    if (letter == '\n' || letter == '\t') letter = ' ';
  }
  return text.substr(0, 200);
}

void record(const testing::TestInfo& test, const char* became, const std::string& why) {
  const char* const file = std::getenv("KV_LAB_RESULTS");
  if (!file) return;
  std::ofstream(file, std::ios::app)
      << sentenceOf(test.name()) << '\t' << became << '\t' << onOneLine(why) << '\t'
      << static_cast<double>(test.result()->elapsed_time()) / 1000 << '\n';
}

/// Writes a line of the lab's table for each scenario.
class LabRecord : public testing::EmptyTestEventListener {
  void OnTestEnd(const testing::TestInfo& test) override {
    const testing::TestResult& result = *test.result();
    std::string shown;
    for (int i = 0; i < result.test_property_count(); ++i) {
      if (std::string(result.GetTestProperty(i).key()) == "shows")
        shown = result.GetTestProperty(i).value();
    }
    std::string failure;
    for (int i = result.total_part_count() - 1; i >= 0; --i) {
      if (result.GetTestPartResult(i).failed()) failure = result.GetTestPartResult(i).summary();
    }
    record(test, result.Passed() ? "passed" : "failed", result.Passed() ? shown : failure);
  }
};

int skipAll(const std::string& why) {
  const testing::UnitTest& all = *testing::UnitTest::GetInstance();
  for (int suite = 0; suite < all.total_test_suite_count(); ++suite) {
    for (int test = 0; test < all.GetTestSuite(suite)->total_test_count(); ++test) {
      record(*all.GetTestSuite(suite)->GetTestInfo(test), "skipped", why);
    }
  }
  std::printf("skipped: %s\n", why.c_str());
  return kSkipped;
}

}  // namespace

}  // namespace korvel

int main(int count, char** words) {
  const OwnHome home;
  testing::InitGoogleTest(&count, words);
  testing::UnitTest::GetInstance()->listeners().Append(new LabRecord);
  if (!testing::GTEST_FLAG(list_tests)) {
    if (const std::string why = Space::whyNone(); !why.empty()) return skipAll(why);
  }
  return RUN_ALL_TESTS();
}
