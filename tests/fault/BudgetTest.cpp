#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/fault/MappedFaultControl.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/StationProcess.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

// How many operations on the share each action takes. On a network file system each may be a round
// trip. A listing is one "statx" a file here; there it is a few round trips.

namespace {

namespace fs = std::filesystem;

constexpr int kAtOnce = 8;
constexpr long kIdleBudget = 190;

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

  /// Until what was made is at rest, and the folder in which this file is made and removed tells
  /// that time has passed.
  void letAllComeToRest(const std::string& file = numbered('P', 0) + "/other.txt") const {
    // A file is at rest 2 s after its last change; nothing tells when that is over.
    std::this_thread::sleep_for(std::chrono::milliseconds(2200));
    static_cast<void>(folder_.write(file, ""));
    fs::remove(folder_ / file);
  }

  /// Whether it asks for all that is known of a file: NFS does not know after a reading when that
  /// was, and asks the server once more.
  static bool asksForTheLastReading(const std::string& operation) {
    return operation.starts_with("lstat ") || operation.starts_with("fstatat ");
  }

  /// The operations that a command takes a station that was just started. Each takes a while, as on
  /// a network, and several must be under way at the same time.
  long costAtStart(const std::string& line, int atOnce) {
    StationProcess station(options("ANNA"));
    EXPECT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
    control_.mostPausing = 0;
    control_.pause = 300;
    control_.isRecording = true;
    const std::uint64_t before = control_.count;
    const long cost = costOf(station, line);
    control_.pause = 0;
    control_.isRecording = false;
    for (const std::string& each : operations(before, control_.count)) {
      EXPECT_FALSE(asksForTheLastReading(each)) << each;
    }
    EXPECT_GE(control_.mostPausing, atOnce) << line;
    EXPECT_EQ(station.quit(), 0);
    return cost;
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

  /// The operations from `before` on, up to `count`: "open P0c0de.../rooms". The latest ones alone
  /// where there were more than are remembered.
  [[nodiscard]] std::vector<std::string> operations(std::uint64_t before,
                                                    std::uint64_t count) const {
    std::vector<std::string> all;
    if (count > kFaultRecords) before = std::max(before, count - kFaultRecords);
    for (std::uint64_t each = before + 1; each <= count; ++each) {
      std::string what = control_.records[each % kFaultRecords].what;
      const std::size_t at = what.find(folder_.path());
      if (at != std::string::npos) what.erase(at, folder_.path().size() + 1);
      all.push_back(std::move(what));
    }
    return all;
  }

  static std::string listed(const std::vector<std::string>& operations) {
    std::string text;
    for (const std::string& each : operations) text += each + "\n";
    return text;
  }

  /// Whether it asks what is asked by the clock: the times of change of the project's folder, of
  /// its rooms and of the stations' notes, and whether there are keys, for which the projects
  /// directory (the empty path) is opened now and then.
  static bool isQuestion(const std::string& operation) {
    const std::string project = numbered('P', 0);
    const std::string path = operation.substr(operation.find(' ') + 1);
    return path == project || path == project + "/rooms" || path == ".stations" ||
           path == ".keyring" || path.empty();
  }

  /// Waits until nothing but such questions came for so long that no second look at a file is due.
  [[nodiscard]] bool looksAtNoFileAnyMore() const {
    constexpr auto kQuiet = std::chrono::seconds(5);
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    auto last = std::chrono::steady_clock::now();
    std::uint64_t seen = 0;
    while (std::chrono::steady_clock::now() < std::min(deadline, last + kQuiet)) {
      // How often the records are read: they are in shared memory, and wake nobody.
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
      const std::uint64_t count = control_.count;
      const auto more = operations(std::exchange(seen, count), count);
      if (!std::ranges::all_of(more, isQuestion)) last = std::chrono::steady_clock::now();
    }
    return std::chrono::steady_clock::now() < deadline;
  }

  TestFolder folder_;
  MappedFaultControl mapped_;
  FaultControl& control_ = *mapped_;
};

TEST_F(BudgetTest, EnteringAThousandEditsAgainListsThemAndReadsNone) {
  makeProjects(1);
  makeEdits(1000);
  letAllComeToRest();
  keeps("enter_1000_first", costAtStart("project enter \"Film 0\"", kAtOnce), 5070);
  keeps("enter_1000_again", costAtStart("project enter \"Film 0\"", 4), 1070);
}

TEST_F(BudgetTest, ListingTwoHundredProjectsAgainReadsNoRecord) {
  makeProjects(200);
  letAllComeToRest("other.txt");
  keeps("project_list_200_first", costAtStart("project list", kAtOnce), 1030);
  keeps("project_list_200_again", costAtStart("project list", kAtOnce), 1030);
  control_.count = 0;
  const ToolRun run = BackgroundTool({"locks", folder_.path()}).finish();
  EXPECT_EQ(run.status, 0) << run.err;
  keeps("locks_200", static_cast<long>(control_.count.load()), 1640);
}

TEST_F(BudgetTest, AnOpenProjectInWhichNothingHappens) {
  using Seconds = std::chrono::duration<double>;
  constexpr auto kTime = std::chrono::seconds(12);
  makeProjects(1);
  makeEdits(100);
  letAllComeToRest();
  StationProcess station(options("ANNA"));
  ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
  control_.seesBackground = true;
  control_.isRecording = true;
  costOf(station, "project enter \"Film 0\"");
  ASSERT_TRUE(looksAtNoFileAnyMore()) << listed(operations(0, control_.count));
  const auto begin = std::chrono::steady_clock::now();
  const std::uint64_t before = control_.count;
  // The time that is measured.
  std::this_thread::sleep_for(kTime);
  const std::uint64_t after = control_.count;
  const double took = Seconds(std::chrono::steady_clock::now() - begin).count();
  const std::vector<std::string> all = operations(before, after);
  for (const std::string& each : all) EXPECT_TRUE(isQuestion(each)) << each;
  keeps("idle_minute", std::lround(static_cast<double>(after - before) * 60 / took), kIdleBudget);
  if (HasFailure()) std::printf("%s", listed(all).c_str());
}

}  // namespace
