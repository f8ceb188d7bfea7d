#include "app/commands/Commands.h"

#include <charconv>

#include "host/base/Config.h"
#include "host/net/iNetworkService.h"
#include "host/os/OS.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iPermissionsManager.h"
#include "host/project/iProjectShare.h"
#include "station/Station.h"
#include "station/base/Rendering.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/watch/Presence.h"
#include "station/wire/MessageTable.h"

namespace korvel {

namespace {

Error noPlugin() {
  return {ErrorCode::eNotFound,
          "Nothing manages users here, since no sharing plug-in is loaded; start the station with "
          "--plugin FILE.",
          {}};
}

Result<JsonValue> users(Station&, const Arguments&) {
  iPermissionsManager* const manager = iPermissionsManager::instance();
  if (!manager) return noPlugin();
  const LightweightString<wchar_t> self = manager->getCurrentUser();
  JsonValue all = JsonValue::array();
  for (const LightweightString<wchar_t>& user : manager->getUserList()) {
    all.append(JsonValue::object({{"user", shownText(user)}, {"self", user == self}}));
  }
  return all;
}

Result<JsonValue> addUser(Station&, const Arguments& arguments) {
  iPermissionsManager* const manager = iPermissionsManager::instance();
  if (!manager) return noPlugin();
  if (const Result<void> sound = checkName("user", arguments[0]); !sound) return sound.error();
  manager->addUser(wideText(arguments[0]));
  return JsonValue();
}

Result<JsonValue> active(Station&, const Arguments&) {
  iProjectShare* const share = iProjectShare::instance();
  if (!share) return noPlugin();
  const std::uint32_t count = share->getNumActiveUsers();
  if (count > 0) return JsonValue(count);
  // 0 is the answer for an unreadable folder, too: tell the two apart.
  if (auto files = listFresh(settings().projectsDirectory); !files) return files.error();
  return JsonValue(0);
}

/// Shows both names of the user: owners are recorded under the permissions manager's own.
Result<JsonValue> whoAmI(Station&, const Arguments&) {
  const LightweightString<wchar_t> user = OS().currentUserName();
  const iPermissionsManager* const manager = iPermissionsManager::instance();
  return JsonValue::object({{"user", shownText(user)},
                            {"owner_name", shownText(manager ? manager->getCurrentUser() : user)},
                            {"host", shownText(OS().networkHostName())},
                            {"machine", Cookie::getLocalMachineNumber()},
                            {"network_mode", ProjectSpacesManager::machineIsInNetworkMode()}});
}

Result<JsonValue> who(Station& station, const Arguments& arguments) {
  const Presence& presence = station.presence();
  if (arguments.empty()) return presence.who(Presence::Which::eHere);
  if (arguments[0] == "--all") return presence.who(Presence::Which::eAll);
  return Error{ErrorCode::eUsage,
               inQuotes(arguments[0]) + " is not understood; \"who\" takes --all only.",
               {}};
}

/// For people: where each is, with what open.
std::string showWho(Station&, const Arguments&, const JsonValue& stations) {
  JsonValue table = JsonValue::array();
  for (const JsonValue& each : stations.elements()) {
    table.append(
        JsonValue::object({{"user", each["user"]},
                           {"host", each["host"]},
                           {"state", each["self"].asBool() ? JsonValue("this one") : each["state"]},
                           {"project", each["project"]},
                           {"room", each["room"]},
                           {"open", each["open"].elements().size()},
                           {"unsaved", each["unsaved"].elements().size()},
                           {"since", each["since"]}}));
  }
  return renderForPeople(table);
}

Result<int> machineNumber(const std::string& text) {
  int number = 0;
  const char* const end = text.data() + text.size();
  const auto [stop, problem] = std::from_chars(text.data(), end, number);
  if (problem == std::errc() && stop == end && number >= 0) return number;
  return Error{
      ErrorCode::eUsage,
      inQuotes(text) + " is no machine number; \"whoami\" on the other station shows its number.",
      {}};
}

Result<void> checkTravelsWhole(const std::string& command) {
  if (!command.empty() && travelsWhole(command)) return {};
  return Error{ErrorCode::eUsage,
               inQuotes(command) + " is no command that another machine can be sent.",
               {}};
}

Result<JsonValue> request(Station&, const Arguments& arguments) {
  const Result<int> machine = machineNumber(arguments[0]);
  if (!machine) return machine.error();
  if (auto sound = checkTravelsWhole(arguments[1]); !sound) return sound.error();
  iProjectShare* const share = iProjectShare::instance();
  const LightweightString<wchar_t> user = share ? share->getCurrentUser() : OS().currentUserName();
  const std::string text = composeActionRequest(utf8Text(get_project_cookie().asString()),
                                                utf8Text(user), *machine, arguments[1]);
  const int port = stationPort();
  OSPrivate().networkService().createUDPBroadcaster(port)->broadcast(hostText(text));
  return JsonValue();
}

}  // namespace

void addUserCommands(CommandTable& table) {
  table.add({"users", "", "Shows the known users.", 0, 0, users});
  table.add({"user add", "NAME", "Adds a user to this station's list until it ends.", 1, 1, addUser,
             Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return inQuotes(arguments[0]) +
                      " is on this station's list until it ends; the projects directory's "
                      "userlist.dat holds every station's.";
             }});
  table.add(
      {"active", "", "Shows how many users are at work in the projects directory.", 0, 0, active});
  table.add({"who", "[--all]",
             "Shows the stations at work here, this one first; with --all those, too, that are "
             "gone without goodbye.",
             0, 1, who, Command::Place::eHostThread, showWho});
  table.add(
      {"whoami", "",
       "Shows this station's user, host, machine number and network mode, and the name under which "
       "the user's things are recorded.",
       0, 0, whoAmI});
  table.add({"request", "MACHINE COMMAND",
             "Asks the station with this machine number to run one of its remote commands.", 2, 2,
             request, Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "Machine " + arguments[0] + " was asked to run " + inQuotes(arguments[1]) +
                      ". Nobody answers a request: look there whether it did.";
             }});
}

}  // namespace korvel
