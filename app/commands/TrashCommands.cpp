#include "app/commands/Commands.h"

#include <charconv>
#include <optional>
#include <utility>

#include "app/commands/Command.h"
#include "station/Station.h"
#include "station/Trash.h"
#include "station/base/Rendering.h"
#include "station/keep/UndoList.h"

namespace korvel {

namespace {

constexpr const char* kOlderThan = "--older-than";
constexpr int kMostDays = 36'500;

Result<JsonValue> list(Station& station, const Arguments&) { return station.trash().list(); }

std::string shownList(Station&, const Arguments&, const JsonValue& deletions) {
  if (deletions.elements().empty()) return "The trash is empty.";
  return renderForPeople(withShortCookies(deletions));
}

Result<JsonValue> restore(Station& station, const Arguments& arguments) {
  return answer(station.trash().restore(arguments[0]));
}

/// The days of "--older-than DAYS"; no number for the whole trash.
Result<std::optional<int>> readDays(const Arguments& arguments) {
  if (arguments.empty()) return std::optional<int>();
  int days = -1;
  if (arguments.size() == 2 && arguments[0] == kOlderThan) {
    const std::string& text = arguments[1];
    const auto [end, problem] = std::from_chars(text.data(), text.data() + text.size(), days);
    if (problem != std::errc{} || end != text.data() + text.size() || days > kMostDays) days = -1;
  }
  if (days >= 0) return std::optional<int>(days);
  return Error{ErrorCode::eUsage,
               "Usage: trash empty [--older-than DAYS], with a whole number of days.",
               {}};
}

Result<JsonValue> empty(Station& station, const Arguments& arguments) {
  const auto days = readDays(arguments);
  if (!days) return days.error();
  return station.trash().empty(*days);
}

std::string shownEmptied(Station&, const Arguments&, const JsonValue& result) {
  std::string text = "Removed for good: " + std::to_string(result["removed"].asLong()) + ".";
  const long kept = result["kept"].asLong();
  if (kept > 0)
    text +=
        " Kept, as others own and deleted them or they cannot be removed: " + std::to_string(kept) +
        ".";
  return text;
}

Result<JsonValue> did(const Result<std::string>& step) {
  if (!step) return step.error();
  return JsonValue(*step);
}

void addSteps(CommandTable& table) {
  table.add({"undo", "",
             "Undoes your last trim, rename, gift, deletion, return to an older version, or change "
             "of a bin, rack or filter in the open project, and says which.",
             0, 0, [](Station& station, const Arguments&) { return did(station.undo().undo()); }});
  table.add({"redo", "", "Does again what was undone last.", 0, 0,
             [](Station& station, const Arguments&) { return did(station.undo().redo()); }});
}

}  // namespace

void addTrashCommands(CommandTable& table) {
  table.add({"trash list", "",
             "Shows what was deleted in the open project, the newest first: whose it was, when and "
             "by whom it was deleted.",
             0, 0, list, Command::Place::eHostThread, shownList});
  table.add({"trash restore", "DELETED",
             "Brings back what was deleted, by name or cookie, and shows its cookie; it belongs to "
             "its owner as before.",
             1, 1, restore});
  Command removal{"trash empty",
                  "[--older-than DAYS]",
                  "Removes for good what you own or deleted and what has no owner, with its "
                  "versions: all of it, or what was deleted more than DAYS days ago.",
                  0,
                  2,
                  empty,
                  Command::Place::eHostThread,
                  shownEmptied};
  removal.question = "What is removed from the trash is gone for everybody. Remove it?";
  table.add(std::move(removal));
  addSteps(table);
}

}  // namespace korvel
