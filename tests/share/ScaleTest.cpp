#include <algorithm>
#include <cstdio>
#include <fstream>
#include <functional>
#include <iterator>

#include "tests/share/SharedStations.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/Slowdown.h"

using namespace korvel;

namespace {

constexpr int kManyEdits = fewer(10'000);
constexpr int kManyBins = fewer(1'000);
constexpr const char* kSampleEdit = "Figure 1 - Simple Cut List";  // as the sample calls itself

std::string contentOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

std::string cookieText(char kind, int number) {
  char text[40];
  std::snprintf(text, sizeof text, "%cc0de%028x", kind, static_cast<unsigned>(number));
  return text;
}

/// Projects of many objects, and projects directories of many files; in memory where that can be
/// had, since making so many takes long on a busy disk.
class ScaleTest : public SharedStations {
 protected:
  ScaleTest() : SharedStations("/dev/shm") {}

  /// Makes a project of so many edits, each with the sample's tracks, and bins of some of them.
  std::string makeProject(const std::string& name, int edits, int bins) {
    const std::string project = run(*stations_.front(), "project create " + name).asString();
    const std::string folder = folder_ / ("projects/" + project + "/");
    const std::string sampleText = contentOf(sample("simple_cut.otio"));
    const std::size_t at = sampleText.find(kSampleEdit);
    for (int number = 0; number < edits; ++number) {
      std::string text = sampleText;
      text.replace(at, std::string(kSampleEdit).size(), "Edit " + std::to_string(number));
      std::ofstream(folder + cookieText('E', number) + ".otio") << text;
    }
    for (int number = 0; number < bins; ++number) {
      std::string contents;
      for (int each = 0; each < std::min(edits, 20); ++each) {
        contents += (each == 0 ? "\"" : ", \"") + cookieText('E', (number + each) % edits) + "\"";
      }
      std::ofstream(folder + cookieText('G', number) + ".json")
          << R"({"name": "Bin )" << number << R"(", "contents": [)" << contents << "]}";
    }
    return project;
  }

  static long residentMebibytes(const StationProcess& station) {
    const std::string status = contentOf("/proc/" + std::to_string(station.pid()) + "/status");
    const std::size_t at = status.find("VmRSS:");
    return at == std::string::npos ? -1 : std::stol(status.substr(at + 6)) / 1024;
  }

  /// What a station's host thread, its first one, has computed so far. The thread that asks the
  /// folder goes by the clock and the folder's size, and not by messages.
  static double cpuSeconds(const StationProcess& station) {
    const std::string number = std::to_string(station.pid());
    const std::string used = contentOf("/proc/" + number + "/task/" + number + "/schedstat");
    return std::strtod(used.c_str(), nullptr) / 1e9;
  }

  /// What some work costs a station's host thread: its own time, since other programs do not count.
  static double costOf(const StationProcess& station, const std::function<void()>& work) {
    const double before = cpuSeconds(station);
    work();
    return cpuSeconds(station) - before;
  }

  /// What it costs `receiver` to take up the trims and saves of one edit by `sender`; the least of
  /// some.
  double costOfMessages(StationProcess& sender, StationProcess& receiver, const std::string& name) {
    run(sender, "project enter " + name);
    const std::string edit =
        run(sender, "edit import \"" + sample("simple_cut.otio") + "\"").asString();
    run(receiver, "project enter " + name);
    run(receiver, "edit open " + edit);
    double least = 1e9;
    for (int round = 1; round <= 4; ++round) {
      settle(receiver);
      least =
          std::min(least, costOf(receiver, [&] {
                     for (int each = 0; each < 30; ++each) {
                       const char* const end = each % 2 == 0 ? "0.25s" : "0.125s";
                       run(sender, "edit trim " + edit + " 0/0 0 " + end);
                       run(sender, "edit save " + edit);
                     }
                     const int all = 30 * round;
                     EXPECT_TRUE(becomesTrue([&] { return savesHeard(receiver, edit) == all; }));
                     settle(receiver);
                   }));
    }
    return least;
  }

  /// How many messages told the station that the edit was saved.
  static int savesHeard(const StationProcess& station, const std::string& edit) {
    int count = 0;
    for (const JsonValue& event : station.events("received")) {
      count += event["cookie"].asString() == edit && event["type_name"].asString() == "EditSaved";
    }
    return count;
  }
};

TEST_F(ScaleTest, TenThousandEditsAndAThousandBinsAreEnteredSoonAndInLittleMemory) {
  StationProcess& anna = start("ANNA", 11);
  makeProject("Film", kManyEdits, kManyBins);
  double seconds = 1e9;
  for (int round = 0; round < 3; ++round) {
    seconds = std::min(seconds, costOf(anna, [&] { run(anna, "project enter Film"); }));
    if (round < 2) run(anna, "project leave");
  }
  RecordProperty("enter_seconds", std::to_string(seconds));
  RecordProperty("resident_mebibytes", std::to_string(residentMebibytes(anna)));
  EXPECT_LT(seconds, 2.0);
  EXPECT_GT(residentMebibytes(anna), 1);
  EXPECT_LT(residentMebibytes(anna), 150 * kSlowdown);
  const int last = kManyEdits - 1;
  EXPECT_EQ(run(anna, "edit show \"Edit " + std::to_string(last) + "\"")["cookie"].asString(),
            cookieText('E', last));
  EXPECT_EQ(run(anna, "bin list").elements().size(), std::size_t{kManyBins});
  EXPECT_EQ(run(anna, "edit list").elements().size(), std::size_t{kManyEdits});
  EXPECT_LT(residentMebibytes(anna), 150 * kSlowdown);
}

TEST_F(ScaleTest, AMessageAboutOneEditCostsTheHostThreadTheSameAmongTenThousandAsAmongTen) {
  StationProcess& anna = start("ANNA", 11);
  StationProcess& ben = start("BEN", 12);
  makeProject("Small", 10, 1);
  makeProject("Large", kManyEdits, kManyBins);
  const double few = costOfMessages(ben, anna, "Small");
  const double many = costOfMessages(ben, anna, "Large");
  RecordProperty("few_seconds", std::to_string(few));
  RecordProperty("many_seconds", std::to_string(many));
  EXPECT_LT(many, few * 3) << few << ' ' << many;
}

TEST_F(ScaleTest, ActiveUsersAreCountedSoonAmongAHundredThousandFiles) {
  StationProcess& anna = start("ANNA", 11);
  for (int number = 0; number < 100'000; ++number) {
    const char* const ending = number < 9'999 ? ".cli" : ".dat";
    std::ofstream(folder_ / ("projects/USER" + std::to_string(number) + ending));
  }
  double seconds = 1e9;
  for (int round = 0; round < 3; ++round) {
    seconds =
        std::min(seconds, costOf(anna, [&] { EXPECT_EQ(run(anna, "active").asLong(), 10'000); }));
  }
  RecordProperty("seconds", std::to_string(seconds));
  EXPECT_LT(seconds, 0.1 * kSlowdown);
}

}  // namespace
