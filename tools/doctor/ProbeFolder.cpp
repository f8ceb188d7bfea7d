#include "tools/doctor/ProbeFolder.h"

#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <ctime>
#include <random>

#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

constexpr std::string_view kPrefix = "kvd-";
constexpr std::time_t kStale = 600;  // seconds
constexpr int kTries = 20;
constexpr unsigned kPause = 10'000;  // microseconds

/// Whether the folder went between two looks at it.
bool isGone(const Error& problem) {
  return problem.code == ErrorCode::eNotFound || problem.code == ErrorCode::eStale;
}

}  // namespace

ProbeFolder::~ProbeFolder() {
  if (!mark_.empty()) ::unlink(mark_.c_str());
  ::rmdir(path_.c_str());
}

/// A trial on another machine may end, and remove the folder, before there is a file in it.
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
  if (!made) removeStale();
  return {};
}

std::string ProbeFolder::file(const std::string& id, const std::string& step) const {
  return path_ + "/" + std::string(kPrefix) + id + "-" + step;
}

/// Ages are counted by the share's clock: against the time of a file that is made now.
void ProbeFolder::removeStale() const {
  const ProbeFile now(file(newTrialId(), "now"));
  struct stat made {};
  if (!writeAtomically(now.path(), "") || ::lstat(now.path().c_str(), &made) != 0) return;
  const auto names = listFresh(path_);
  if (!names) return;
  for (const std::string& name : *names) {
    const std::string path = path_ + "/" + name;
    struct stat status {};
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

}  // namespace korvel
