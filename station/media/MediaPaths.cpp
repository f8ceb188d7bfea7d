#include "station/media/MediaPaths.h"

#include <algorithm>
#include <optional>

#include "host/os/Files.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

bool hasBackslashes(const std::string& path) { return path.starts_with("\\\\"); }

bool climbs(const std::string& path) { return (path + '/').find("/../") != std::string::npos; }

/// A directory without separators at its end; the root is the empty text.
std::string stemOf(std::string directory) {
  const char* const separators = hasBackslashes(directory) ? "/\\" : "/";
  directory.resize(directory.find_last_not_of(separators) + 1);
  return directory;
}

/// What follows the directory in the path, with the slash before it; nothing when the path does not
/// lie below it.
std::optional<std::string> below(const std::string& path, const std::string& directory) {
  const std::string stem = stemOf(directory);
  if (directory.empty() || !path.starts_with(stem + '/') || climbs(path)) return std::nullopt;
  return path.substr(stem.size());
}

/// The media directory that the path lies below by its text `side`, the longest one; `rest` is what
/// follows it.
const MediaDirectory* longestMatch(const std::string& path, std::string MediaDirectory::*side,
                                   std::string& rest) {
  const MediaDirectory* longest = nullptr;
  for (const MediaDirectory& directory : settings().media) {
    const std::optional<std::string> tail = below(path, mediaKey(directory.*side));
    if (!tail || (longest && tail->size() >= rest.size())) continue;
    longest = &directory;
    rest = *tail;
  }
  return longest;
}

}  // namespace

std::string mediaKey(const std::string& path) {
  std::string key = path;
  if (hasBackslashes(path)) std::replace(key.begin(), key.end(), '\\', '/');
  return key;
}

Cookie materialCookie(const std::string& localPath) {
  const std::string cut = localPath.substr(0, localPath.find('.'));
  return Cookie(utf8Text(stripPath(wideText(cut))).c_str(), true);
}

std::string networkForm(const std::string& localPath) {
  std::string rest;
  const MediaDirectory* const directory = longestMatch(localPath, &MediaDirectory::local, rest);
  if (!directory) return localPath;
  if (hasBackslashes(directory->unc)) std::replace(rest.begin(), rest.end(), '/', '\\');
  return stemOf(directory->unc) + rest;
}

std::string localForm(const std::string& networkPath) {
  std::string rest;
  const MediaDirectory* const directory =
      longestMatch(mediaKey(networkPath), &MediaDirectory::unc, rest);
  return directory ? stemOf(directory->local) + rest : networkPath;
}

}  // namespace korvel
