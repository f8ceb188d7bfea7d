#include "tools/doctor/StationChecks.h"

#include <sys/stat.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <fstream>

#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/project/ObjectNames.h"

namespace korvel {

namespace {

constexpr auto kLimit = std::chrono::seconds(5);
constexpr std::size_t kLongestName = 200;  // as many bytes as readers take

bool hasControls(const std::string& name) {
  return std::any_of(name.begin(), name.end(),
                     [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; });
}

StationHere stationHere() {
  std::error_code problem;
  for (std::filesystem::directory_iterator each("/proc", problem), end; !problem && each != end;
       each.increment(problem)) {
    std::ifstream file(each->path() / "comm");
    std::string name;
    if (std::getline(file, name) && name == "kv-station") return StationHere::eRuns;
  }
  return StationHere::eNone;
}

Findings lookMarker(const DoctorFacts& facts) {
  const std::string& user = facts.station.user;
  const std::string marker = facts.station.projectsDirectory + "/" + user + ".cli";
  struct stat status {};
  const bool isThere =
      !user.empty() && existsFresh(marker) && ::lstat(marker.c_str(), &status) == 0;
  const long age =
      isThere ? std::max(0L, static_cast<long>(std::time(nullptr) - status.st_mtime)) : -1;
  return judgeMarker(user, age, stationHere());
}

}  // namespace

Findings judgeName(const std::string& what, const std::string& name) {
  const std::string shown = "the " + what + " \"" + name + "\"";
  const std::string other = "choose another with --" + what.substr(0, what.find(' '));
  if (name.empty()) return {fail("the " + what + " is empty: nobody knows this station", other)};
  if (!travelsWhole(name)) {
    return {fail(shown + " holds the byte AC, which ends a field of a message: others see it cut",
                 other + ", without that character")};
  }
  if (hasControls(name)) return {fail(shown + " holds control characters", other)};
  if (name.find('/') != name.npos) {
    return {fail(shown + " holds a \"/\", and files are named after it", other)};
  }
  if (name.size() > kLongestName) {
    return {warn("the " + what + " has " + std::to_string(name.size()) +
                     " bytes: others see its first " + std::to_string(kLongestName),
                 other + ", a shorter one")};
  }
  return {pass(shown + " reaches others whole")};
}

Findings judgeMarker(const std::string& user, long age, StationHere here) {
  if (age < 0) return {pass("no other station is marked as " + user + "'s")};
  const std::string text = user + ".cli was set " + std::to_string(age) + " s ago";
  if (here == StationHere::eRuns) return {pass(text + ", and a station runs on this machine")};
  return {warn(text +
                   ", and no station runs on this machine: another station has the user name "
                   "\"" +
                   user + "\", or one was killed",
               "give every station a user name of its own; if no other is " + user + "'s, remove " +
                   user + ".cli")};
}

std::vector<Check> stationChecks(const DoctorFacts& facts) {
  const StationSettings& station = facts.station;
  return {{"station", "user name", Touches::eMachine, Role::eOrdinary, kLimit,
           [&station] { return judgeName("user name", station.user); }},
          {"station", "host name", Touches::eMachine, Role::eOrdinary, kLimit,
           [&station] { return judgeName("host name", station.host); }},
          {"station", "marker", Touches::eShare, Role::eOrdinary, kLimit,
           [&facts] { return lookMarker(facts); }}};
}

}  // namespace korvel
