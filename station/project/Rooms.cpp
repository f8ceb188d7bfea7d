#include "station/project/Rooms.h"

#include <algorithm>

#include "host/base/Log.h"
#include "host/os/OS.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iProjectShare.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/FileErrors.h"
#include "station/os/HostFileManager.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

/// What the system said, where the reason does not tell.
std::string saidBySystem(eFileError reason) {
  const std::string said = HostFileManager::lastErrorText();
  return reason != eFileError::eOther || said.empty() ? "" : " (" + said + ")";
}

}  // namespace

LockState lookAtLock(const LightweightString<wchar_t>& lockFile) {
  iFileManager& files = OS().fileManager();
  const Kv::Ptr<iFile> file =
      files.openFile(lockFile, eFileRead, eFileOpenExisting, eFileShareRead, eFileNoFlags);
  // An open that shares does not take the lock, but fails while another open holds it. That it
  // works means that the file exists and is not locked.
  if (file && file->isOpen()) return LockState::eLeftBehind;
  switch (files.lastError()) {
    case eFileError::eHeld:
      return LockState::eHeld;
    case eFileError::eMissing:
      return LockState::eFree;
    default:
      return LockState::eUnknown;
  }
}

void clearGivenUp(const std::string& what, const LightweightString<wchar_t>& lockFile) {
  if (lookAtLock(lockFile) != LockState::eLeftBehind) return;
  // removeFile() takes the lock itself, so a station that holds the file by now does not lose it.
  if (OS().fileManager().removeFile(lockFile)) return;
  const std::string said = HostFileManager::lastErrorText();
  if (OS().fileManager().lastError() == eFileError::eHeld) return;  // another station took it
  LogBoth("%s is given up, but its lock file stays: %s. Others see it left behind; remove %s.\n",
          what, said, shownText(lockFile));
}

std::string lockStateText(LockState state) {
  switch (state) {
    case LockState::eFree:
      return "free";
    case LockState::eHeld:
      return "held";
    case LockState::eLeftBehind:
      return "left behind";
    case LockState::eUnknown:
      break;
  }
  return "unknown";
}

std::string awaitHolder(const std::function<LightweightString<wchar_t>()>& ask) {
  // The holder writes its name after it has won the lock, and a network file system shows it to
  // others later still (20-60 ms measured on NFS, up to 1 s on SMB). The user waits for the answer,
  // so not longer.
  constexpr int kTries = 10;
  constexpr unsigned kPauseMilliseconds = 10;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    const LightweightString<wchar_t> holder = ask();
    if (!holder.empty()) return shownText(holder);
    OS().sleepMilliseconds(kPauseMilliseconds);
  }
  return {};
}

namespace {

/// This station's user as readers of an information file see the name: its first bytes alone.
LightweightString<wchar_t> ownNameAsRead() {
  constexpr std::size_t kReadBytes = 200;
  const std::string name = utf8Text(OS().currentUserName());
  return wideText(name.substr(0, kReadBytes));
}

}  // namespace

void warnOfHolderName(const std::string& what, const LightweightString<wchar_t>& holder) {
  if (holder == ownNameAsRead()) return;
  if (holder.empty()) {
    LogBoth(
        "%s, but your name could not be written beside the lock: others see it taken, and not by "
        "whom. See whether the share has room.\n",
        what);
  } else {
    LogBoth(
        "%s, but others are told that %s holds it: the old information file beside the lock cannot "
        "be replaced. See to the rights of the files beside it, and enter it again.\n",
        what, inQuotes(shownText(holder)));
  }
}

std::string holderText(const std::string& holder) {
  return holder.empty() ? "another station (its user's name cannot be read yet)" : holder;
}

