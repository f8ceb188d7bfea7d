#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "tests/bench/PeerProcess.h"
#include "tests/bench/ProcessBench.h"
#include "tests/bench/ProjectFiles.h"
#include "tests/bench/peer/Payload.h"
#include "tests/fakes/ScratchFolder.h"

namespace korvel {

namespace {

constexpr auto kUntilAtRest = std::chrono::seconds(8);  ///< what was made is looked at once more
constexpr int kSeconds = 16;                            ///< the period of what comes most rarely
constexpr double kHour = 3600;
constexpr double kMostWakes = 2;  ///< a second
constexpr double kMostSeconds = 10;

/// What a process's threads have used: processor time, and how often they went to sleep.
struct Usage {
  double seconds = 0;
  double sleeps = 0;
};

Usage usageOf(pid_t process) {
  Usage usage;
  const std::string tasks = "/proc/" + std::to_string(process) + "/task";
  for (const auto& each : std::filesystem::directory_iterator(tasks)) {
    double nanoseconds = 0;
    if (std::ifstream(each.path() / "schedstat") >> nanoseconds) usage.seconds += nanoseconds / 1e9;
    std::ifstream status(each.path() / "status");
    for (std::string word; status >> word;) {
      double count = 0;
      if (word == "voluntary_ctxt_switches:" && status >> count) usage.sleeps += count;
    }
  }
  return usage;
}

/// What a station with the bench's project open uses a second while nothing is to be done.
std::optional<Usage> idleUsage(const std::string& programs, const std::string& folder,
                               const std::vector<std::string>& more) {
  std::vector<std::string> words{programs + "/kv-station",
                                 "--projects",
                                 folder,
                                 "--user",
                                 "ANNA",
                                 "--host",
                                 "ANNA",
                                 "--port",
                                 "27918",
                                 "--send-to",
                                 "127.255.255.255",
                                 "--script",
                                 "-",
                                 "--events",
                                 "-"};
  words.insert(words.end(), more.begin(), more.end());
  PeerProcess station(words);
  station.write("project enter Bench");
  std::optional<std::string> line;
  while ((line = station.readLine()) && line->find("\"project enter\"") == std::string::npos) {
  }
  if (!line || line->find("\"ok\":true") == std::string::npos) return {};
  // Nothing tells that what entering brings is over, and time in which nothing happens is what is
  // measured.
  std::this_thread::sleep_for(kUntilAtRest);
  const Usage before = usageOf(station.pid());
  std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
  const Usage after = usageOf(station.pid());
  static_cast<void>(station.finish());
  return Usage{(after.seconds - before.seconds) / kSeconds,
               (after.sleeps - before.sleeps) / kSeconds};
}

}  // namespace

bool measureIdle(BenchTable& table, const std::string& programs) {
  const ScratchFolder folder("/dev/shm");
  writeBenchProject(folder.path(), 100);
  bool isWhole = true;
  const auto measure = [&](const std::string& name, const std::vector<std::string>& more) {
    const auto usage = idleUsage(programs, folder.path(), more);
    if (!usage) {
      std::fprintf(stderr, "idle: the station with a %s did not enter the project\n", name.c_str());
      isWhole = false;
      return;
    }
    table.add({"wake-ups of an idle station, " + name,
               0,
               Unit::ePerSecond,
               usage->sleeps,
               kMostWakes,
               Bound::atMost(1.0),
               {}});
    table.add({"processor time an hour of it, " + name,
               0,
               Unit::eSeconds,
               usage->seconds * kHour,
               0,
               Bound::timeAtMost(kMostSeconds),
               {}});
  };
  measure("console", {});
  if (std::filesystem::exists(programs + "/libkorvelwindow.so")) {
    ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
    measure("window", {"--gui"});
  } else {
    table.leaveOut("an idle station's window", "it was not built");
  }
  return isWhole;
}

}  // namespace korvel
