#include "app/commands/Commands.h"

#include "station/Station.h"
#include "station/base/Strings.h"
#include "station/project/Rooms.h"

namespace korvel {

namespace {

Result<JsonValue> create(Station& station, const Arguments& arguments) {
  return answer(station.rooms().create(arguments[0]));
}

Result<JsonValue> list(Station& station, const Arguments&) {
  if (const auto rooms = station.rooms().list(); !rooms) return rooms.error();
  return station.rooms().state();
}

Result<JsonValue> enter(Station& station, const Arguments& arguments) {
  return answer(station.rooms().goInto(arguments[0]));
}

Result<JsonValue> leave(Station& station, const Arguments&) {
  return answer(station.rooms().goOut());
}

std::string shownName(const Arguments& arguments) { return inQuotes(arguments[0]) + "."; }

}  // namespace

void addRoomCommands(CommandTable& table) {
  table.add({"room create", "R", "Makes a room in the open shared project.", 1, 1, create,
             Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "There is now a room " + shownName(arguments);
             }});
  table.add({"room list", "",
             "Shows the rooms: free, held and by whom, or left behind by a station that is gone.",
             0, 0, list});
  table.add({"room enter", "R", "Goes into a room; the one you are in is given up for it.", 1, 1,
             enter, Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "You are in the room " + shownName(arguments);
             }});
  table.add(
      {"room leave", "", "Leaves the room you are in.", 0, 0, leave, Command::Place::eHostThread,
       [](Station&, const Arguments&, const JsonValue&) { return std::string("Left the room."); }});
}

}  // namespace korvel
