#include "station/keep/FileIdentity.h"

#include <sys/stat.h>

#include <cerrno>

#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

std::int64_t nanoseconds(const timespec& time) {
  constexpr std::int64_t kSecond = 1'000'000'000;
  return time.tv_sec * kSecond + time.tv_nsec;
}

}  // namespace

Result<FileIdentity> identityOf(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return errorFromErrno(errno, "look at", path);
  if (!S_ISREG(status.st_mode)) {
    return errorFromErrno(S_ISDIR(status.st_mode) ? EISDIR : ELOOP, "look at", path);
  }
  return FileIdentity{status.st_dev,
                      status.st_ino,
                      static_cast<std::size_t>(status.st_size),
                      nanoseconds(status.st_mtim),
                      nanoseconds(status.st_ctim),
                      status.st_nlink};
}

Result<FileIdentity> freshIdentityOf(const std::string& path) {
  lookAfresh(folderOf(path));
  return identityOf(path);
}

}  // namespace korvel
