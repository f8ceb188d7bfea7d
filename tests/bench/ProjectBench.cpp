#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <optional>
#include <thread>

#include "tests/bench/Figures.h"
#include "tests/bench/PeerProcess.h"
#include "tests/bench/ProcessBench.h"
#include "tests/bench/ProjectFiles.h"
#include "tests/bench/peer/Payload.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/fault/MappedFaultControl.h"

namespace korvel {

namespace {

constexpr int kProjectRounds = 9;
constexpr std::uint32_t kEntries = 1'000'000;  ///< edits to be entered in all rounds of a size

struct Pair {
  double ours = 0;
  double floor = 0;
};

/// The next line's two numbers.
std::optional<Pair> readPair(PeerProcess& program) {
  Pair pair;
  const auto line = program.readLine(std::chrono::seconds(60));
  if (!line || std::sscanf(line->c_str(), "%lf %lf", &pair.ours, &pair.floor) != 2) return {};
  return pair;
}

/// Pairs of nanoseconds and their medians, in seconds.
struct Times {
  std::vector<double> ours;
  std::vector<double> floor;

  void add(const Pair& pair) {
    ours.push_back(pair.ours / 1e9);
    floor.push_back(pair.floor / 1e9);
  }
  [[nodiscard]] Figure figure(const std::string& what, double size, double bound) const {
    return {what, size, Unit::eSeconds, median(ours), median(floor), Bound::atMost(bound), {}};
  }
};

bool failedProgram(const char* what) {
  std::fprintf(stderr, "%s: the measuring program failed\n", what);
  return false;
}

/// What a program tells of so many rounds, after it told of its memory; nothing where it failed.
std::optional<Times> timesOf(PeerProcess& program, int rounds) {
  if (!readPair(program)) return std::nullopt;
  Times times;
  for (int round = 0; round < rounds; ++round) {
    const auto pair = readPair(program);
    if (!pair) return std::nullopt;
    times.add(*pair);
  }
  return program.finish() ? std::optional(times) : std::nullopt;
}

void writeUsers(const std::string& folder, int names) {
  std::ofstream file(folder + "/userlist.dat");
  for (int number = 0; number < names; ++number) file << "Workstation-" << number << '\n';
}

}  // namespace

bool measureUserList(BenchTable& table, const std::string& programs) {
  // The last is nearly the largest list that is read, 256 KiB.
  for (const int names : {1'000, 10'000, 15'000}) {
    const ScratchFolder folder("/dev/shm");
    writeUsers(folder.path(), names);
    Times times;
    for (int round = 0; round < kProjectRounds; ++round) {
      PeerProcess program({programs + "/bench-users", folder.path(), round % 2 ? "ours" : "floor"});
      const auto pair = readPair(program);
      if (!pair || !program.finish()) return failedProgram("users");
      times.add(*pair);
    }
    table.add(times.figure("getUserList, first, names", names, 2.0));
  }
  return true;
}

bool measureEntering(BenchTable& table, const std::string& programs) {
  std::vector<Figure> memory;
  for (const std::uint32_t edits : {100U, 10'000U, 100'000U}) {
    const ScratchFolder folder("/dev/shm");
    writeBenchProject(folder.path(), edits);
    const std::uint32_t rounds = std::min(99U, std::max(5U, kEntries / 10 / edits));
    PeerProcess program({programs + "/bench-enter", folder.path(), std::to_string(rounds)});
    const auto held = readPair(program);
    if (!held) return failedProgram("enter");
    memory.push_back({"memory an edit of the entered project",
                      double(edits),
                      Unit::eBytes,
                      held->ours / edits,
                      held->floor / edits,
                      Bound::atMost(3.0),
                      {}});
    Times times;
    for (std::uint32_t round = 0; round < rounds; ++round) {
      const auto pair = readPair(program);
      if (!pair) return failedProgram("enter");
      times.add(*pair);
    }
    if (!program.finish()) return failedProgram("enter");
    table.add(times.figure("project enter, edits", edits, 3.0));
  }
  for (Figure& figure : memory) table.add(std::move(figure));
  return true;
}

bool measureEnteringSlowly(BenchTable& table, const std::string& programs) {
  constexpr int kSlowRounds = 3;
  constexpr std::uint32_t kEdits = 1000;
  constexpr unsigned kRoundTrip = 300;  // microseconds
  const ScratchFolder folder("/dev/shm");
  writeBenchProject(folder.path(), kEdits);
  const MappedFaultControl control;
  (*control).pause = kRoundTrip;
  ::setenv(kFaultFolderVariable, folder.path().c_str(), 1);
  ::setenv("LD_PRELOAD", KV_FAILING_FILES, 1);
  PeerProcess program({programs + "/bench-enter", folder.path(), std::to_string(kSlowRounds)});
  ::unsetenv("LD_PRELOAD");
  const auto times = timesOf(program, kSlowRounds);
  if (!times) return failedProgram("slow");
  table.add(times->figure("project enter, 0.3 ms an answer, edits", kEdits, 1.0));
  return true;
}

// On a disk, where the system keeps its temporary files.
bool measureEnteringAgain(BenchTable& table, const std::string& programs) {
  constexpr int kAgain = 49;
  const ScratchFolder folder;
  const ScratchFolder cache;
  writeBenchProject(folder.path(), 10'000);
  // Until the files are at rest, and the folder tells that time has passed: only then are they
  // kept.
  std::this_thread::sleep_for(std::chrono::milliseconds(2200));
  const std::string other = folder / (std::string(kBenchProject) + "/other.txt");
  std::ofstream(other).put('\n');
  std::filesystem::remove(other);
  PeerProcess program(
      {programs + "/bench-enter", folder.path(), std::to_string(kAgain), cache / "korvel"});
  const auto times = timesOf(program, kAgain);
  if (!times) return failedProgram("enter again");
  table.add(times->figure("project enter again, edits", 10'000, 1.2));
  return true;
}

// Where the system keeps its temporary files: on a disk, as a rule, whose time is what counts.
bool measureSaving(BenchTable& table, const std::string& programs) {
  constexpr int kSaves = 300;
  const ScratchFolder folder;
  PeerProcess program({programs + "/bench-save", folder.path(), std::to_string(kSaves)});
  Times times;
  for (int round = 0; round < kSaves; ++round) {
    const auto pair = readPair(program);
    if (!pair) return failedProgram("save");
    times.add(*pair);
  }
  if (!program.finish()) return failedProgram("save");
  table.add(times.figure("edit save with its history, bytes", 100'000, 1.2));
  return true;
}

bool measureStart(BenchTable& table, const std::string& programs) {
  for (const int projects : {10, 1'000, 10'000}) {
    const ScratchFolder folder("/dev/shm");
    for (int number = 0; number < projects; ++number) {
      std::filesystem::create_directory(folder / ("P" + std::to_string(100'000 + number)));
    }
    Times times;
    const auto time = [](PeerProcess program) -> double {
      std::optional<std::string> line;
      while ((line = program.readLine()) && line->find("ready") == std::string::npos) {
      }
      const auto taken = PeerProcess::Clock::now() - program.started();
      return line && program.finish() ? std::chrono::duration<double, std::nano>(taken).count() : 0;
    };
    for (int round = 0; round < kProjectRounds; ++round) {
      const Pair pair{
          time(PeerProcess({programs + "/kv-station", "--projects", folder.path(), "--user", "ANNA",
                            "--host", "ANNA", "--port", "27917", "--send-to", "127.255.255.255",
                            "--script", "-", "--events", "-"})),
          time(PeerProcess({programs + "/bench-empty"}))};
      if (pair.ours <= 0 || pair.floor <= 0) return failedProgram("start");
      times.add(pair);
    }
    table.add(times.figure("start to ready, projects there", projects, 3.0));
  }
  return true;
}

}  // namespace korvel
