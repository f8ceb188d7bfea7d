#include "tools/doctor/Check.h"

#include <sys/stat.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <ctime>
#include <optional>

#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/seal/KeyRing.h"
#include "station/seal/Seals.h"
#include "station/watch/StationNote.h"
#include "tools/base/ProcInfo.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

constexpr auto kNamesLimit = std::chrono::seconds(5);
constexpr std::size_t kLongestName = 200;  // as many bytes as readers take

bool hasControls(const std::string& name) {
  return std::any_of(name.begin(), name.end(),
                     [](unsigned char byte) { return byte < 0x20 || byte == 0x7F; });
}

Findings lookMarker(const DoctorFacts& facts) {
  const std::string& user = facts.station.user;
  const std::string marker =
      facts.station.projectsDirectory + "/" + user + std::string(kMarkerEnding);
  struct stat status {};
  const bool isThere =
      !user.empty() && existsFresh(marker) && ::lstat(marker.c_str(), &status) == 0;
  const long age =
      // The share's clock may be ahead of this machine's.
      isThere ? std::max(0L, static_cast<long>(std::time(nullptr) - status.st_mtime)) : -1;
  return judgeMarker(user, age, isStationRunning() ? StationHere::eRuns : StationHere::eNone);
}

/// The user list; empty where it cannot be read, which lookUserList() reports.
UserList userListOf(const DoctorFacts& facts) {
  const auto bytes = readFresh(facts.station.projectsDirectory + "/userlist.dat", kLargestList);
  return bytes ? readUserList(*bytes) : UserList();
}

Findings lookUserList(const DoctorFacts& facts) {
  const auto bytes = readFresh(facts.station.projectsDirectory + "/userlist.dat", kLargestList);
  if (bytes) return judgeUserList(readUserList(*bytes));
  if (bytes.error().code == ErrorCode::eNotFound) {
    return {warn("there is no userlist.dat: stations offer nobody to write to",
                 "make the file in the projects directory, one user name a line")};
  }
  return {fail(bytes.error().message, "make it a plain file of one user name a line")};
}

std::optional<std::int64_t> secondsIn(const std::string& utc) {
  std::tm parts{};
  const char* const end = ::strptime(utc.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  if (!end || *end != '\0') return std::nullopt;
  return ::timegm(&parts);
}

/// How far a station's clock is before the share's: its note holds the one, the file's time of
/// change is the other.
std::optional<double> clockOf(const StationNote& note, const std::string& folder) {
  struct stat status {};
  const auto written = secondsIn(note.written);
  const std::string file = folder + "/" + note.id + std::string(kRecordEnding);
  if (!written || ::lstat(file.c_str(), &status) != 0) return std::nullopt;
  return static_cast<double>(*written - status.st_mtim.tv_sec);
}

Findings lookClocks(const DoctorFacts& facts) {
  const std::string& directory = facts.station.projectsDirectory;
  const auto here = clockBeforeShares(facts);
  const ToolHost host(directory);  // whether a station lives is asked of its lock
  const auto stations = listStations(directory);
  if (!here || !stations) {
    return {warn("the clocks of the stations cannot be compared", "see the share's lines, above")};
  }
  std::vector<StationClock> clocks;
  for (const FoundStation& each : *stations) {
    if (!each.isAlive()) continue;
    const auto there = clockOf(each.note, notesFolder(directory));
    if (!there) continue;
    clocks.push_back({shownText(each.note.user + " at " + each.note.host), *there - *here});
  }
  const auto ring = KeyRing::read(directory);
  return judgeClocks(clocks, ring && ring->used() ? ShareKeys::eUsed : ShareKeys::eNone);
}

}  // namespace

Findings judgeClocks(const std::vector<StationClock>& clocks, ShareKeys keys) {
  constexpr double kMost = static_cast<double>(ReplayWindow::kTolerance) / 1000;
  constexpr const char* kFix =
      "let a time service set the clocks of all machines (timedatectl set-ntp true)";
  Findings findings;
  for (const StationClock& each : clocks) {
    const double size = std::fabs(each.seconds);
    if (size <= kMost / 2) continue;
    const std::string text = "the clock of " + each.station + " is " +
                             std::to_string(std::lround(size)) + " s " +
                             (each.seconds > 0 ? "before" : "behind") + " this machine's";
    if (keys == ShareKeys::eNone) {
      findings.push_back(warn(text + ": times are shown wrong", kFix));
    } else if (size <= kMost) {
      findings.push_back(warn(text + ": beyond " + std::to_string(std::lround(kMost)) +
                                  " s its messages count as not sealed",
                              kFix));
    } else {
      findings.push_back(
          fail(text + ": what it sends after a start of either counts as not sealed", kFix));
    }
  }
  if (!findings.empty()) return findings;
  if (clocks.empty()) return {pass("no station is there whose clock could be compared")};
  return {pass("this machine's clock agrees with " +
               (clocks.size() == 1 ? "that of " + clocks.front().station
                                   : "those of " + countText(clocks.size(), "station")))};
}

