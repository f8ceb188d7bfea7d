#include "tools/locks/LockList.h"

#include <sys/stat.h>

#include <algorithm>
#include <iostream>
#include <set>
#include <tuple>

#include "host/os/OS.h"
#include "station/base/Json.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/ProjectFolder.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

std::string readHolder(const std::string& informationFile) {
  const Kv::Ptr<iFile> file = OS().fileManager().openFile(
      wideText(informationFile), eFileRead, eFileOpenExisting, eFileShareRead, eFileNoFlags);
  if (!file || !file->isOpen()) return {};
  std::string name(kLongestUserName, '\0');
  name.resize(file->read(name.data(), name.size()));
  return name.substr(0, name.find('\0'));
}

std::int64_t timeOf(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mtime : 0;
}

/// Whether an information file is older than the lock. A holder writes it after taking the lock
/// file. Where it may not overwrite that of an earlier holder, the old name stays.
bool isOlder(const std::string& information, const std::string& lockFile) {
  constexpr std::int64_t kClockTicks = 2;  // seconds that a file system may round by
  const std::int64_t written = timeOf(information);
  return written != 0 && written + kClockTicks < timeOf(lockFile);
}

/// The file names of a project's rooms: those that have a record or a lock file.
std::set<std::string> roomsOf(const std::string& folder) {
  std::set<std::string> rooms;
  const auto names = listFresh(folder + "/" + std::string(kRoomsFolder));
  if (!names) return rooms;
  for (const std::string& name : *names) {
    for (const std::string_view ending : {kLockEnding, kRecordEnding}) {
      if (name.ends_with(ending)) rooms.insert(name.substr(0, name.size() - ending.size()));
    }
  }
  std::erase_if(rooms, [](const std::string& room) { return roomNameOf(room).empty(); });
  return rooms;
}

void takeLocksOf(const Cookie& project, const Result<ProjectRecord>& record,
                 const std::function<void(const LockEntry&)>& take) {
  const std::string cookie = project.asString().str();
  LockEntry lock;
  lock.project = record ? record->name : cookie;
  lock.path = cookie + "/" + std::string(kProjectLock);
  lock.isShared = record && !record->isPrivate;
  lookAgain(lock);
  take(lock);
  shareAnswered();
  for (const std::string& room : roomsOf(projectFolder(project))) {
    LockEntry entry;
    entry.path = cookie + "/rooms/" + room + std::string(kLockEnding);
    entry.project = lock.project;
    entry.room = roomNameOf(room);
    lookAgain(entry);
    take(entry);
    shareAnswered();
  }
}

bool isNamed(const LockEntry& lock, const std::string& word) {
  if (lock.path == word) return true;
  if (!lock.room.empty()) return lock.room == word;
  return lock.project == word || lock.path == word + "/" + std::string(kProjectLock);
}

}  // namespace

Result<void> forEachLock(const std::function<void(const LockEntry&)>& take) {
  return ProjectRecords().forEach(
      [&take](const Cookie& project, const auto& record) { takeLocksOf(project, record, take); },
      {kProjectLock, kRoomsFolder});
}

void sortByName(std::vector<LockEntry>& locks) {
  std::ranges::stable_sort(locks, [](const LockEntry& one, const LockEntry& other) {
    const auto keyOf = [](const LockEntry& lock) {
      // The cookie keeps the rooms of two projects with the same name apart.
      return std::tuple(lock.project, lock.path.substr(0, lock.path.find('/')), lock.room);
    };
    return keyOf(one) < keyOf(other);
  });
}

Result<void> expectProjects(const std::string& directory) {
  const auto names = listFresh(directory);
  if (!names) return names.error();
  const auto isKnown = [](const std::string& name) {
    return name == "userlist.dat" || name.ends_with(kMarkerEnding) || name.starts_with(".kv-");
  };
  if (names->empty() || std::ranges::any_of(*names, isKnown)) return {};
  const bool isProject = std::ranges::find(*names, "project.json") != names->end();
  const std::string what =
      isProject ? " is one project; name the folder that it lies in: " + folderOf(directory)
                : " holds no projects, but other things: it is no projects directory. Name the one "
                  "that the stations were started with (--projects)";
  return Error{ErrorCode::eUsage, directory + what, directory};
}

