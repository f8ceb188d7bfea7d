#include "app/commands/Commands.h"

#include <filesystem>

#include "station/Station.h"
#include "station/base/Strings.h"
#include "station/media/MediaCache.h"
#include "station/project/Projects.h"

namespace korvel {

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

Result<JsonValue> add(Station& station, const Arguments& arguments) {
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
  return answer(cache.removeMedia(cache.knows(path) ? path : arguments[0]));
}

Result<JsonValue> list(Station& station, const Arguments&) {
  if (const auto open = station.projects().requireOpen(); !open) return open.error();
  return station.media().look();
}

}  // namespace

void addMediaCommands(CommandTable& table) {
  table.add({"media add", "FILE [--proxy FILE]",
             "Adds a media file to the project, and shows its cookie; with --proxy also its proxy.",
             1, 3, add});
  table.add({"media remove", "FILE",
             "Takes a media file and its proxies out of the project; the file itself stays.", 1, 1,
             removeMedia});
  table.add({"media list", "",
             "Shows the project's media: where each file is, whether it is there, its size.", 0, 0,
             list});
}

}  // namespace korvel
