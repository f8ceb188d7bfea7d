#include "app/commands/Commands.h"

#include <filesystem>
#include <map>
#include <utility>
#include <vector>

#include "station/Station.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/containers/Containers.h"
#include "station/edit/Edits.h"
#include "station/media/MediaCache.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

using Manager = CookieLists& (*)(Station&);

constexpr const char* kTrashed = "Moved to the trash; \"undo\" takes it back.";

CookieLists& bins(Station& station) { return station.bins(); }
CookieLists& racks(Station& station) { return station.racks(); }

Result<Cookie> resolve(const Projects& projects, const CookieLists& manager,
                       const std::string& text) {
  return projects.resolve(text, manager.kind().letters);
}

/// The objects named by the words behind the container's name.
Result<CookieVec> resolveObjects(const Projects& projects, const Arguments& arguments) {
  CookieVec objects;
  for (std::size_t index = 1; index < arguments.size(); ++index) {
    const Result<Cookie> object = projects.resolve(arguments[index], "");
    if (!object) return object.error();
    objects.push_back(*object);
  }
  return objects;
}

/// The same for objects that are in a container but may no longer be in the project: a cookie needs
/// no object.
Result<CookieVec> resolveHeld(const Projects& projects, const Arguments& arguments) {
  CookieVec objects;
  for (std::size_t index = 1; index < arguments.size(); ++index) {
    const Cookie spelled(arguments[index].c_str(), false);
    const Result<Cookie> object =
        spelled.isNull() ? projects.resolve(arguments[index], "") : spelled;
    if (!object) return object.error();
    objects.push_back(*object);
  }
  return objects;
}

Result<JsonValue> create(const Projects&, CookieLists& manager, const Arguments& arguments) {
  return answer(manager.create(arguments[0]));
}

Result<JsonValue> list(const Projects& projects, CookieLists& manager, const Arguments&) {
  if (const auto open = projects.requireOpen(); !open) return open.error();
  std::vector<NamedObject> objects;
  manager.listObjects(objects);
  JsonValue all = JsonValue::array();
  for (const NamedObject& object : objects) {
    all.append(JsonValue::object({{"cookie", utf8Text(object.cookie.asString())},
                                  {"name", shownText(object.name)},
                                  {"objects", manager.contents(object.cookie).size()}}));
  }
  return all;
}

Result<JsonValue> show(const Projects& projects, CookieLists& manager, const Arguments& arguments) {
  const Result<Cookie> container = resolve(projects, manager, arguments[0]);
  if (!container) return container.error();
  return manager.shown(*manager.find(*container));
}

Result<JsonValue> changed(const CookieLists& manager, const Cookie& container, const char* did,
                          const Result<std::size_t>& count) {
  if (!count) return count.error();
  return JsonValue::object({{"cookie", utf8Text(container.asString())},
                            {did, *count},
                            {"objects", manager.contents(container).size()}});
}

Result<JsonValue> add(const Projects& projects, CookieLists& manager, const Arguments& arguments) {
  const Result<Cookie> container = resolve(projects, manager, arguments[0]);
  if (!container) return container.error();
  const Result<CookieVec> objects = resolveObjects(projects, arguments);
  if (!objects) return objects.error();
  return changed(manager, *container, "added", manager.add(*container, *objects));
}

Result<JsonValue> remove(const Projects& projects, CookieLists& manager,
                         const Arguments& arguments) {
  const Result<Cookie> container = resolve(projects, manager, arguments[0]);
  if (!container) return container.error();
  const Result<CookieVec> objects = resolveHeld(projects, arguments);
  if (!objects) return objects.error();
  return changed(manager, *container, "removed", manager.remove(*container, *objects));
}

Result<JsonValue> destroy(const Projects& projects, CookieLists& manager,
                          const Arguments& arguments) {
  const Result<Cookie> container = resolve(projects, manager, arguments[0]);
  if (!container) return container.error();
  return answer(manager.discard(*container));
}

