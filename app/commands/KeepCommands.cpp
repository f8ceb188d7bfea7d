#include "app/commands/Commands.h"

#include "station/Station.h"
#include "station/base/Rendering.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditHistory.h"
#include "station/edit/Edits.h"
#include "station/project/Projects.h"

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
  table.add({"edit restore", "E V", "Saves an older version as the newest; its owner stays.", 2, 2,
             onEdit([](Station&, const Cookie& cookie, const Arguments& arguments) {
               return answer(EditActions::restore(cookie, arguments[1]));
             }),
             Command::Place::eHostThread,
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

}  // namespace korvel
