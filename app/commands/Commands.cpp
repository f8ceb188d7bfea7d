#include "app/commands/Commands.h"

#include <utility>

#include "station/Station.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

constexpr const char* kSave = "--save";
constexpr const char* kDiscard = "--discard";

}  // namespace

void addCommands(CommandTable& table, const ConsoleServices& services) {
  addConsoleCommands(table, services);
  addProjectCommands(table);
  addRoomCommands(table);
  addEditCommands(table);
  addKeepCommands(table);
  addTrashCommands(table);
  addContainerCommands(table);
  addFilterCommands(table);
  addMediaCommands(table);
  addTalkCommands(table);
  addUserCommands(table);
}

Result<JsonValue> answer(const Result<void>& done) {
  if (!done) return done.error();
  return JsonValue();
}

Result<JsonValue> answer(const Result<Cookie>& made) {
  if (!made) return made.error();
  return JsonValue(utf8Text(made->asString()));
}

std::function<std::string(Station&, const Arguments&, const JsonValue&)> said(
    const std::string& words) {
  return [words](Station&, const Arguments&, const JsonValue&) { return words; };
}

std::function<Result<JsonValue>(Station&, const Arguments&)> onEdit(EditAction action) {
  return [action = std::move(action)](Station& station,
                                      const Arguments& arguments) -> Result<JsonValue> {
    const auto cookie = station.projects().resolve(arguments[0], Edits::kKinds);
    if (!cookie) return cookie.error();
    return action(station, *cookie, arguments);
  };
}

Result<Leaving> takeLeaving(Arguments& words) {
  const bool saves = std::erase(words, kSave) > 0;
  const bool discards = std::erase(words, kDiscard) > 0;
  if (saves && discards) {
    return Error{ErrorCode::eUsage, "Give --save or --discard, not both.", {}};
  }
  if (saves) return Leaving::eSave;
  return discards ? Leaving::eDiscard : Leaving::eRefuse;
}

std::vector<Choice> leavingChoices() {
  return {{ErrorCode::eUnsaved, "save", kSave}, {ErrorCode::eUnsaved, "discard", kDiscard}};
}

}  // namespace korvel