Result<std::vector<LockEntry>> locksNamed(const std::string& word) {
  const std::string base = settings().projectsDirectory + "/";
  const std::string wanted = word.starts_with(base) ? word.substr(base.size()) : word;
  std::vector<LockEntry> found;
  const auto collect = [&](const LockEntry& lock) {
    if (isNamed(lock, wanted)) found.push_back(lock);
  };
  const Cookie project(wanted.substr(0, wanted.find('/')).c_str(), false);
  // A cookie names the folder: the other projects of a large share need not be read.
  if (project.getType() == CookieTypeProject) {
    takeLocksOf(project, readProjectRecord(project), collect);
  } else if (auto listed = forEachLock(collect); !listed) {
    return listed.error();
  }
  return found;
}

void lookAgain(LockEntry& lock) {
  const std::string file = lockFileOf(lock);
  const std::string information = file + std::string(kInformationEnding);
  lock.state = lookAtLock(wideText(file));
  lock.holder.clear();
  lock.hasOldName = false;
  lock.since = 0;
  if (lock.state == LockState::eFree) return;
  lock.hasOldName = isOlder(information, file);
  if (!lock.hasOldName) lock.holder = readHolder(information);
  lock.since = timeOf(lock.holder.empty() ? file : information);
}

std::string lockFileOf(const LockEntry& lock) {
  return settings().projectsDirectory + "/" + lock.path;
}

std::string stateName(LockState state) {
  return state == LockState::eHeld ? "held" : lockStateText(state);
}

namespace {

std::string timeText(const LockEntry& lock) { return lock.since ? utcText(lock.since) : ""; }

/// For people. The holder writes the name after the lock, so it may be missing for a moment.
std::string holderColumn(const LockEntry& lock) {
  if (lock.hasOldName) return "(not known: " + nameOf(lock.path) + ".inf is of an earlier holder)";
  if (!lock.holder.empty()) return lock.holder;
  return lock.state == LockState::eHeld ? "(name not readable yet)" : "";
}

/// For people. Users of a shared project take no lock, so a free lock does not tell that nobody is
/// in it.
std::string stateColumn(const LockEntry& lock) {
  return lock.isShared && lock.state == LockState::eFree ? "open to all" : stateName(lock.state);
}

JsonValue rowOf(const LockEntry& lock) {
  return JsonValue::object({{"lock", lock.path},
                            {"project", lock.project},
                            {"room", lock.room},
                            {"state", stateColumn(lock)},
                            {"by", holderColumn(lock)},
                            {"since", timeText(lock)}});
}

JsonValue objectOf(const LockEntry& lock) {
  return JsonValue::object({textMember("lock", lock.path),
                            {"kind", lock.room.empty() ? "project" : "room"},
                            textMember("project", lock.project),
                            textMember("room", lock.room),
                            {"state", stateName(lock.state)},
                            textMember("by", lock.holder),
                            {"since", timeText(lock)}});
}

/// Colours what needs attention: locks left behind, and locks that cannot be checked.
const char* colourOf(const JsonValue& row) {
  const std::string& state = row["state"].asString();
  if (state == stateName(LockState::eHeld)) return kGreen;
  if (state == stateName(LockState::eLeftBehind)) return kYellow;
  return state == stateName(LockState::eUnknown) ? kRed : kPlain;
}

ToolStatus showLocks(const ShareRequest& request) {
  const ToolHost host(directoryOf(request.path));
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  std::vector<LockEntry> locks;
  const auto listed = forEachLock([&](const LockEntry& lock) { locks.push_back(lock); });
  if (!listed) return toolProblem(eToolUsage, listed.error().message);
  if (locks.empty()) {
    if (auto found = expectProjects(directoryOf(request.path)); !found) {
      return toolProblem(eToolUsage, found.error().message);
    }
  }
  sortByName(locks);
  JsonValue all = JsonValue::array();
  for (const LockEntry& lock : locks) all.append(request.asJson ? objectOf(lock) : rowOf(lock));
  if (request.asJson) {
    printJson(all);
  } else {
    printTable(all, colourOf);
  }
  const bool isKnown = std::ranges::none_of(
      locks, [](const LockEntry& lock) { return lock.state == LockState::eUnknown; });
  return isKnown ? eToolDone : eToolFinding;
}

}  // namespace

void addLocksCommand(CommandLine& line) {
  addShareCommand<ShareRequest>(
      line, {"locks", "Show every project and room: free, held or left behind",
             [](CommandOptions& options, ShareRequest& request) {
               options.word("DIR", request.path, "The projects directory");
               options.flag("--json", request.asJson, "One JSON array instead of a table");
               options.footer(
                   "Looking takes no lock. Exit status: 0; 1 when a lock may not be looked at.");
             },
             showLocks});
}

