#include "app/commands/RoomCommands.h"

#include "station/base/Strings.h"
#include "station/project/Rooms.h"

namespace korvel {

namespace {

Result<JsonValue> answer(const Result<void>& done) {
  if (!done) return done.error();
  return JsonValue();
}

Result<JsonValue> create(const Arguments& arguments) {
  return answer(Rooms::instance().create(arguments[0]));
}

Result<JsonValue> list(const Arguments&) {
  if (const auto rooms = Rooms::instance().list(); !rooms) return rooms.error();
  return Rooms::instance().state();
}

Result<JsonValue> enter(const Arguments& arguments) {
  return answer(Rooms::instance().goInto(arguments[0]));
}

Result<JsonValue> leave(const Arguments&) { return answer(Rooms::instance().goOut()); }

std::string shownName(const Arguments& arguments) { return "\"" + shownText(arguments[0]) + "\"."; }

}  // namespace

void addRoomCommands(CommandTable& table) {
  table.add({"room create", "R", "Makes a room in the open shared project.", 1, 1, create,
             Command::Place::eHostThread, [](const Arguments& arguments, const JsonValue&) {
               return "There is now a room " + shownName(arguments);
             }});
  table.add({"room list", "",
             "Shows the rooms: free, taken and by whom, or left behind by a station that is gone.",
             0, 0, list});
  table.add({"room enter", "R", "Goes into a room; the one you are in is given up for it.", 1, 1,
             enter, Command::Place::eHostThread, [](const Arguments& arguments, const JsonValue&) {
               return "You are in the room " + shownName(arguments);
             }});
  table.add(
      {"room leave", "", "Leaves the room you are in.", 0, 0, leave, Command::Place::eHostThread,
       [](const Arguments&, const JsonValue&) { return std::string("You are in no room."); }});
}

}  // namespace korvel
