#include "station/project/LockProbe.h"

#include "host/base/Log.h"
#include "host/os/OS.h"
#include "station/base/Strings.h"
#include "station/os/FileErrors.h"
#include "station/os/HostFileManager.h"

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
  if (OS().fileManager().removeFile(lockFile)) return;
  const std::string said = HostFileManager::lastErrorText();
  if (OS().fileManager().lastError() == eFileError::eHeld) return;  // somebody took it meanwhile
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
  constexpr int kTries = 10;
  constexpr unsigned kPauseMilliseconds = 10;
  for (int attempt = 0; attempt < kTries; ++attempt) {
    const LightweightString<wchar_t> holder = ask();
    if (!holder.empty()) return shownText(holder);
    OS().sleepMilliseconds(kPauseMilliseconds);
  }
  return {};
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

}  // namespace korvel
