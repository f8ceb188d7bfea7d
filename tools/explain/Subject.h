#pragma once

#include <string>

#include "host/base/Cookie.h"
#include "station/base/Result.h"

namespace korvel {

/// What a path of a command line means.
struct Subject {
  enum class Kind { eProject, eRoom, eEdit, eLog, eFile };

  Kind kind = Kind::eProject;
  std::string base;  ///< the projects directory
  Cookie project;
  std::string name;  ///< of the room; the cookie's text of an edit or log; a file's in the project
  std::string path;  ///< the project's folder, or the file: a room's lock file, an edit's file
};

/// The projects directory that a path lies in: the folder above the one that is called like a
/// project, else the folder above the last name (`Feature`) or the last two (`Feature/Sound`).
/// `path` is absolute.
std::string projectsDirectoryOf(const std::string& path);

/// Finds the project, room, edit, log or file that a path means: its folder or file, its lock file
/// or information file, or a path made of names. settings() name the projects directory. The
/// failure says what was looked for.
Result<Subject> subjectAt(const std::string& path);

}  // namespace korvel
