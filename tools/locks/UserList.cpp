#include "tools/locks/LockList.h"

#include <algorithm>
#include <ctime>
#include <iostream>
#include <set>

#include "host/base/Text.h"
#include "host/os/Files.h"
#include "host/os/OS.h"
#include "station/base/Json.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/watch/StationNote.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";
constexpr std::string_view kEverybody = "<ALL>";

/// Takes the next line off a text. Lines end as stations end them: LF, CR LF or CR.
std::string takeLine(std::string_view& rest) {
  const std::size_t end = std::min(rest.find_first_of("\r\n"), rest.size());
  const std::string line(rest.substr(0, end));
  rest.remove_prefix(end);
  rest.remove_prefix(std::min<std::size_t>(rest.starts_with("\r\n") ? 2 : 1, rest.size()));
  return line;
}

/// What is wrong with a line; empty where it is a name that a station can have.
std::string problemOf(const std::string& line) {
  if (line.starts_with(kByteOrderMark)) {
    return "begins with a byte-order mark, which becomes a part of the name";
  }
  if (line.find_first_not_of(" \t") == line.npos) return "is empty";
  if (line.front() == ' ' || line.back() == ' ' || line.back() == '\t' || line.front() == '\t') {
    return "has blanks at an end, which become a part of the name";
  }
  if (!isAscii(line)) return "holds letters beyond ASCII, which stations read as others";
  if (upperCased(line) == kEverybody) return "is \"<All>\", which means everybody";
  return {};
}

}  // namespace

bool UserList::holds(const std::string& user) const {
  return std::ranges::find(users, upperCased(user)) != users.end();
}

UserList readUserList(std::string_view bytes) {
  UserList list;
  std::set<std::string> known;
  for (std::size_t number = 1; !bytes.empty(); ++number) {
    const std::string line = takeLine(bytes);
    const std::string problem = problemOf(line);
    if (!problem.empty()) {
      list.problems.push_back("userlist.dat line " + std::to_string(number) + " " + problem);
    }
    // A faulty line counts as a name all the same: stations read it so.
    auto name = Kv::WStringFromAscii(hostText(line));
    Kv::toUpper(name);
    const std::string user = utf8Text(name);
    if (known.insert(user).second) list.users.push_back(user);
  }
  return list;
}