/// A container with the names of what is in it. An object that is no longer in the project has its
/// cookie alone.
std::string shownWithNames(Station& station, const JsonValue& container) {
  std::vector<NamedObject> known;
  station.edits().listObjects(known);
  for (const CookieLists* each :
       {static_cast<CookieLists*>(&station.bins()), static_cast<CookieLists*>(&station.racks())}) {
    each->listObjects(known);
  }
  std::map<std::string, std::string> names;
  for (const NamedObject& each : known) names[each.cookie.asString().str()] = each.name;
  JsonValue rows = JsonValue::array();
  for (const auto& [key, value] : container.members()) {
    for (const JsonValue& cookie : value.elements()) {
      rows.append(JsonValue::object(
          {{"cookie", cookie.asString()}, {"name", shownText(names[cookie.asString()])}}));
    }
  }
  const std::string title = shownText(container["name"].asString());
  if (rows.elements().empty()) return title + " is empty.";
  return title + ":\n" + renderForPeople(withShortCookies(rows));
}

/// Adds one family; `word` is "bin" or "rack".
void addFamily(CommandTable& table, const std::string& word, Manager manager) {
  using Run = Result<JsonValue> (*)(const Projects&, CookieLists&, const Arguments&);
  const auto command = [&](const char* verb, const char* usage, const std::string& help,
                           std::size_t least, std::size_t most, Run run) {
    Command added{word + ' ' + verb,
                  usage,
                  help,
                  least,
                  most,
                  [manager, run](Station& station, const Arguments& arguments) {
                    return run(station.projects(), manager(station), arguments);
                  }};
    if (run == destroy) added.show = said(kTrashed);
    if (run == show) {
      added.show = [](Station& station, const Arguments&, const JsonValue& container) {
        return shownWithNames(station, container);
      };
    }
    table.add(std::move(added));
  };
  constexpr std::size_t kAny = Command::kAnyNumber;
  command("create", "NAME", "Makes an empty " + word + " and shows its cookie.", 1, 1, create);
  command("list", "", "Shows every " + word + " of the open project.", 0, 0, list);
  command("show", "X", "Shows one " + word + " and what is in it.", 1, 1, show);
  command("add", "X COOKIE...", "Puts objects of the project into a " + word + ".", 2, kAny, add);
  command("remove", "X COOKIE...", "Takes objects out of a " + word + ".", 2, kAny, remove);
  command("destroy", "X", "Moves a " + word + " to the trash; what was in it stays in the project.",
          1, 1, destroy);
}

}  // namespace

void addContainerCommands(CommandTable& table) {
  addFamily(table, "bin", bins);
  addFamily(table, "rack", racks);
}

// Filters: a name and a text, without objects in them.

namespace {

Result<Cookie> resolveFilter(Station& station, const std::string& text) {
  return station.projects().resolve(text, station.filters().kind().letters);
}

Result<JsonValue> createFilter(Station& station, const Arguments& arguments) {
  return answer(station.filters().create(arguments[0], arguments[1]));
}

Result<JsonValue> changeFilter(Station& station, const Arguments& arguments) {
  const Result<Cookie> filter = resolveFilter(station, arguments[0]);
  if (!filter) return filter.error();
  return answer(station.filters().change(*filter, arguments[1]));
}

Result<JsonValue> destroyFilter(Station& station, const Arguments& arguments) {
  const Result<Cookie> filter = resolveFilter(station, arguments[0]);
  if (!filter) return filter.error();
  return answer(station.filters().discard(*filter));
}

Result<JsonValue> listFilters(Station& station, const Arguments&) {
  if (const auto open = station.projects().requireOpen(); !open) return open.error();
  return station.filters().state();
}

}  // namespace

