#include "tools/doctor/LockTrial.h"

#include <unistd.h>

#include "station/base/Strings.h"
#include "station/os/HostFileManager.h"
#include "station/project/LockProbe.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kTimeToTake = std::chrono::seconds(10);

void holdUntilKilled(const ExclusiveOpen& open, const std::string& path, int pipe) {
  const OpenOutcome outcome = open(path);
  const char answer = static_cast<char>(outcome.problem);
  writeAll(pipe, &answer, 1);
  while (outcome.problem == eFileError::eNone) ::pause();
}

}  // namespace

OpenOutcome openAsStationsDo(const std::string& path) {
  HostFileManager files;
  OpenOutcome outcome;
  outcome.file =
      files.openFile(wideText(path), eFileReadWrite, eFileCreate, eFileShareNone, eFileNoFlags);
  outcome.problem = files.lastError();
  return outcome;
}

LockHolder::LockHolder(const ExclusiveOpen& open, const std::string& path)
    : child_([&](int pipe) { holdUntilKilled(open, path, pipe); }) {
  std::string answer;
  if (child_.read(Clock::now() + kTimeToTake, answer) == ChildProcess::Reading::eGot) {
    problem_ = static_cast<eFileError>(answer.front());
  }
}

std::optional<std::chrono::milliseconds> timeUntilFree(const ExclusiveOpen& open,
                                                       const std::string& path,
                                                       std::chrono::milliseconds patience) {
  const auto start = Clock::now();
  for (;;) {
    const OpenOutcome outcome = open(path);
    const auto taken = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start);
    if (outcome.problem == eFileError::eNone) return taken;
    if (taken > patience) return std::nullopt;
    ::usleep(2000);
  }
}

std::string refusalText(eFileError problem) {
  return lockRefusal("the trial file", problem, {}, {}).message;
}

}  // namespace korvel
