#pragma once

#include <string>

#include "host/base/Cookie.h"

namespace korvel {

// Texts of media paths, UTF-8. Host thread.

/// The same for every way to write one network path: a text that begins with two backslashes has
/// its backslashes turned into slashes; anything else is left as it is (a file's name may hold a
/// backslash).
std::string mediaKey(const std::string& path);

/// The cookie of the material in a local file, as every station makes it from a path that it
/// receives: the path's text is cut at its first dot, wherever that is, and the directories are
/// stripped. Files that differ behind that dot alone share a cookie, and a dot in the name of a
/// directory cuts there: required, since other stations make their cookies so.
Cookie materialCookie(const std::string& localPath);

/// The two conversions of DiskManager, by settings().media: the longest directory that holds the
/// path, on whole components. A path that climbs out of it ("..") is below none.
std::string networkForm(const std::string& localPath);
std::string localForm(const std::string& networkPath);

}  // namespace korvel
