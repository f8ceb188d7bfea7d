#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Cookie.h"
#include "station/project/Rooms.h"

namespace korvel {

/// A project's or room's lock, as a look at it shows.
struct LockEntry {
  std::string path;       ///< of the lock file, from the projects directory: "P0001/Lock"
  std::string project;    ///< the project's name; its cookie where the name cannot be read
  std::string room;       ///< the room's name; empty for the project's own lock
  bool isShared = false;  ///< whether it is a shared project's own, which nobody ever takes
  LockState state = LockState::eFree;
  std::string holder;       ///< bytes of the information file; empty where it cannot be read
  bool hasOldName = false;  ///< its information file is of an earlier holder, so `holder` is empty
  std::int64_t since = 0;   ///< when it was taken, in seconds since 1970; 0 for a free one
};

/// Every project and room of the projects directory that settings() name, projects by cookie, each
/// followed by its rooms by name. Nothing is taken or changed by looking. `take` gets one at a
/// time.
Result<void> forEachLock(const std::function<void(const LockEntry&)>& take);

/// Sorts by the projects' names, each followed by its rooms by name.
void sortByName(std::vector<LockEntry>& locks);

/// Success for a folder that is empty or holds anything that stations leave in a projects
/// directory. Else what it may be: a project's own folder, or one that was named by mistake.
Result<void> expectProjects(const std::string& directory);

/// The locks that a word on a command line means: a path as LockEntry has it (with or without the
/// projects directory before it), a project's cookie or name, or a room's name. Empty for none.
Result<std::vector<LockEntry>> locksNamed(const std::string& word);

/// Looks again at a lock: its state, holder and time.
void lookAgain(LockEntry& lock);

/// The whole path of a lock's file; its information file has ".inf" appended.
std::string lockFileOf(const LockEntry& lock);

/// "free", "held", "left behind" or "unknown".
std::string stateName(LockState state);

/// The text of userlist.dat as stations read it: lines of ASCII, upper-cased, each name once. A
/// plain value.
struct UserList {
  std::vector<std::string> users;

  /// What makes a line a name that no station has, each with the line's number: a byte-order mark,
  /// blanks at its ends, letters that are not ASCII, nothing at all, or "<All>".
  std::vector<std::string> problems;

  [[nodiscard]] bool holds(const std::string& user) const;
};

/// Reads the bytes of a userlist.dat.
UserList readUserList(std::string_view bytes);

}  // namespace korvel
