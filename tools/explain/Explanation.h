#pragma once

#include <cstdint>
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

/// Why something can or cannot be taken or changed.
struct Explanation {
  std::string object;  ///< "Project \"Feature\""
  std::string state;   ///< "free", "held", "left behind", "owned", "no owner", "missing", "broken",
                       ///< "no rights", "read-only", "no locks", "stale" or "full"
  std::string cause;   ///< a clause: "is held"
  std::string by;      ///< whose doing it is: a user's name; empty where nobody's
  std::string where;   ///< where the holder runs, as far as this machine can tell
  std::int64_t since = 0;  ///< in seconds since 1970; 0 where nothing is going on
  std::string advice;      ///< what to do; empty where nothing stands in the way

  [[nodiscard]] bool isFree() const { return state == "free"; }
};

/// Looks at everything that can stand in the way of a station on `host`, the nearest cause first.
/// Takes and changes nothing.
Explanation explain(const Subject& subject, const std::string& host);

/// The whole in one sentence; no control characters.
std::string sentenceOf(const Explanation& explanation);

}  // namespace korvel