Error lockRefusal(const std::string& what, eFileError reason,
                  const std::function<LightweightString<wchar_t>()>& ask,
                  const std::string& advice) {
  if (reason != eFileError::eHeld && reason != eFileError::eNone) {
    const FileProblem& problem = fileProblem(reason);
    return {problem.code,
            what + " could not be taken: its lock file cannot be opened, since " +
                sentenceOf(problem) + saidBySystem(reason) + ".",
            {}};
  }
  return {
      ErrorCode::eHeld, what + " is held by " + holderText(awaitHolder(ask)) + ". " + advice, {}};
}

namespace {

/// The file name of the room whose record this is; empty for other files.
std::string roomOfRecord(const std::string& file) {
  if (!file.ends_with(kRecordEnding)) return {};
  return file.substr(0, file.size() - kRecordEnding.size());
}

JsonValue shown(const RoomInfo& room) {
  return JsonValue::object({{"name", shownText(room.name)},
                            {"state", lockStateText(room.state)},
                            {"by", room.holder},
                            {"here", room.isHere}});
}

JsonValue shown(const std::vector<RoomInfo>& rooms) {
  JsonValue all = JsonValue::array();
  for (const RoomInfo& room : rooms) all.append(shown(room));
  return all;
}

}  // namespace

Rooms::Rooms() = default;

Rooms::~Rooms() = default;

void Rooms::enter(const OpenProject& project, const std::vector<std::string>&) {
  folder_ = project.folder + "/rooms";
  isShared_ = !project.isPrivate;
  noteTold();
}

void Rooms::leave() {
  giveUp();
  told_.clear();
  folder_.clear();
}

// An empty name leaves all rooms, and the station still counts as active. Unlocking the one room
// would not do that.
void Rooms::giveUp() {
  iProjectShare* share = iProjectShare::instance();
  if (share && !current_.empty()) {
    share->lockRoom(LightweightString<wchar_t>());
    clearLock(current_);
  }
  current_.clear();
}

void Rooms::clearLock(const std::string& room) const {
  const auto fileName = roomFileName(room);
  if (!fileName) return;
  clearGivenUp("Room " + inQuotes(room), wideText(pathOf(*fileName)) + L".lck");
}

Result<void> Rooms::requireShared() const {
  if (folder_.empty()) {
    return Error{
        ErrorCode::eNoProject,
        "No project is open, and rooms belong to a project; \"project enter P\" opens one.",
        {}};
  }
  if (isShared_) return {};
  return Error{
      ErrorCode::eRefused, "The open project is private: one station at a time, and no rooms.", {}};
}

std::string Rooms::pathOf(const std::string& fileName) const { return folder_ + "/" + fileName; }

Result<void> Rooms::create(const std::string& name) {
  if (auto shared = requireShared(); !shared) return shared;
  const auto fileName = roomFileName(name);
  if (!fileName) return fileName.error();
  const std::string record = pathOf(*fileName) + std::string(kRecordEnding);
  const auto isThere = isThereFresh(record);
  if (!isThere) return isThere.error();
  if (*isThere) {
    return Error{ErrorCode::eExists, "There is a room " + inQuotes(name) + " already.", record};
  }
  if (auto made = makeFolder(folder_); !made && made.error().code != ErrorCode::eExists) {
    return made;
  }
  auto written = writeAtomically(
      record, writeJsonIndented(JsonValue::object(
                  {{"name", name}, {"made", timeForRecord()}, {"madeBy", settings().user}})));
  if (written) ProjectSpacesManager::refreshCurrentLobby();
  return written;
}

RoomInfo Rooms::look(const std::string& name, const std::string& fileName) const {
  RoomInfo room{name, LockState::eFree, {}, name == current_};
  const LightweightString<wchar_t> path = wideText(pathOf(fileName));
  iProjectShare* share = iProjectShare::instance();
  if (!share || !share->isRoomOccupied(path)) return room;
  room.state = lookAtLock(path + L".lck");
  room.holder = shownText(share->getRoomLockOwner(path));
  return room;
}

