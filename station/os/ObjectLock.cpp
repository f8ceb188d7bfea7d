#include "station/os/ObjectLock.h"

#include <exception>

#include "host/os/OS.h"
#include "host/os/iFileManager.h"
#include "station/base/Strings.h"
#include "station/os/HostFileManager.h"

namespace korvel {

namespace {

constexpr int kTries = 400;
constexpr unsigned kPauseMilliseconds = 5;

std::string lockFileOf(const std::string& objectFile) {
  const std::size_t name = objectFile.rfind('/') + 1;
  return objectFile.substr(0, name) + '.' + objectFile.substr(name) + ".lock";
}

Error notTaken(const std::string& path, eFileError why) {
  const std::string shown = "\"" + shownText(path) + "\"";
  switch (why) {
    case eFileError::eHeld:
      return {
          ErrorCode::eHeld,
          "Another station is changing this; nothing was changed here. Try again (its lock is " +
              shown + ").",
          path};
    case eFileError::eMissing:
      return {ErrorCode::eNotFound, "The project's folder is gone: " + shown + " cannot be made.",
              path};
    case eFileError::eReadOnly:
      return {ErrorCode::eReadOnly,
              "The share is mounted read-only; nothing was changed, since " + shown +
                  " cannot be made. Mount it for writing.",
              path};
    case eFileError::eNoRights:
      return {ErrorCode::eNoRights,
              "Permission denied: " + shown +
                  " cannot be made, and nothing was changed. Ask for rights on the folder.",
              path};
    case eFileError::eNoLockService:
      return {ErrorCode::eNoLockService,
              "The share offers no locks, so changes could be lost: " + shown +
                  " cannot be locked. Ask whoever mounted it.",
              path};
    case eFileError::eFull:
      return {ErrorCode::eFull, "The share is full: " + shown + " cannot be made. Make room on it.",
              path};
    default:
      return {ErrorCode::eSystem,
              shown + " cannot be locked (" + HostFileManager::lastErrorText() +
                  "); nothing was changed. Try again.",
              path};
  }
}

}  // namespace

ObjectLock::ObjectLock(const std::string& objectFile) : path_(lockFileOf(objectFile)) {
  iFileManager& files = OS().fileManager();
  eFileError why = eFileError::eNone;
  for (int tried = 0; tried < kTries; ++tried) {
    file_ = files.openFile(wideText(path_), eFileReadWrite, eFileCreate, eFileShareNone,
                           eFileGroupShared);
    if (file_ && file_->isOpen()) return;
    file_.reset();
    why = files.lastError();
    if (why != eFileError::eHeld) break;
    OS().sleepMilliseconds(kPauseMilliseconds);
  }
  taken_ = notTaken(path_, why);
}

ObjectLock::~ObjectLock() {
  if (!file_) return;
  file_.reset();
  try {
    OS().fileManager().removeFile(wideText(path_));
  } catch (const std::exception&) {
    // Without memory the file stays. It keeps nobody off, and the next change removes it.
  }
}

}  // namespace korvel
