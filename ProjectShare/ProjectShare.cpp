#include "ProjectShare/ProjectShare.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <utility>

#include "ProjectShare/HostEntry.h"
#include "host/base/Log.h"
#include "host/base/Text.h"
#include "host/os/Files.h"
#include "host/os/OS.h"
#include "host/os/iFileManager.h"
#include "host/project/ProjectSpacesManager.h"

namespace {

// Required: assertions name their places as readers of logs have always known them, which are not
// this file's name and lines.
constexpr const char* kWrongKind = "ProjectShare/ProjectSharing line 180";
constexpr const char* kRoomIsTaken = "ProjectShare/ProjectSharing line 146";

constexpr const wchar_t* kInfoEnding = L".inf";
constexpr const wchar_t* kRoomEnding = L".lck";
constexpr const wchar_t* kMarkerEnding = L".cli";

/// The name in a lock information file, cut after 200 bytes; empty when the file cannot be read.
LightweightString<wchar_t> readHolder(const LightweightString<wchar_t>& path) {
  constexpr std::size_t kLongestName = 200;
  const Kv::Ptr<iFile> file =
      OS().fileManager().openFile(path, eFileRead, eFileOpenExisting, eFileShareRead, eFileNoFlags);
  if (!file || !file->isOpen()) return {};
  std::array<char, kLongestName + 1> name{};
  const auto size = static_cast<std::size_t>(std::min<std::uint64_t>(file->size(), kLongestName));
  file->read(name.data(), kLongestName);
  // The size was asked for before: of a name that is being replaced the shorter part is shown.
  name[size] = '\0';
  return fromUTF8(name.data(), -1);
}

}  // namespace

std::unique_ptr<NetLock> ProjectShare::currentProjectLock_;
std::unique_ptr<NetLock> ProjectShare::currentRoomLock_;
LightweightString<wchar_t> ProjectShare::lastRoom_;

ProjectShare::ProjectShare() : iProjectShare("Project sharing") {}

bool ProjectShare::canManageCurrentProjectSpace() const {
  return guardedEntry("canManageCurrentProjectSpace", false, [] {
    return ProjectSpacesManager::getCurrentProjectSpaceType() ==
               ProjectSpacesManager::eSharedProjectSpace &&
           ProjectSpacesManager::machineIsInNetworkMode();
  });
}

LightweightString<wchar_t> ProjectShare::getProjectLockFile(const Cookie& project) {
  return guardedEntry("getProjectLockFile", LightweightString<wchar_t>(), [&] {
    if (project.getType() == CookieTypeNoProject) return LightweightString<wchar_t>();
    LightweightString<wchar_t> path = getProjectsBaseDirectory() + project.asWString();
    // Zero stands for "none" and must not end up in the path.
    if (const wchar_t separator = OS().fileManager().pathSeparator()) path += separator;
    return path + L"Lock";
  });
}

bool ProjectShare::isProjectOccupied(const Cookie& project) {
  return guardedEntry("isProjectOccupied", false, [&] {
    return project.getType() != CookieTypeNoProject && fileExists(getProjectLockFile(project));
  });
}

bool ProjectShare::lockProject(const Cookie& project) {
  return guardedEntry("lockProject", false, [&] {
    // Required: another kind is reported, and locked all the same.
    if (project.getType() != CookieTypeProject) {
      assertionFailed("pCookie.getType() == CookieTypeProject", kWrongKind);
    }
    // Made before the old one is put away, so that a failure here changes nothing.
    auto lock = std::make_unique<NetLock>(getProjectLockFile(project));
    dropProjectLock();
    currentProjectLock_ = std::move(lock);
    if (!currentProjectLock_->Lock()) {
      currentProjectLock_.reset();
      return false;
    }
    currentProjectLock_->SetLockInfo(getCurrentUser());
    return true;
  });
}

// Required: a lock that was never released stays held until the process ends, so it is neither
// unlocked nor destroyed.
void ProjectShare::dropProjectLock() {
  static auto& dropped = *new Vector<std::unique_ptr<NetLock>>;
  if (currentProjectLock_) dropped.push_back(std::move(currentProjectLock_));
}

bool ProjectShare::unlockCurrentlyLockedProject() {
  return guardedEntry("unlockCurrentlyLockedProject", false, [] {
    if (!currentProjectLock_) return false;
    currentProjectLock_->Unlock();
    currentProjectLock_.reset();
    return true;
  });
}

LightweightString<wchar_t> ProjectShare::getProjectLockOwner(const Cookie& project) {
  return guardedEntry("getProjectLockOwner", LightweightString<wchar_t>(),
                      [&] { return readHolder(getProjectLockFile(project) + kInfoEnding); });
}

bool ProjectShare::isRoomOccupied(const LightweightString<wchar_t>& room) {
  return guardedEntry("isRoomOccupied", false, [&] { return fileExists(room + kRoomEnding); });
}

bool ProjectShare::lockRoom(const LightweightString<wchar_t>& room) {
  return guardedEntry("lockRoom", false,
                      [&] { return room.empty() ? leaveRooms(room) : enterRoom(room); });
}

/// The new room is taken before the old one is given up, so that the user is never in none.
bool ProjectShare::enterRoom(const LightweightString<wchar_t>& room) {
  if (!lastRoom_.empty()) OS().fileManager().markFile(lastRoom_, iFileManager::eMarkLeft);
  auto lock = std::make_unique<NetLock>(room + kRoomEnding);
  if (!lock->Lock()) {
    // The refused lock goes without Unlock(): its files belong to the station that holds the room.
    assertionFailed("false", kRoomIsTaken);
    return false;
  }
  if (currentRoomLock_) currentRoomLock_->Unlock();
  currentRoomLock_ = std::move(lock);
  currentRoomLock_->SetLockInfo(getCurrentUser());
  return true;
}

bool ProjectShare::leaveRooms(const LightweightString<wchar_t>& room) {
  unlockCurrentRoom();
  const auto marker = getPath(room) + getCurrentUser() + kMarkerEnding;
  OS().fileManager().markFile(marker, iFileManager::eMarkPresent);
  lastRoom_ = marker;
  return true;
}

void ProjectShare::unlockCurrentRoom() {
  guardedEntry("unlockCurrentRoom", [] {
    if (currentRoomLock_) currentRoomLock_->Unlock();
    currentRoomLock_.reset();
  });
}

LightweightString<wchar_t> ProjectShare::getRoomLockOwner(const LightweightString<wchar_t>& room) {
  return guardedEntry("getRoomLockOwner", LightweightString<wchar_t>(),
                      [&] { return readHolder(room + kRoomEnding + kInfoEnding); });
}

std::uint32_t ProjectShare::getNumActiveUsers() {
  return guardedEntry("getNumActiveUsers", std::uint32_t{0}, [] {
    Vector<iFileManager::DirectoryItem> markers;
    OS().fileManager().listDirectory(getProjectsBaseDirectory() + L"*.cli",
                                     iFileManager::eListFiles, 0, markers);
    return static_cast<std::uint32_t>(markers.size());
  });
}

LightweightString<wchar_t> ProjectShare::getCurrentUser() {
  return guardedEntry("getCurrentUser", LightweightString<wchar_t>(),
                      [] { return OS().currentUserName(); });
}