Result<std::vector<RoomInfo>> Rooms::list() const {
  if (auto shared = requireShared(); !shared) return shared.error();
  std::vector<RoomInfo> rooms;
  const auto files = listFresh(folder_);
  const bool hasNone = !files && files.error().code == ErrorCode::eNotFound;
  // The folder is made with the first room. It counts as missing only while the project's folder is
  // there: else the share is away.
  if (hasNone && existsFresh(hostParts().projects->current()->folder)) return rooms;
  if (!files) return files.error();
  for (const std::string& file : *files) {
    const std::string fileName = roomOfRecord(file);
    const std::string name = roomNameOf(fileName);
    if (!name.empty()) rooms.push_back(look(name, fileName));
  }
  std::ranges::sort(rooms, {}, &RoomInfo::name);
  return rooms;
}

Error Rooms::noRoom(const std::string& name) const {
  std::vector<std::string> names;
  if (const auto rooms = list()) {
    for (const RoomInfo& each : *rooms) names.push_back(each.name);
  }
  const std::string likely = likelyName(name, names);
  const std::string advice =
      likely.empty() ? "\"room create\" makes it." : "did you mean " + inQuotes(likely) + "?";
  return {ErrorCode::eNotFound, "There is no room " + inQuotes(name) + "; " + advice, {}};
}

Result<void> Rooms::goInto(const std::string& name) {
  if (auto shared = requireShared(); !shared) return shared;
  const auto fileName = roomFileName(name);
  if (!fileName) return fileName.error();
  const auto isThere = isThereFresh(pathOf(*fileName) + std::string(kRecordEnding));
  if (!isThere) return isThere.error();
  if (!*isThere) return noRoom(name);
  if (name == current_) return {};
  iProjectShare* share = iProjectShare::instance();
  if (!share) return Error{ErrorCode::eRefused, "No plug-in guards rooms here.", {}};
  const LightweightString<wchar_t> path = wideText(pathOf(*fileName));
  if (!share->lockRoom(path)) {
    return lockRefusal(
        "Room " + inQuotes(name), OS().fileManager().lastError(),
        [&] { return share->getRoomLockOwner(path); },
        "Wait until it is left, or enter another room (\"room list\").");
  }
  // After the new lock is won: a station that is refused stays in the room that it was in.
  if (!current_.empty()) clearLock(current_);
  current_ = name;
  warnOfHolderName("You are in room " + inQuotes(name), share->getRoomLockOwner(path));
  ProjectSpacesManager::refreshCurrentLobby();
  return {};
}

Result<void> Rooms::goOut() {
  if (auto shared = requireShared(); !shared) return shared;
  if (current_.empty()) return Error{ErrorCode::eNotFound, "You are in no room.", {}};
  giveUp();
  ProjectSpacesManager::refreshCurrentLobby();
  return {};
}

void Rooms::noteToldHere() {
  if (hostParts().rooms) hostParts().rooms->noteTold();
}

void Rooms::noteTold() {
  if (!isShared_ || folder_.empty()) return;
  if (auto rooms = list()) told_ = std::move(*rooms);
}

// The list asks the share for its locks now, so what was found in the files earlier does not
// matter.
std::size_t Rooms::catchUp(const FoundFiles& files) {
  const auto isOfRoom = [](const FoundFile& file) { return file.name.starts_with("rooms/"); };
  if (std::ranges::none_of(files, isOfRoom)) return 0;
  const std::vector<RoomInfo> before = told_;
  noteTold();
  if (told_ == before) return 0;
  tellChanged("room", hostParts().projects->current()->cookie, "refreshed");
  // Nobody announces who goes into a room or out of it: this is no sign of lost messages.
  return 0;
}

JsonValue Rooms::state() const {
  const auto rooms = isShared_ ? list() : Result<std::vector<RoomInfo>>(std::vector<RoomInfo>());
  return rooms ? shown(*rooms) : JsonValue::array();
}

}  // namespace korvel
