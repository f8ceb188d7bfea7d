#include "tools/locks/LockList.h"

#include <sys/stat.h>

#include <algorithm>
#include <set>
#include <tuple>

#include "host/os/OS.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/project/RoomNames.h"
#include "tools/base/ShareTimeout.h"

namespace korvel {

namespace {

constexpr std::string_view kRoomLockEnding = ".lck";
constexpr std::string_view kRecordEnding = ".json";
constexpr std::string_view kInformationEnding = ".inf";

/// As many bytes of a name as stations read.
constexpr std::size_t kNameBytes = 200;

std::string readHolder(const std::string& informationFile) {
  const Kv::Ptr<iFile> file = OS().fileManager().openFile(
      wideText(informationFile), eFileRead, eFileOpenExisting, eFileShareRead, eFileNoFlags);
  if (!file || !file->isOpen()) return {};
  std::string name(kNameBytes, '\0');
  name.resize(file->read(name.data(), name.size()));
  return name.substr(0, name.find('\0'));
}

std::int64_t timeOf(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? status.st_mtime : 0;
}

/// Whether an information file was written before the lock was taken. A holder writes it after the
/// lock file; where an earlier one may not be overwritten, its name stays.
bool isOlder(const std::string& information, const std::string& lockFile) {
  constexpr std::int64_t kClockTicks = 2;  // seconds that a file system may round by
  const std::int64_t written = timeOf(information);
  return written != 0 && written + kClockTicks < timeOf(lockFile);
}

/// The file names of a project's rooms: those that have a record or a lock file.
std::set<std::string> roomsOf(const std::string& folder) {
  std::set<std::string> rooms;
  const auto names = listFresh(folder + "/rooms");
  if (!names) return rooms;
  for (const std::string& name : *names) {
    for (const std::string_view ending : {kRoomLockEnding, kRecordEnding}) {
      if (name.ends_with(ending)) rooms.insert(name.substr(0, name.size() - ending.size()));
    }
  }
  std::erase_if(rooms, [](const std::string& room) { return roomNameOf(room).empty(); });
  return rooms;
}

void takeLocksOf(const Cookie& project, const std::function<void(const LockEntry&)>& take) {
  const std::string cookie = project.asString().str();
  LockEntry lock;
  const auto record = readProjectRecord(project);
  lock.project = record ? record->name : cookie;
  lock.path = cookie + "/Lock";
  lock.isShared = record && !record->isPrivate;
  lookAgain(lock);
  take(lock);
  shareAnswered();
  for (const std::string& room : roomsOf(projectFolder(project))) {
    LockEntry entry;
    entry.path = cookie + "/rooms/" + room + std::string(kRoomLockEnding);
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
  return lock.project == word || lock.path == word + "/Lock";
}

}  // namespace

Result<void> forEachLock(const std::function<void(const LockEntry&)>& take) {
  const auto projects = listProjectFolders();
  if (!projects) return projects.error();
  for (const Cookie& project : *projects) takeLocksOf(project, take);
  return {};
}

void sortByName(std::vector<LockEntry>& locks) {
  std::ranges::stable_sort(locks, [](const LockEntry& one, const LockEntry& other) {
    const auto keyOf = [](const LockEntry& lock) {
      return std::tuple(lock.project, lock.path.substr(0, lock.path.find('/')), lock.room);
    };
    return keyOf(one) < keyOf(other);
  });
}

Result<void> expectProjects(const std::string& directory) {
  const auto names = listFresh(directory);
  if (!names) return names.error();
  const auto isKnown = [](const std::string& name) {
    return name == "userlist.dat" || name.ends_with(".cli") || name.starts_with(".kv-");
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
  if (project.getType() == CookieTypeProject) {
    takeLocksOf(project, collect);
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

}  // namespace korvel