void addFilterCommands(CommandTable& table) {
  table.add({"filter create", "NAME TEXT",
             "Makes a filter of the open project and shows its cookie.", 2, 2, createFilter});
  table.add({"filter change", "F TEXT", "Gives a filter another text.", 2, 2, changeFilter,
             Command::Place::eHostThread,
             [](Station&, const Arguments& arguments, const JsonValue&) {
               return "It finds " + inQuotes(arguments[1]) + " now; \"undo\" takes it back.";
             }});
  table.add({"filter destroy", "F", "Moves a filter to the trash.", 1, 1, destroyFilter,
             Command::Place::eHostThread, said(kTrashed)});
  table.add({"filter list", "", "Shows every filter of the open project with its text.", 0, 0,
             listFilters});
}

// Media: files beside the project, known by their paths.

namespace {

constexpr const char* kProxy = "--proxy";

/// Media are known by absolute paths. A typed path is relative to the folder in which the station
/// was started.
std::string absolutePath(const std::string& path) {
  std::error_code ignored;
  const std::filesystem::path whole = std::filesystem::absolute(path, ignored);
  return ignored ? path : whole.lexically_normal().string();
}

Result<JsonValue> addWithProxy(MediaCache& cache, const std::string& file,
                               const std::string& proxy) {
  if (!cache.knows(file)) {
    const Result<Cookie> added = cache.addMedia(file);
    if (!added) return added.error();
  }
  return answer(cache.addProxy(file, proxy));
}

Result<JsonValue> addMedia(Station& station, const Arguments& arguments) {
  if (arguments.size() == 1) {
    return answer(station.media().addMedia(absolutePath(arguments[0])));
  }
  const std::size_t option = arguments[0] == kProxy ? 0 : 1;
  if (arguments.size() != 3 || arguments[option] != kProxy) {
    return Error{ErrorCode::eUsage, "media add takes FILE [--proxy FILE].", {}};
  }
  const std::string& file = arguments[option == 0 ? 2 : 0];
  return addWithProxy(station.media(), absolutePath(file), absolutePath(arguments[option + 1]));
}

Result<JsonValue> removeMedia(Station& station, const Arguments& arguments) {
  if (const auto open = station.projects().requireOpen(); !open) return open.error();
  MediaCache& cache = station.media();
  const std::string path = absolutePath(arguments[0]);
  // Otherwise the word may be a network form, a name or a cookie: none of them is a path here.
  const auto removed = cache.removeMedia(cache.knows(path) ? path : arguments[0]);
  if (!removed) return removed.error();
  const MediaFile& file = removed->front();
  return JsonValue::object({{"cookie", utf8Text(file.cookie.asString())},
                            {"name", mediaName(file.path)},
                            {"file", file.path},
                            {"proxies", removed->size() - 1}});
}

std::string shownRemoval(Station&, const Arguments&, const JsonValue& removed) {
  const long proxies = removed["proxies"].asLong();
  const std::string along = proxies == 0   ? ""
                            : proxies == 1 ? " with its proxy"
                                           : " with its " + std::to_string(proxies) + " proxies";
  return "Took " + inQuotes(removed["name"].asString()) + along +
         " out of the project; the file itself stays.";
}

Result<JsonValue> listMedia(Station& station, const Arguments&) {
  if (const auto open = station.projects().requireOpen(); !open) return open.error();
  return station.media().look();
}

}  // namespace

void addMediaCommands(CommandTable& table) {
  table.add({"media add", "FILE [--proxy FILE]",
             "Adds a media file to the project, and shows its cookie; with --proxy also its proxy.",
             1, 3, addMedia});
  table.add({"media remove", "MEDIA",
             "Takes a media file and its proxies out of the project; the file itself stays.", 1, 1,
             removeMedia, Command::Place::eHostThread, shownRemoval});
  table.add({"media list", "",
             "Shows the project's media: where each file is, whether it is there and how large. "
             "\"looked_at\": false where its folder does not answer, or a stranger named it.",
             0, 0, listMedia});
}

}  // namespace korvel
