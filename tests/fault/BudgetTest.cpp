#include <gtest/gtest.h>

#include <array>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>

#include "tests/fault/MappedFaultControl.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/StationProcess.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

// How many operations on the share each action takes. On a network file system each may be a round
// trip. A listing is one "readdir" and one "fstatat" a file here; there it is a few round trips.

namespace {

namespace fs = std::filesystem;

constexpr long kListBudget = 2900;
constexpr long kLocksBudget = 3300;
constexpr long kIdleBudget = 240;

class BudgetTest : public testing::Test {
 protected:
  BudgetTest() {
    ::setenv(kFaultFolderVariable, folder_.path().c_str(), 1);
    ::setenv("LD_PRELOAD", KV_FAILING_FILES, 1);
  }
  ~BudgetTest() override { ::unsetenv("LD_PRELOAD"); }

  static std::string numbered(char kind, int number) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%cc0de%028x", kind, static_cast<unsigned>(number));
    return text.data();
  }

  void makeProjects(int count) const {
    for (int number = 0; number < count; ++number) {
      static_cast<void>(folder_.write(numbered('P', number) + "/project.json",
                                      R"({"name":"Film )" + std::to_string(number) + "\"}"));
    }
  }

  void makeEdits(int count) const {
    std::ifstream in(KV_SAMPLES "/simple_cut.otio", std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
    for (int number = 0; number < count; ++number) {
      static_cast<void>(
          folder_.write(numbered('P', 0) + "/" + numbered('E', number) + ".otio", text));
    }
  }

  /// Until what was made is at rest, and the project's folder tells that time has passed.
  void letAllComeToRest() const {
    // A file is at rest 2 s after its last change; nothing tells when that is over.
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    static_cast<void>(folder_.write(numbered('P', 0) + "/other.txt", ""));
    fs::remove(folder_ / (numbered('P', 0) + "/other.txt"));
  }

  [[nodiscard]] StationProcess::Options options(const std::string& user) const {
    return {KV_STATION, folder_.path(), user, user, 0, freeUdpPort(), {}};
  }

  /// The operations that a command takes.
  long costOf(StationProcess& station, const std::string& line) const {
    const auto before = control_.count.load();
    const JsonValue reply = station.command(line, std::chrono::minutes(1));
    EXPECT_TRUE(reply["ok"].asBool()) << writeJson(reply);
    return static_cast<long>(control_.count.load() - before);
  }

  static void keeps(const char* what, long count, long budget) {
    testing::Test::RecordProperty(what, std::to_string(count));
    std::printf("%s: %ld of %ld\n", what, count, budget);
    EXPECT_LE(count, budget) << what;
  }

  TestFolder folder_;
  MappedFaultControl mapped_;
  FaultControl& control_ = *mapped_;
};

TEST_F(BudgetTest, EnteringAThousandEditsAgainListsThemAndReadsNone) {
  makeProjects(1);
  makeEdits(1000);
  letAllComeToRest();
  {
    StationProcess station(options("ANNA"));
    ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
    keeps("enter_1000_first", costOf(station, "project enter \"Film 0\""), 8060);
    EXPECT_EQ(station.quit(), 0);
  }
  StationProcess station(options("ANNA"));
  ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
  keeps("enter_1000_again", costOf(station, "project enter \"Film 0\""), 2060);
}

TEST_F(BudgetTest, ListingTwoHundredProjects) {
  makeProjects(200);
  StationProcess station(options("ANNA"));
  ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
  keeps("project_list_200", costOf(station, "project list"), kListBudget);
  control_.count = 0;
  const ToolRun run = BackgroundTool({"locks", folder_.path()}).finish();
  EXPECT_EQ(run.status, 0) << run.err;
  keeps("locks_200", static_cast<long>(control_.count.load()), kLocksBudget);
}

// On a busy machine what was young is looked at late, so a minute that costs more is counted anew.
TEST_F(BudgetTest, AnOpenProjectInWhichNothingHappens) {
  constexpr int kSeconds = 12;
  constexpr int kTries = 5;
  makeProjects(1);
  makeEdits(100);
  StationProcess station(options("ANNA"));
  ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
  costOf(station, "project enter \"Film 0\"");
  std::this_thread::sleep_for(std::chrono::seconds(6));  // what was young is looked at once more
  control_.seesBackground = true;
  long minute = kIdleBudget + 1;
  for (int tries = 0; tries < kTries && minute > kIdleBudget; ++tries) {
    control_.count = 0;
    // The time that is measured.
    std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
    minute = static_cast<long>(control_.count.load()) * 60 / kSeconds;
  }
  keeps("idle_minute", minute, kIdleBudget);
}

}  // namespace