namespace {

/// The user list; empty where there is none.
UserList userList() {
  const auto bytes = readFresh(settings().projectsDirectory + "/userlist.dat", kLargestList);
  return bytes ? readUserList(*bytes) : UserList();
}

struct Marker {
  std::string user;
  std::int64_t since;
};

/// The markers of active users, those that were set last first.
std::vector<Marker> activeUsers() {
  Vector<iFileManager::DirectoryItem> items;
  OS().fileManager().listDirectory(getProjectsBaseDirectory() + L"*.cli", iFileManager::eListFiles,
                                   1, items);
  std::vector<Marker> markers;
  for (const auto& item : items) {
    const std::string name = utf8Text(item.name);
    markers.push_back({name.substr(0, name.size() - kMarkerEnding.size()), item.modified});
  }
  std::ranges::sort(markers, [](const Marker& a, const Marker& b) {
    return a.since != b.since ? a.since > b.since : a.user < b.user;
  });
  return markers;
}

/// An age in the largest whole unit: "40 s", "3 min", "5 h", "12 days".
std::string ageText(std::int64_t seconds) {
  if (seconds < 120) return std::to_string(seconds) + " s";
  if (seconds < 120 * 60) return std::to_string(seconds / 60) + " min";
  if (seconds < 48 * 3600) return std::to_string(seconds / 3600) + " h";
  return std::to_string(seconds / 86'400) + " days";
}

std::int64_t ageOf(const Marker& marker) {
  return std::max<std::int64_t>(0, std::time(nullptr) - marker.since);
}

JsonValue report(const UserList& list, const std::vector<Marker>& markers) {
  JsonValue listed = JsonValue::array();
  for (const auto& user : list.users) listed.append(user);
  JsonValue active = JsonValue::array();
  for (const auto& marker : markers) {
    active.append(JsonValue::object({textMember("user", marker.user),
                                     {"since", utcText(marker.since)},
                                     {"age", static_cast<long>(ageOf(marker))}}));
  }
  return JsonValue::object({{"users", std::move(listed)}, {"active", std::move(active)}});
}

/// Everybody in one table: the user list in its order, then those who are active and not on it.
JsonValue tableOf(const std::vector<std::string>& users, std::vector<Marker> markers) {
  JsonValue table = JsonValue::array();
  const auto row = [](const std::string& user, const char* listed, const std::string& age) {
    return JsonValue::object({{"user", user}, {"on the list", listed}, {"marker set", age}});
  };
  for (const auto& user : users) {
    const auto found = std::find_if(markers.begin(), markers.end(), [&](const Marker& marker) {
      // Markers keep the case of the name; the list is in capitals.
      return upperCased(marker.user) == user;
    });
    const bool isActive = found != markers.end();
    table.append(row(user, "yes", isActive ? ageText(ageOf(*found)) + " ago" : ""));
    if (isActive) markers.erase(found);
  }
  for (const auto& marker : markers) {
    table.append(row(marker.user, "no", ageText(ageOf(marker)) + " ago"));
  }
  return table;
}

void showTable(const std::string& directory) {
  const UserList list = userList();
  const JsonValue table = tableOf(list.users, activeUsers());
  if (table.elements().empty()) {
    printForPeople("no users: " + directory +
                   " has no userlist.dat with names, and no marker (*.cli)");
  } else {
    printTable(table, [](const JsonValue&) { return kPlain; });
  }
  for (const std::string& problem : list.problems) {
    std::cout << "note: " << shownText(problem) << ": no station has that name\n";
  }
}

ToolStatus showUsers(const ShareRequest& request) {
  const ToolHost host(directoryOf(request.path));
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  if (request.asJson) {
    printJson(report(userList(), activeUsers()));
  } else {
    showTable(directoryOf(request.path));
  }
  return eToolDone;
}

}  // namespace

void addUsersCommand(CommandLine& line) {
  addShareCommand<ShareRequest>(
      line, {"users", "Show the user list, and the markers of active users with their age",
             [](CommandOptions& options, ShareRequest& request) {
               options.word("DIR", request.path, "The projects directory");
               options.flag("--json", request.asJson, "One JSON object instead of a table");
             },
             showUsers});
}

namespace {

JsonValue rowOf(const FoundStation& station) {
  const StationNote& note = station.note;
  return JsonValue::object({{"user", note.user},
                            {"host", note.host},
                            {"state", station.stateText()},
                            {"project", note.projectName},
                            {"room", note.room},
                            {"open", note.open.size()},
                            {"unsaved", note.unsaved.size()},
                            {"since", note.since},
                            {"last change", note.written}});
}

JsonValue objectOf(const FoundStation& station) {
  JsonValue object = shownStation(station);
  object.set("id", shownText(station.note.id));
  return object;
}

ToolStatus showStations(const ShareRequest& request) {
  const std::string directory = directoryOf(request.path);
  const ToolHost host(directory);
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  auto stations = listStations(directory);
  if (!stations) return toolProblem(eToolUsage, stations.error().message);
  leaveOutReturned(*stations);
  ToolStatus status = eToolDone;
  JsonValue all = JsonValue::array();
  for (const FoundStation& each : *stations) {
    if (request.asJson) all.append(objectOf(each));
    if (!request.asJson && each.problem.empty()) all.append(rowOf(each));
    if (each.problem.empty()) continue;
    status = eToolFinding;
    if (!request.asJson) toolProblem(status, each.problem);
  }
  if (request.asJson) {
    printJson(all);
  } else if (all.elements().empty()) {
    printForPeople("no stations: none has told of itself in " + directory);
  } else {
    printForPeople(all);
  }
  return status;
}

}  // namespace

void addWhoCommand(CommandLine& line) {
  addShareCommand<ShareRequest>(
      line,
      {"who", "Show the stations: who is where, with what open, alive or gone without goodbye",
       [](CommandOptions& options, ShareRequest& request) {
         options.word("DIR", request.path, "The projects directory");
         options.flag("--json", request.asJson, "One JSON array instead of a table");
         options.footer("Looking takes no lock. Exit status: 0; 1 when a note cannot be read.");
       },
       showStations});
}

}  // namespace korvel
