#include "app/commands/Commands.h"

#include <utility>

#include "app/commands/Command.h"
#include "host/base/Log.h"
#include "station/Station.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"

namespace korvel {

namespace {

constexpr const char* kPrivate = "--private";

/// Warns where the name of a new project is no longer unique: names stand for cookies only then.
void warnOfNamesakes(const std::string& name, const std::vector<Cookie>& namesakes) {
  if (namesakes.empty()) return;
  std::string cookies;
  for (const Cookie& each : namesakes) cookies += " " + each.asString().str();
  LogBoth(
      "There was a project called \"%s\" already:%s. The name alone no longer says which one is "
      "meant; enter either by its cookie.\n",
      shownText(name), cookies);
}

std::string doubtAboutNew(Station& station, const Arguments& arguments) {
  for (const std::string& name : arguments) {
    if (name == kPrivate || station.projects().named(name).empty()) continue;
    return "There is a project called " + inQuotes(name) + " already. Make another?";
  }
  return {};
}

Result<JsonValue> create(Station& station, const Arguments& arguments) {
  std::vector<std::string> names;
  bool isPrivate = false;
  for (const std::string& argument : arguments) {
    if (argument == kPrivate) {
      isPrivate = true;
    } else {
      names.push_back(argument);
    }
  }
  if (names.size() != 1) {
    return Error{ErrorCode::eUsage,
                 "One name is needed: project create NAME [--private]; a name with blanks needs "
                 "quotes.",
                 {}};
  }
  // Asked before, so that the new project is not among them.
  const auto namesakes = station.projects().named(names.front());
  const auto made = station.projects().create(names.front(), isPrivate);
  if (!made) return made.error();
  warnOfNamesakes(names.front(), namesakes);
  return JsonValue(made->asString().str());
}

JsonValue shown(const ProjectInfo& info) {
  const char* kind = info.isPrivate ? "private" : "shared";
  return JsonValue::object({{"cookie", info.cookie.asString().str()},
                            {"name", shownText(info.name)},
                            {"kind", info.problem.empty() ? kind : "unreadable"},
                            {"occupied", info.isOccupied},
                            {"lock", lockStateText(info.lock)},
                            {"owner", info.lockOwner},
                            {"problem", info.problem}});
}

Result<JsonValue> list(Station& station, const Arguments&) {
  const auto infos = station.projects().list();
  if (!infos) return infos.error();
  JsonValue all = JsonValue::array();
  for (const ProjectInfo& info : *infos) all.append(shown(info));
  return all;
}

/// Nobody takes the lock of a shared project, so "free" would be misleading while others are in it.
std::string shownList(Station&, const Arguments&, const JsonValue& projects) {
  JsonValue rows = projects;
  for (JsonValue& row : rows.elements()) {
    if (row["kind"].asString() != "shared" || row["lock"].asString() != "free") continue;
    row.set("occupied", JsonValue());
    row.set("lock", "open to all");
  }
  return renderForPeople(withShortCookies(rows));
}

bool isOpenNow(Station& station, const std::string& nameOrCookie) {
  const OpenProject* const open = station.projects().current();
  return open && (nameOrCookie == open->name || nameOrCookie == open->cookie.asString().str());
}

/// Settles what is unsaved, and leaves the open project by `leave`.
Result<void> leaveBy(UnsavedEdits& unsaved, Leaving leaving,
                     const std::function<Result<void>()>& leave) {
  if (auto settled = unsaved.prepareToLeave(leaving); !settled) return settled;
  auto left = leave();
  // The project stays open: an agreed discard of changes must not happen at the next leaving.
  if (!left) unsaved.stay();
  return left;
}

Result<JsonValue> enter(Station& station, const Arguments& arguments) {
  Arguments words = arguments;
  const auto leaving = takeLeaving(words);
  if (!leaving) return leaving.error();
  if (words.size() != 1) {
    return Error{ErrorCode::eUsage, "Usage: project enter P [--save|--discard]", {}};
  }
  const auto go = [&] { return station.projects().enter(words[0]); };
  // Entering the open project leaves nothing, so nothing unsaved is asked for.
  if (auto entered = isOpenNow(station, words[0]) ? go() : leaveBy(station.unsaved(), *leaving, go);
      !entered) {
    return entered.error();
  }
  const OpenProject& project = *station.projects().current();
  return JsonValue::object({{"cookie", project.cookie.asString().str()},
                            {"name", shownText(project.name)},
                            {"kind", project.isPrivate ? "private" : "shared"}});
}

Result<JsonValue> leave(Station& station, const Arguments& arguments) {
  Arguments words = arguments;
  const auto leaving = takeLeaving(words);
  if (!leaving) return leaving.error();
  if (!words.empty()) {
    return Error{ErrorCode::eUsage, "Usage: project leave [--save|--discard]", {}};
  }
  const auto left =
      leaveBy(station.unsaved(), *leaving, [&] { return station.projects().leave(); });
  if (!left) return left.error();
  return JsonValue();
}

}  // namespace

void addProjectCommands(CommandTable& table) {
  Command make{"project create",
               "NAME [--private]",
               "Makes a project, shared unless --private is given, and shows its cookie.",
               1,
               2,
               create};
  make.doubt = doubtAboutNew;
  table.add(std::move(make));
  table.add({"project list", "",
             "Shows every project: cookie, name, kind, whether it is occupied and by whom.", 0, 0,
             list, Command::Place::eHostThread, shownList});
  table.add({"project enter",
             "P [--save|--discard]",
             "Opens a project by cookie or name and leaves the open one; a private one is locked "
             "while it is open.",
             1,
             2,
             enter,
             Command::Place::eHostThread,
             {},
             leavingChoices()});
  table.add(
      {"project leave", "[--save|--discard]",
       "Closes the open project and leaves its room; refused with unsaved changes unless they "
       "are saved or discarded.",
       0, 1, leave, Command::Place::eHostThread,
       [](Station&, const Arguments&, const JsonValue&) {
         return std::string("Left the project; none is open now.");
       },
       leavingChoices()});
}

// The rooms of a shared project.

namespace {

Result<JsonValue> createRoom(Station& station, const Arguments& arguments) {
  return answer(station.rooms().create(arguments[0]));
}

Result<JsonValue> listRooms(Station& station, const Arguments&) {
  if (const auto rooms = station.rooms().list(); !rooms) return rooms.error();
  return station.rooms().state();
}

Result<JsonValue> enterRoom(Station& station, const Arguments& arguments) {
  return answer(station.rooms().goInto(arguments[0]));
}

Result<JsonValue> leaveRoom(Station& station, const Arguments&) {
  return answer(station.rooms().goOut());
}

std::string shownName(const Arguments& arguments) { return inQuotes(arguments[0]) + "."; }

}  // namespace

void addRoomCommands(CommandTable& table) {
  table.add({"room create", "R", "Makes a room in the open shared project.", 1, 1, createRoom,
             Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "There is now a room " + shownName(arguments);
             }});
  table.add({"room list", "",
             "Shows the rooms: free, held and by whom, or left behind by a station that is gone.",
             0, 0, listRooms});
  table.add({"room enter", "R", "Goes into a room; the one you are in is given up for it.", 1, 1,
             enterRoom, Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "You are in the room " + shownName(arguments);
             }});
  table.add({"room leave", "", "Leaves the room you are in.", 0, 0, leaveRoom,
             Command::Place::eHostThread, [](Station&, const Arguments&, const JsonValue&) {
               return std::string("Left the room.");
             }});
}

}  // namespace korvel
