#include "app/commands/Commands.h"

#include <charconv>
#include <optional>
#include <utility>

#include "station/Station.h"
#include "station/Trash.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditHistory.h"
#include "station/edit/Edits.h"
#include "station/keep/UndoList.h"
#include "station/project/Projects.h"
#include "station/talk/Conversation.h"
#include "station/watch/Happenings.h"

namespace korvel {

namespace {

constexpr const char* kOver = "--over";
constexpr const char* kDiscard = "--discard";

Error wrongOption(const std::string& option, const std::string& usage) {
  return {ErrorCode::eUsage, inQuotes(option) + " is not known here; usage: " + usage, {}};
}

Result<JsonValue> save(Station&, const Cookie& cookie, const Arguments& arguments) {
  using Overwrite = EditFile::Overwrite;
  if (arguments.size() == 1) return answer(EditActions::save(cookie, Overwrite::eRefuse));
  if (arguments[1] != kOver) return wrongOption(arguments[1], "edit save E [--over]");
  return answer(EditActions::save(cookie, Overwrite::eAccept));
}

Result<JsonValue> saveCopy(Station&, const Cookie& cookie, const Arguments& arguments) {
  return answer(EditActions::saveCopy(cookie, arguments[1]));
}

Result<JsonValue> compare(Station&, const Cookie& cookie, const Arguments& arguments) {
  return EditHistory::compare(cookie, arguments.size() > 1 ? arguments[1] : std::string(),
                              arguments.size() > 2 ? arguments[2] : std::string());
}

Result<JsonValue> restoreVersion(Station&, const Cookie& cookie, const Arguments& arguments) {
  using EditActions::Unsaved;
  if (arguments.size() == 2) return answer(EditActions::restore(cookie, arguments[1]));
  if (arguments[2] != kDiscard) return wrongOption(arguments[2], "edit restore E V [--discard]");
  return answer(EditActions::restore(cookie, arguments[1], Unsaved::eDrop));
}

std::string shownDifferences(Station&, const Arguments&, const JsonValue& differences) {
  return differences.elements().empty() ? "Nothing differs." : renderForPeople(differences);
}

Result<JsonValue> recover(Station& station, const Arguments& arguments) {
  if (auto open = station.projects().requireOpen(); !open) return open.error();
  if (arguments.size() > 1 && arguments[1] != kDiscard) {
    return wrongOption(arguments[1], "edit recover E [--discard]");
  }
  if (arguments.size() > 1) {
    const auto discarded = station.unsaved().discardLeft(arguments[0]);
    if (!discarded) return discarded.error();
    return JsonValue();
  }
  return answer(station.unsaved().recover(arguments[0]));
}

void addSaving(CommandTable& table) {
  table.add({"edit save", "E [--over]",
             "Writes an edit or log to the project and announces it. It is refused where another "
             "saved since you opened it, unless --over is given.",
             1, 2, onEdit(save), Command::Place::eHostThread, said("Saved.")});
  table.add({"edit save-copy", "E NAME",
             "Makes a new edit of yours of an edit as it is shown, unsaved changes included.", 2, 2,
             onEdit(saveCopy)});
  table.add({"edit recover", "E [--discard]",
             "Takes up the unsaved changes to an edit or log that a station of yours left when it "
             "ended without saving, or throws them away.",
             1, 2, recover});
  table.add({"edit revert", "E", "Drops your unsaved changes to an edit or log.", 1, 1,
             onEdit([](Station&, const Cookie& cookie, const Arguments&) {
               return answer(EditActions::revert(cookie));
             }),
             Command::Place::eHostThread, said("Your unsaved changes are dropped.")});
}

void addVersions(CommandTable& table) {
  table.add(
      {"edit history", "E",
       "Shows the kept versions of an edit or log, the newest first: when, by whom, how large, "
       "and what changed.",
       1, 1, onEdit([](Station&, const Cookie& cookie, const Arguments&) {
         return EditHistory::list(cookie);
       })});
  table.add({"edit compare", "E [V [W]]",
             "Shows what became of version V in version W; without W in the edit as it is shown, "
             "without V what is not saved.",
             1, 3, onEdit(compare), Command::Place::eHostThread, shownDifferences});
  table.add({"edit restore", "E V [--discard]",
             "Saves an older version as the newest; its owner stays. With --discard your unsaved "
             "changes are dropped, once it is saved.",
             2, 3, onEdit(restoreVersion), Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "Version " + shownText(arguments[1]) +
                      " is saved as the newest; \"undo\" takes it back.";
             }});
}

}  // namespace

void addKeepCommands(CommandTable& table) {
  addSaving(table);
  addVersions(table);
}

// What was deleted, and what was done.

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

/// What happened, by a user or to an edit. A name that stands for neither is told, since nothing
/// would be listed.
Result<JsonValue> happened(Station& station, const Arguments& arguments) {
  if (auto open = station.projects().requireOpen(); !open) return open.error();
  const std::string of = arguments.empty() ? std::string() : arguments[0];
  // An object by its cookie: it may have had another name.
  const auto cookie = station.projects().resolve(of, {});
  if (!of.empty() && cookie) return station.happenings().list(cookie->asString().str());
  JsonValue found = station.happenings().list(of);
  if (of.empty() || !found.elements().empty() || isAtWork(of)) return found;
  return cookie.error();
}

std::string shownHappened(Station&, const Arguments&, const JsonValue& happenings) {
  std::string text;
  for (const JsonValue& each : happenings.elements()) {
    text += (text.empty() ? "" : "\n") + wallText(each["when"].asLong()) + "  " +
            each["words"].asString() + ".";
  }
  return text.empty() ? "Nothing happened yet." : text;
}

Result<JsonValue> did(const Result<std::string>& step) {
  if (!step) return step.error();
  return JsonValue(*step);
}

void addSteps(CommandTable& table) {
  table.add({"happened", "[USER|E]",
             "Shows who did what in the open project, the latest first: all of it, or what a user "
             "did, or what became of an edit.",
             0, 1, happened, Command::Place::eHostThread, shownHappened});
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
