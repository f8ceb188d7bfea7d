// What entering a project costs, beside listing its folder and reading the files by hand.
//
// usage: PROGRAM FOLDER ROUNDS [CACHE]
//
// Prints the bytes of memory that the entered project holds, and the names and files held by hand;
// then for each round the nanoseconds of the one and of the other. With the folder of a cache of
// what was read the files are not read again, and by hand each is only asked for its state.

#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <utility>
#include <vector>

#include "station/Station.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/project/Projects.h"
#include "tests/bench/peer/Payload.h"

using namespace korvel;

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;
using File = std::pair<std::string, std::string>;
using State = std::pair<std::string, struct stat>;

std::string readWhole(const std::string& path) {
  const int file = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  struct stat status {};
  if (file < 0 || ::fstat(file, &status) != 0) std::exit(1);
  std::string bytes(static_cast<std::size_t>(status.st_size), '\0');
  if (::read(file, bytes.data(), bytes.size()) != ssize_t(bytes.size())) std::exit(1);
  ::close(file);
  return bytes;
}

std::vector<File> listAndRead(const std::string& path) {
  std::vector<File> files;
  DIR* const folder = ::opendir(path.c_str());
  if (!folder) std::exit(1);
  while (const dirent* entry = ::readdir(folder)) {
    if (entry->d_type != DT_REG) continue;
    files.emplace_back(entry->d_name, readWhole(path + "/" + entry->d_name));
  }
  ::closedir(folder);
  return files;
}

std::vector<State> listAndStat(const std::string& path) {
  std::vector<State> states;
  DIR* const folder = ::opendir(path.c_str());
  if (!folder) std::exit(1);
  while (const dirent* entry = ::readdir(folder)) {
    State& state = states.emplace_back(entry->d_name, State::second_type());
    if (::fstatat(::dirfd(folder), entry->d_name, &state.second, 0) != 0) std::exit(1);
  }
  ::closedir(folder);
  return states;
}

void enter() {
  if (!hostParts().projects->enter(kBenchProject)) std::exit(1);
}

void leave() {
  if (!hostParts().projects->leave()) std::exit(1);
}

template <typename Work>
double nanoseconds(const Work& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

template <typename Work>
double bytesHeldAfter(const Work& work) {
  const auto inUse = [] {
    const struct mallinfo2 info = ::mallinfo2();
    return static_cast<double>(info.uordblks + info.hblkhd);
  };
  const double before = inUse();
  work();
  return inUse() - before;
}

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  StationSettings with;
  with.projectsDirectory = argv[1];
  with.user = with.host = "ANNA";
  with.sendTo = {"127.255.255.255"};
  with.config["shared_projects_udp_port"] = "27916";
  with.plugin = KV_PLUGIN;
  const bool isAgain = argc > 3;
  if (isAgain) with.cache = argv[3];
  installSettings(with);
  Station station;
  if (!station.start()) return 1;
  const std::string folder = with.projectsDirectory + "/" + kBenchProject;
  enter();  // what is made once and kept is not the project's
  leave();
  const double ours = bytesHeldAfter(enter);
  leave();
  std::vector<File> files;
  const double byHand = bytesHeldAfter([&] { files = listAndRead(folder); });
  files = {};
  std::printf("%.0f %.0f\n", ours, byHand);
  for (int round = 0; round < std::atoi(argv[2]); ++round) {
    const double entering = nanoseconds(enter);
    leave();
    std::vector<State> states;
    const double reading = nanoseconds([&] {
      if (isAgain) {
        states = listAndStat(folder);
      } else {
        files = listAndRead(folder);
      }
    });
    files = {};
    std::printf("%.0f %.0f\n", entering, reading);
  }
}
