#include <algorithm>
#include <ctime>
#include <iostream>

#include "host/os/Files.h"
#include "host/os/OS.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/base/TextMember.h"
#include "station/os/SharedFiles.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/locks/UserList.h"

namespace korvel {

namespace {

constexpr std::size_t kMarkerEnding = 4;  // ".cli"

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
    markers.push_back({name.substr(0, name.size() - kMarkerEnding), item.modified});
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
                                     {"since", textOfTime(marker.since)},
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

}  // namespace korvel
