// What the first look at the user list costs, beside the file read and a hash set by hand. One look
// a process, since the list is read once.
//
// usage: PROGRAM FOLDER ours|floor    what is measured first

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cwctype>
#include <filesystem>
#include <fstream>
#include <string>
#include <unordered_set>
#include <vector>

#include "host/project/iPermissionsManager.h"
#include "station/Station.h"
#include "station/base/StationSettings.h"

using namespace korvel;

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

template <typename Work>
double nanoseconds(const Work& work) {
  const auto start = Clock::now();
  work();
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// The same list by hand: each line widened and in capitals, every name once, in order.
std::vector<std::wstring> readByHand(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  std::string bytes(std::filesystem::file_size(path), '\0');
  file.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  std::vector<std::wstring> names;
  std::unordered_set<std::wstring> known;
  for (std::size_t at = 0; at < bytes.size();) {
    const std::size_t end = bytes.find('\n', at);
    std::wstring name(bytes.begin() + static_cast<std::ptrdiff_t>(at),
                      bytes.begin() + static_cast<std::ptrdiff_t>(end));
    for (wchar_t& letter : name)
      letter = static_cast<wchar_t>(std::towupper(static_cast<std::wint_t>(letter)));
    if (known.insert(name).second) names.push_back(std::move(name));
    at = end + 1;
  }
  return names;
}

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  if (argc < 3) return 2;
  StationSettings with;
  with.projectsDirectory = argv[1];
  with.user = with.host = "ANNA";
  with.sendTo = {"127.255.255.255"};
  with.config["shared_projects_udp_port"] = "27915";
  with.plugin = KV_PLUGIN;
  installSettings(with);
  Station station;
  if (!station.start()) return 1;
  std::size_t ourNames = 0;
  std::size_t floorNames = 0;
  double ours = 0;
  double floor = 0;
  const auto measureOurs = [&] {
    ours = nanoseconds([&] { ourNames = iPermissionsManager::instance()->getUserList().size(); });
  };
  if (std::string(argv[2]) == "ours") measureOurs();
  floor =
      nanoseconds([&] { floorNames = readByHand(std::string(argv[1]) + "/userlist.dat").size(); });
  if (ours == 0) measureOurs();
  std::printf("%.0f %.0f\n", ours, floor);
  return ourNames == floorNames + 1 ? 0 : 1;  // and the station itself
}