Findings judgeName(const std::string& what, const std::string& name) {
  const std::string shown = "the " + what + " " + inQuotes(name);
  const std::string other = "choose another with --" + what.substr(0, what.find(' '));
  if (name.empty()) return {fail("the " + what + " is empty: nobody knows this station", other)};
  // In the order of harm: the first fault hides the others.
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
  if (!isAscii(name)) {
    return {warn(shown + " holds letters that are not ASCII: words to this user alone become "
                         "notifications, and no lines of the panel",
                 other + ", in capitals from A to Z")};
  }
  return {pass(shown + " reaches others whole")};
}

Findings judgeMarker(const std::string& user, long age, StationHere here) {
  if (age < 0) return {pass("no other station is marked as " + user + "'s")};
  const std::string text = user + ".cli was set " + std::to_string(age) + " s ago";
  if (here == StationHere::eRuns) return {pass(text + ", and a station runs on this machine")};
  return {warn(text + ", and no station runs on this machine: another station has the user name " +
                   inQuotes(user) + ", or one was killed",
               "give every station a user name of its own; if no other is " + user + "'s, remove " +
                   user + std::string(kMarkerEnding))};
}

Findings judgeUser(const std::string& user, const std::string& host, const UserList& list) {
  const std::string shown = "the user name " + inQuotes(user);
  const std::string address = upperCased(host);
  const std::string fix =
      "start the station with --user and --host alike, in capitals: letters of "
      "ASCII, digits and \"-\"";
  for (const char* const reserved : {"<ALL>", "RENDER", "<NOBODY>"}) {
    if (upperCased(user) != reserved && address != reserved) continue;
    return {fail(std::string("the name ") + reserved +
                     " has a meaning of its own: a station of that name gets no messages of its "
                     "own, and may not change what it owns",
                 "choose another with --user and --host")};
  }
  if (!isAscii(user)) {
    return {warn(shown + " holds letters beyond ASCII: messages to this user alone become "
                         "notifications, and no lines of the panel",
                 fix)};
  }
  if (user != address) {
    return {warn(shown + " is not the host's name in capitals, " + inQuotes(address) +
                     ", by which others address this station: no message to this user alone "
                     "arrives",
                 fix)};
  }
  if (!list.holds(user)) {
    return {warn(shown + " is not in userlist.dat: others cannot choose it as a recipient",
                 "add it as a line of its own to userlist.dat in the projects directory, or type "
                 "user add " +
                     user + " on the other stations")};
  }
  return {pass("messages to " + inQuotes(user) + " alone arrive")};
}

Findings judgeUserList(const UserList& list) {
  Findings findings;
  for (const std::string& problem : list.problems) {
    findings.push_back(warn(problem + ": no station has that name",
                            "write one name a line, in ASCII and without blanks at its ends"));
  }
  if (!findings.empty()) return findings;
  return {pass("userlist.dat names " + countText(list.users.size(), "user"))};
}

std::vector<Check> stationChecks(const DoctorFacts& facts) {
  const StationSettings& station = facts.station;
  const auto check = [](const char* name, Touches touches, std::function<Findings()> look) {
    return Check{"station", name, touches, Role::eOrdinary, kNamesLimit, std::move(look)};
  };
  return {check("user name", Touches::eMachine,
                [&station] { return judgeName("user name", station.user); }),
          check("host name", Touches::eMachine,
                [&station] { return judgeName("host name", station.host); }),
          check("marker", Touches::eShare, [&facts] { return lookMarker(facts); }),
          check("user list", Touches::eShare, [&facts] { return lookUserList(facts); }),
          check("address", Touches::eShare,
                [&facts] {
                  return judgeUser(facts.station.user, facts.station.host, userListOf(facts));
                }),
          check("clocks", Touches::eShare, [&facts] { return lookClocks(facts); })};
}

}  // namespace korvel
