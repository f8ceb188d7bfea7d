#include <CLI/CLI.hpp>
#include <algorithm>
#include <ctime>
#include <memory>

#include "host/os/Files.h"
#include "host/os/OS.h"
#include "station/base/Strings.h"
#include "station/base/TextMember.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

constexpr std::size_t kMarkerEnding = 4;  // ".cli"

struct Request {
  std::string directory;
  bool asJson = false;
  int timeLimit = kShareSeconds;
};

/// The users of "userlist.dat" as stations read it: lines of ASCII, upper-cased, each once.
std::vector<std::string> listedUsers() {
  std::vector<std::string> users;
  const TextFile file(getProjectsBaseDirectory() + L"userlist.dat", true);
  for (std::size_t line = 0; line < file.getNumLines(); ++line) {
    auto name = Kv::WStringFromAscii(file.getLine(line));
    Kv::toUpper(name);
    const std::string user = utf8Text(name);
    if (std::find(users.begin(), users.end(), user) == users.end()) users.push_back(user);
  }
  return users;
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

JsonValue report(const std::vector<std::string>& users, const std::vector<Marker>& markers) {
  JsonValue listed = JsonValue::array();
  for (const auto& user : users) listed.append(user);
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
      auto name = wideText(marker.user);
      Kv::toUpper(name);
      return utf8Text(name) == user;
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
  const JsonValue table = tableOf(listedUsers(), activeUsers());
  if (table.elements().empty()) {
    printForPeople("no users: " + directory +
                   " has no userlist.dat with names, and no marker (*.cli)");
  } else {
    printForPeople(table);
  }
}

ToolStatus showUsers(const Request& request) {
  const ToolHost host(directoryOf(request.directory));
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  if (request.asJson) {
    printJson(report(listedUsers(), activeUsers()));
  } else {
    showTable(directoryOf(request.directory));
  }
  return eToolDone;
}

}  // namespace

void addUsersCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command = tool.add_subcommand(
      "users", "Show the user list, and the markers of active users with their age");
  const auto request = std::make_shared<Request>();
  command->add_option("DIR", request->directory, "The projects directory")->required();
  command->add_flag("--json", request->asJson, "One JSON object instead of a table");
  addTimeLimit(*command, request->timeLimit);
  command->callback([=, &status] {
    status = lookAtShare(directoryOf(request->directory), std::chrono::seconds(request->timeLimit),
                         [&request] { return showUsers(*request); });
  });
}

}  // namespace korvel
