#include "app/commands/ProjectCommands.h"

#include "station/base/Strings.h"
#include "station/project/Projects.h"

namespace {

constexpr const char* kPrivate = "--private";

Result<JsonValue> create(const Arguments& arguments) {
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
  const auto made = Projects::instance().create(names.front(), isPrivate);
  if (!made) return made.error();
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

Result<JsonValue> list(const Arguments&) {
  const auto infos = Projects::instance().list();
  if (!infos) return infos.error();
  JsonValue all = JsonValue::array();
  for (const ProjectInfo& info : *infos) all.append(shown(info));
  return all;
}

Result<JsonValue> enter(const Arguments& arguments) {
  if (auto entered = Projects::instance().enter(arguments[0]); !entered) return entered.error();
  const OpenProject& project = *Projects::instance().current();
  return JsonValue::object({{"cookie", project.cookie.asString().str()},
                            {"name", shownText(project.name)},
                            {"kind", project.isPrivate ? "private" : "shared"}});
}

Result<JsonValue> leave(const Arguments&) {
  if (auto left = Projects::instance().leave(); !left) return left.error();
  return JsonValue();
}

}  // namespace

void addProjectCommands(CommandTable& table) {
  table.add({"project create", "NAME [--private]",
             "Makes a project, shared unless --private is given, and shows its cookie.", 1, 2,
             create});
  table.add({"project list", "",
             "Shows every project: cookie, name, kind, whether it is occupied and by whom.", 0, 0,
             list});
  table.add({"project enter", "P",
             "Opens a project by cookie or name; a private one is locked while it is open.", 1, 1,
             enter});
  table.add({"project leave", "", "Closes the open project and leaves its room.", 0, 0, leave});
}
