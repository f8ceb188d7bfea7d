#include "tests/bench/HandWrittenLock.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace korvel {

namespace {

constexpr int kFlags = O_CLOEXEC | O_NONBLOCK | O_NOCTTY | O_NOFOLLOW;

bool lockWhole(int file, int command) {
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  return ::fcntl(file, command, &whole) == 0 && (command == F_OFD_SETLK || whole.l_type == F_UNLCK);
}

bool isPlain(int file) {
  struct stat status {};
  return ::fstat(file, &status) == 0 && S_ISREG(status.st_mode);
}

bool closeFile(int file) { return ::close(file) == 0; }

}  // namespace

HandWrittenLock::HandWrittenLock(const std::string& folder)
    : folder_(folder), lock_(folder + "/Lock"), info_(folder + "/Lock.inf") {}

bool HandWrittenLock::take(const std::string& name) {
  name_ = name;
  const int made = openLocked();
  if (made < 0 || !closeFile(made)) return false;
  held_ = openLocked();
  return held_ >= 0 && writeName(name);
}

bool HandWrittenLock::release() {
  return closeFile(held_) && removeLocked(lock_, "") && removeLocked(info_, name_);
}

bool HandWrittenLock::isOccupied() const {
  struct stat status {};
  return look() && ::stat(lock_.c_str(), &status) == 0;
}

std::string HandWrittenLock::owner() const {
  if (!look()) return {};
  const int file = ::open(info_.c_str(), O_RDONLY | kFlags);
  if (file < 0) return {};
  char bytes[200];
  ssize_t count = 0;
  if (isPlain(file) && lockWhole(file, F_OFD_GETLK)) count = ::read(file, bytes, sizeof bytes);
  closeFile(file);
  return {bytes, count > 0 ? static_cast<std::size_t>(count) : 0};
}

bool HandWrittenLock::look() const {
  DIR* const folder = ::opendir(folder_.c_str());
  if (!folder) return false;
  const bool read = ::readdir(folder) != nullptr;
  return ::closedir(folder) == 0 && read;
}

int HandWrittenLock::openOrMake(const std::string& path) const {
  const int file = ::open(path.c_str(), O_RDWR | kFlags);
  if (file >= 0) return isPlain(file) ? file : -1;
  const int made = ::open(path.c_str(), O_RDWR | O_CREAT | O_EXCL | kFlags, 0600);
  struct stat parent {};
  struct stat own {};
  if (made < 0 || ::fstat(made, &own) != 0 || ::stat(folder_.c_str(), &parent) != 0) return -1;
  if (own.st_gid != parent.st_gid && ::fchown(made, uid_t(-1), parent.st_gid) != 0) return -1;
  return ::fchmod(made, 0600 | (parent.st_mode & 0066)) == 0 ? made : -1;
}

int HandWrittenLock::openLocked() const {
  if (!look()) return -1;
  const int file = openOrMake(lock_);
  if (file < 0 || !lockWhole(file, F_OFD_SETLK)) return -1;
  return look() && isAtPath(file, lock_) ? file : -1;
}

bool HandWrittenLock::isAtPath(int file, const std::string& path) const {
  struct stat open {};
  struct stat named {};
  return ::fstat(file, &open) == 0 && ::lstat(path.c_str(), &named) == 0 &&
         open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

bool HandWrittenLock::writeName(const std::string& name) const {
  if (!look()) return false;
  const int file = openOrMake(info_);
  if (file < 0 || !lockWhole(file, F_OFD_GETLK)) return false;
  const bool written = ::ftruncate(file, 0) == 0 &&
                       ::write(file, name.data(), name.size()) == ssize_t(name.size()) &&
                       lockWhole(file, F_OFD_GETLK) && isAtPath(file, info_);
  return closeFile(file) && written;
}

bool HandWrittenLock::removeLocked(const std::string& path, const std::string& content) const {
  if (!look()) return false;
  const int file = ::open(path.c_str(), O_RDWR | kFlags);
  if (file < 0 || !isPlain(file) || !lockWhole(file, F_OFD_SETLK)) return false;
  std::string bytes(content.size(), '\0');
  const bool removed =
      look() && isAtPath(file, path) &&
      (content.empty() ||
       (::read(file, bytes.data(), bytes.size()) == ssize_t(bytes.size()) && bytes == content)) &&
      ::unlink(path.c_str()) == 0;
  return closeFile(file) && removed;
}

}  // namespace korvel