namespace {

struct LocksRequest : ShareRequest {
  std::string lock;
  std::string audit;
  bool isAgreed = false;
};

std::string holderOf(const LockEntry& lock) {
  return lock.holder.empty() ? "a station whose user's name cannot be read"
                             : shownText(lock.holder);
}

ToolStatus refuseHeld(LockEntry lock) {
  lookAgain(lock);
  return toolProblem(eToolFinding, shownText(lock.path) + " is held by " + holderOf(lock) +
                                       ": nothing was removed; it can be removed when that "
                                       "station has left or is gone");
}

bool userAgrees(const LockEntry& lock) {
  std::cout << "Remove " << shownText(lock.path) << ", left behind by " << holderOf(lock) << " at "
            << utcText(lock.since) << "? [y/N] " << std::flush;
  std::string answer;
  shareRests();
  std::getline(std::cin, answer);
  shareAnswered();
  return answer == "y" || answer == "Y" || answer == "yes";
}

/// Removes the information file while this process holds the lock, so that it cannot be that of a
/// new holder. Then removes the lock file with the file manager, which takes the lock itself and
/// leaves a lock alone that a station has taken meanwhile.
ToolStatus removeLock(const LockEntry& lock, const std::string& audit) {
  iFileManager& files = OS().fileManager();
  const auto path = wideText(lockFileOf(lock));
  auto held = files.openFile(path, eFileReadWrite, eFileOpenExisting, eFileShareNone, eFileNoFlags);
  if (!held || !held->isOpen()) {
    if (files.lastError() == eFileError::eHeld) return refuseHeld(lock);
    return toolProblem(eToolFinding,
                       lockRefusal(shownText(lock.path), files.lastError(), {}, {}).message);
  }
  const bool hadName = files.removeFile(path + L".inf") && !lock.holder.empty();
  held.reset();
  if (!files.removeFile(path)) return refuseHeld(lock);
  std::cout << "removed " << shownText(lock.path) << (hadName ? " and its information file" : "")
            << ", left behind by " << holderOf(lock) << '\n';
  return audited(audit, {{"what", "broken"},
                         textMember("directory", settings().projectsDirectory),
                         textMember("lock", lock.path),
                         textMember("holder", lock.holder)});
}

ToolStatus breakOne(const LockEntry& lock, const LocksRequest& request) {
  switch (lock.state) {
    case LockState::eFree:
      std::cout << shownText(lock.path) << " is free: there is nothing to remove\n";
      return eToolDone;
    case LockState::eHeld:
      return refuseHeld(lock);
    default:
      break;
  }
  if (request.isAgreed || userAgrees(lock)) return removeLock(lock, request.audit);
  return toolProblem(eToolFinding, "nothing was removed");
}

ToolStatus breakLock(const LocksRequest& request) {
  const ToolHost host(directoryOf(request.path));
  if (auto usable = host.checkDirectory(); !usable) {
    return toolProblem(eToolUsage, usable.error().message);
  }
  const auto named = locksNamed(request.lock);
  if (!named) return toolProblem(eToolUsage, named.error().message);
  const std::vector<LockEntry>& locks = *named;
  if (locks.size() == 1) return breakOne(locks.front(), request);
  std::string problem = inQuotes(request.lock) + " is no project or room of " +
                        shownText(request.path) + "; kv-share locks shows them";
  if (!locks.empty()) problem = inQuotes(request.lock) + " is the name of several:";
  for (const LockEntry& lock : locks) problem += " " + shownText(lock.path);
  return toolProblem(eToolUsage, problem);
}

}  // namespace

void addBreakCommand(CommandLine& line) {
  addShareCommand<LocksRequest>(
      line,
      {"break", "Remove a lock that a station left behind that is gone",
       [](CommandOptions& options, LocksRequest& request) {
         options.word("DIR", request.path, "The projects directory");
         options.word("LOCK", request.lock,
                      "As kv-share locks shows it, or a project's or room's name");
         options.flag("--yes", request.isAgreed, "Do not ask before");
         declareAudit(options, request.audit);
         options.footer(
             "Refuses while anybody holds the lock. Exit status: 0; 1 when nothing was removed.");
       },
       breakLock});
}

}  // namespace korvel
