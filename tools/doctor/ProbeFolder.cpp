#include "tools/doctor/ProbeFolder.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <random>
#include <utility>

#include "station/base/Log.h"
#include "station/base/Strings.h"
#include "station/os/HostFileManager.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/Rooms.h"

namespace korvel {

namespace {

constexpr std::string_view kPrefix = "kvd-";
constexpr std::time_t kStale = 600;  // seconds
constexpr int kTries = 20;
constexpr unsigned kPause = 10'000;  // microseconds

/// Whether the folder was removed between two steps.
bool isGone(const Error& problem) {
  return problem.code == ErrorCode::eNotFound || problem.code == ErrorCode::eStale;
}

}  // namespace

ProbeFolder::~ProbeFolder() {
  if (!mark_.empty()) ::unlink(mark_.c_str());
  ::rmdir(path_.c_str());
}

/// Tries several times: a trial on another machine may end, and remove the folder, before this one
/// has a file in it.
Result<void> ProbeFolder::make() {
  mark_ = file(newTrialId(), "open");
  Result<void> made;
  for (int tries = 0; tries < kTries; ++tries) {
    made = makeOnce();
    if (made) made = writeAtomically(mark_, "");
    if (made || !isGone(made.error())) break;
    ::usleep(kPause);
  }
  return made;
}

Result<void> ProbeFolder::makeOnce() {
  auto made = makeFolder(path_);
  if (!made && made.error().code != ErrorCode::eExists) return made;
  struct stat status {};
  lookAfresh(folderOf(path_));
  if (::lstat(path_.c_str(), &status) != 0) return errorFromErrno(errno, "make", path_);
  if (!S_ISDIR(status.st_mode)) {
    return Error{ErrorCode::eBadContent, path_ + " is no folder; move it away.", path_};
  }
  // A folder that was there may hold files of killed trials.
  if (!made) removeStale();
  return {};
}

std::string ProbeFolder::file(const std::string& id, const std::string& step) const {
  return path_ + "/" + std::string(kPrefix) + id + "-" + step;
}

/// Ages are counted by the share's clock: the time of a new file stands for now. This machine's
/// clock may differ.
void ProbeFolder::removeStale() const {
  const ProbeFile now(file(newTrialId(), "now"));
  struct stat made {};
  if (!writeAtomically(now.path(), "") || ::lstat(now.path().c_str(), &made) != 0) return;
  const auto names = listFresh(path_);
  if (!names) return;
  for (const std::string& name : *names) {
    const std::string path = path_ + "/" + name;
    struct stat status {};
    // Half-written files of killed trials begin with ".kv-".
    const bool isOurs = name.starts_with(kPrefix) || name.starts_with(".kv-");
    if (!isOurs || ::lstat(path.c_str(), &status) != 0 || S_ISDIR(status.st_mode)) continue;
    if (made.st_mtime - status.st_mtime > kStale) ::unlink(path.c_str());
  }
}

std::string newTrialId() {
  std::random_device random;
  char text[9];
  std::snprintf(text, sizeof text, "%08x", random());
  return text;
}

ProbeFile::~ProbeFile() { ::unlink(path_.c_str()); }

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kPauseMicroseconds = 20'000;
constexpr std::size_t kIdLength = 8;
constexpr auto kBetweenTouches = std::chrono::milliseconds(500);

}  // namespace

FileMailbox::FileMailbox(const ProbeFolder& folder, std::string ownId)
    : folder_(folder), ownId_(std::move(ownId)) {}

FileMailbox::~FileMailbox() {
  for (const std::string& path : written_) ::unlink(path.c_str());
}

bool FileMailbox::post(const std::string& step, const JsonValue& letter) {
  const std::string path = folder_.file(ownId_, step);
  written_.push_back(path);
  return static_cast<bool>(writeAtomically(path, writeJson(letter)));
}

std::optional<JsonValue> FileMailbox::await(const std::string& id, const std::string& step,
                                            std::chrono::milliseconds patience) const {
  const auto deadline = Clock::now() + patience;
  while (writersOf(step).count(id) == 0) {
    if (Clock::now() >= deadline) return std::nullopt;
    ::usleep(kPauseMicroseconds);
  }
  const auto bytes = readFresh(folder_.file(id, step), kLargestList);
  if (!bytes) return std::nullopt;
  auto letter = parseJson(*bytes);
  if (!letter) return std::nullopt;
  return std::move(*letter);
}

// Lists the folder anew each time: a cached "not found" of a single file may last for long on a
// share.
std::set<std::string> FileMailbox::writersOf(const std::string& step) const {
  touchNowAndThen();
  std::set<std::string> writers;
  const auto names = listFresh(folder_.path());
  if (!names) return writers;
  const std::string head = nameOf(folder_.file("", ""));  // "kvd--"
  const std::string start = head.substr(0, head.size() - 1);
  const std::string ending = "-" + step;
  for (const std::string& name : *names) {
    if (name.size() != start.size() + kIdLength + ending.size() || !name.starts_with(start) ||
        !name.ends_with(ending)) {
      continue;
    }
    const std::string id = name.substr(start.size(), kIdLength);
    if (id != ownId_) writers.insert(id);
  }
  return writers;
}

void FileMailbox::touchNowAndThen() const {
  const auto now = Clock::now();
  if (now < nextTouch_) return;
  nextTouch_ = now + kBetweenTouches;
  static_cast<void>(::utimensat(AT_FDCWD, folder_.path().c_str(), nullptr, 0));
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kTimeToTake = std::chrono::seconds(10);

void holdUntilKilled(const ExclusiveOpen& open, const std::string& path, int pipe) {
  const OpenOutcome outcome = open(path);
  const char answer = static_cast<char>(outcome.problem);
  writeAll(pipe, {&answer, 1});
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
