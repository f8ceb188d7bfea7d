#include "station/base/Strings.h"
#include "station/base/TextMember.h"
#include "station/watch/StationNote.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

JsonValue rowOf(const FoundStation& station) {
  const StationNote& note = station.note;
  return JsonValue::object({{"user", note.user},
                            {"host", note.host},
                            {"state", station.stateText()},
                            {"project", note.projectName},
                            {"room", note.room},
                            {"open", note.open.size()},
                            {"unsaved", note.unsaved.size()},
                            {"since", note.since},
                            {"last change", note.written}});
}

JsonValue objectOf(const FoundStation& station) {
  JsonValue object = shownStation(station);
  object.set("id", shownText(station.note.id));
  return object;
}

ToolStatus showStations(const ShareRequest& request) {
  const std::string directory = directoryOf(request.path);
  const ToolHost host(directory);
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  const auto stations = listStations(directory);
  if (!stations) return toolProblem(eToolUsage, stations.error().message);
  ToolStatus status = eToolDone;
  JsonValue all = JsonValue::array();
  for (const FoundStation& each : *stations) {
    if (request.asJson) all.append(objectOf(each));
    if (!request.asJson && each.problem.empty()) all.append(rowOf(each));
    if (each.problem.empty()) continue;
    status = eToolFinding;
    if (!request.asJson) toolProblem(status, each.problem);
  }
  if (request.asJson) {
    printJson(all);
  } else if (all.elements().empty()) {
    printForPeople("no stations: none has told of itself in " + directory);
  } else {
    printForPeople(all);
  }
  return status;
}

}  // namespace

void addWhoCommand(CommandLine& line) {
  addShareCommand<ShareRequest>(
      line,
      {"who", "Show the stations: who is where, with what open, alive or gone without goodbye",
       [](CommandOptions& options, ShareRequest& request) {
         options.word("DIR", request.path, "The projects directory");
         options.flag("--json", request.asJson, "One JSON array instead of a table");
         options.footer("Looking takes no lock. Exit status: 0; 1 when a note cannot be read.");
       },
       showStations});
}

}  // namespace korvel
