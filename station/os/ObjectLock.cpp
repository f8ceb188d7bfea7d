#include "station/os/ObjectLock.h"

#include <exception>

#include "host/os/OS.h"
#include "host/os/iFileManager.h"
#include "station/base/Strings.h"
#include "station/os/FileErrors.h"
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
  const FileProblem& problem = fileProblem(why);
  const std::string lock = inQuotes(path);
  if (problem.code == ErrorCode::eHeld) {
    return {problem.code,
            "Another station is changing this; nothing was changed here. Try again (its lock is " +
                lock + ").",
            path};
  }
  const std::string said =
      problem.code == ErrorCode::eSystem ? " (" + HostFileManager::lastErrorText() + ")" : "";
  return {problem.code,
          "Nothing was changed, since " + lock + " cannot be locked: " + sentenceOf(problem) +
              said + ".",
          path};
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
