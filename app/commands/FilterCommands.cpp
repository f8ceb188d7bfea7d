#include "app/commands/Commands.h"

#include "station/Station.h"
#include "station/base/Strings.h"
#include "station/containers/Filters.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

Result<Cookie> resolve(Station& station, const std::string& text) {
  return station.projects().resolve(text, station.filters().kind().letters);
}

Result<JsonValue> create(Station& station, const Arguments& arguments) {
  return answer(station.filters().create(arguments[0], arguments[1]));
}

Result<JsonValue> change(Station& station, const Arguments& arguments) {
  const Result<Cookie> filter = resolve(station, arguments[0]);
  if (!filter) return filter.error();
  return answer(station.filters().change(*filter, arguments[1]));
}

Result<JsonValue> destroy(Station& station, const Arguments& arguments) {
  const Result<Cookie> filter = resolve(station, arguments[0]);
  if (!filter) return filter.error();
  return answer(station.filters().discard(*filter));
}

Result<JsonValue> list(Station& station, const Arguments&) {
  if (const auto open = station.projects().requireOpen(); !open) return open.error();
  return station.filters().state();
}

}  // namespace

void addFilterCommands(CommandTable& table) {
  table.add({"filter create", "NAME TEXT",
             "Makes a filter of the open project and shows its cookie.", 2, 2, create});
  table.add({"filter change", "F TEXT", "Gives a filter another text.", 2, 2, change});
  table.add({"filter destroy", "F", "Moves a filter to the trash.", 1, 1, destroy});
  table.add(
      {"filter list", "", "Shows every filter of the open project with its text.", 0, 0, list});
}

}  // namespace korvel
