#include <sys/utsname.h>

#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "tests/bench/MicroBench.h"
#include "tests/bench/OwnNetwork.h"
#include "tests/bench/ProcessBench.h"

using namespace korvel;

namespace korvel {

namespace {

using Measure = bool (*)(BenchTable& table, const std::string& programs);

template <void (*addPairs)(MicroBench&)>
bool measurePairs(BenchTable& table, const std::string&) {
  MicroBench bench;
  addPairs(bench);
  return bench.run(table);
}

struct Group {
  const char* name;
  const char* what;
  Measure measure;
};

constexpr Group kGroups[] = {
    {"messages", "encode and decode one message of each type", measurePairs<addMessagePairs>},
    {"receive", "a message received, with and without takers of events",
     measurePairs<addReceivePairs>},
    {"seal", "sealing a message and judging the seal", measurePairs<addSealPairs>},
    {"locks", "locks, who holds them, active users", measurePairs<addLockPairs>},
    {"permissions", "isModificationAllowed of 10 to 1 000 000 objects",
     measurePairs<addPermissionPairs>},
    {"users", "getUserList", measureUserList},
    {"enter", "project enter and the memory it takes", measureEntering},
    {"again", "project enter where nothing changed since", measureEnteringAgain},
    {"slow", "project enter on a folder that answers in 0.3 ms", measureEnteringSlowly},
    {"idle", "wake-ups and processor time of a station with nothing to do", measureIdle},
    {"window", "the window's longest frame while 200 changes a second arrive", measureWindow},
    {"save", "saving an edit with its versions kept, beside saving alone", measureSaving},
    {"start", "a station's start", measureStart},
    {"latency", "a change's way to 1, 4 and 16 stations", measureLatency},
    {"flood", "a change's way while a stranger sends 100 000 messages a second", measureFlood},
    {"rate", "messages a second to 1, 4 and 16 stations", measureRate},
};

/// No group is begun later than this, so that the whole stays under ten minutes.
constexpr auto kLastBeginning = std::chrono::minutes(7);

int usage(std::FILE* to, int status) {
  std::fputs(
      "usage: kv-bench [GROUP...]    measures all, or these, and prints the table\n"
      "       kv-bench --list        the groups\n"
      "Exits 0 when everything was measured, whether or not a bound is missed (the table says\n"
      "so); 1 when something could not be measured; 2 for a wrong word.\n",
      to);
  return status;
}

std::string processorName() {
  std::ifstream file("/proc/cpuinfo");
  for (std::string line; std::getline(file, line);) {
    if (line.starts_with("model name")) return line.substr(line.find(':') + 2);
  }
  return "unknown processor";
}

void printHeader(bool hasOwnNetwork) {
  utsname system{};
  ::uname(&system);
  char date[32] = "";
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::gmtime_r(&now, &parts);
  std::strftime(date, sizeof date, "%Y-%m-%d %H:%M UTC", &parts);
  std::printf("%s, %u cores, %s %s, %s\nnetwork: %s\n\n", processorName().c_str(),
              std::thread::hardware_concurrency(), system.sysname, system.release, date,
              hasOwnNetwork ? "loopback of its own" : "this machine's loopback");
}

bool isWanted(const Group& group, const std::vector<std::string>& names) {
  if (names.empty()) return true;
  for (const std::string& name : names) {
    if (name == group.name) return true;
  }
  return false;
}

bool isKnown(const std::string& name) {
  for (const Group& group : kGroups) {
    if (name == group.name) return true;
  }
  return false;
}

int runGroups(const std::vector<std::string>& names) {
  const bool hasOwnNetwork = enterOwnNetwork();
  const std::string programs = std::filesystem::read_symlink("/proc/self/exe").parent_path();
  BenchTable table;
  bool isWhole = true;
  const auto start = std::chrono::steady_clock::now();
  for (const Group& group : kGroups) {
    if (!isWanted(group, names)) continue;
    if (std::chrono::steady_clock::now() - start > kLastBeginning) {
      table.leaveOut(group.name, "no time was left on this busy machine; name it alone");
      continue;
    }
    std::fprintf(stderr, "measuring: %s\n", group.what);
    isWhole = group.measure(table, programs) && isWhole;
  }
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - start;
  printHeader(hasOwnNetwork);
  std::fputs(table.text().c_str(), stdout);
  std::printf("\n%d bounds missed; measured in %.0f s\n", table.missed(), taken.count());
  return isWhole ? 0 : 1;
}

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  const std::vector<std::string> names(argv + 1, argv + argc);
  if (names.size() == 1 && (names[0] == "--help" || names[0] == "-h")) return usage(stdout, 0);
  if (names.size() == 1 && names[0] == "--list") {
    for (const Group& group : kGroups) std::printf("%-12s %s\n", group.name, group.what);
    return 0;
  }
  for (const std::string& name : names) {
    if (!isKnown(name)) {
      std::fprintf(stderr, "kv-bench: there is no group \"%s\"\n", name.c_str());
      return usage(stderr, 2);
    }
  }
  return runGroups(names);
}
