#include "station/os/Posix.h"

#include <dirent.h>
#include <fcntl.h>
#include <linux/magic.h>
#include <sys/vfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <mutex>
#include <optional>
#include <thread>
#include <utility>

namespace korvel {

namespace {

/// A removal holds a file for well under a tenth of a second, on the slowest of shares.
constexpr int kRemovalTries = 40;
constexpr std::chrono::milliseconds kRemovalPause(5);

thread_local const LookedAfresh* lookedAfresh = nullptr;

}  // namespace

Descriptor& Descriptor::operator=(Descriptor&& other) noexcept {
  std::swap(number_, other.number_);
  return *this;
}

Descriptor::~Descriptor() {
  if (number_ < 0) return;
  // Callers report errno after their descriptors are gone; close() must not change it.
  const int before = errno;
  ::close(number_);
  errno = before;
}

int Descriptor::release() { return std::exchange(number_, -1); }

std::string folderOf(const std::string& path) {
  const std::size_t separator = path.rfind('/');
  if (separator == std::string::npos) return ".";
  return separator == 0 ? "/" : path.substr(0, separator);
}

std::string nameOf(const std::string& path) { return path.substr(path.rfind('/') + 1); }

bool lookAt(int folder, const char* name, struct statx& status, int flags) {
  constexpr unsigned kAsked =
      STATX_TYPE | STATX_INO | STATX_SIZE | STATX_MTIME | STATX_CTIME | STATX_NLINK;
  flags |= AT_SYMLINK_NOFOLLOW | (*name == '\0' ? AT_EMPTY_PATH : 0);
  return ::statx(folder, name, flags, kAsked, &status) == 0;
}

// SMB asks its server again only when an entry is read: without that it went on answering with the
// old content. Others are taken to be like it.
bool isFreshOnceOpened(std::int64_t kind) {
  switch (kind) {
    case NFS_SUPER_MAGIC:
    case EXT4_SUPER_MAGIC:
    case XFS_SUPER_MAGIC:
    case BTRFS_SUPER_MAGIC:
    case TMPFS_MAGIC:
      return true;
    default:
      return false;
  }
}

namespace {

/// Remembers which file systems are fresh once a folder is opened, by device: asking for the kind
/// is a question to the share, too.
class FreshDevices {
 public:
  bool contains(int folder, const struct statx& status) {
    const std::pair device(status.stx_dev_major, status.stx_dev_minor);
    const auto now = std::chrono::steady_clock::now();
    const std::lock_guard lock(mutex_);
    Kind& known = known_[device];
    if (known.asked && now - *known.asked < kHolds) return known.isFresh;
    struct statfs system {};
    known.isFresh = ::fstatfs(folder, &system) == 0 && isFreshOnceOpened(system.f_type);
    known.asked = now;
    return known.isFresh;
  }

 private:
  /// A file system of another kind that is mounted in its place may get the same device.
  static constexpr std::chrono::minutes kHolds{1};

  struct Kind {
    std::optional<std::chrono::steady_clock::time_point> asked;
    bool isFresh = false;
  };

  std::mutex mutex_;
  std::map<std::pair<unsigned, unsigned>, Kind> known_;
};

/// Never destroyed: threads that wait for a share may outlive main().
FreshDevices& freshDevices() {
  static auto* const devices = new FreshDevices;
  return *devices;
}

}  // namespace

// One entry: a whole block, as readdir() asks for, costs more the larger the folder is.
Descriptor openAfresh(const std::string& folder, struct statx& status) {
  Descriptor opened(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC | O_NONBLOCK));
  if (!opened.isOpen() || !lookAt(opened.get(), "", status)) return Descriptor();
  if (freshDevices().contains(opened.get(), status)) return opened;
  alignas(dirent64) char entry[sizeof(dirent64)];
  if (::getdents64(opened.get(), entry, sizeof entry) < 0) return Descriptor();
  return lookAt(opened.get(), "", status) ? std::move(opened) : Descriptor();
}

bool isFreshOnceOpened(const std::string& folder) {
  const Descriptor opened(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  struct statx status {};
  return opened.isOpen() && lookAt(opened.get(), "", status, AT_STATX_DONT_SYNC) &&
         freshDevices().contains(opened.get(), status);
}

bool lookAfresh(const std::string& folder) {
  struct statx status {};
  return (lookedAfresh && lookedAfresh->folder_ == folder) || openAfresh(folder, status).isOpen();
}

bool wasMissing(const std::string& path) {
  if (!lookedAfresh || lookedAfresh->folder_ != folderOf(path)) return false;
  if (std::ranges::find(lookedAfresh->missing_, nameOf(path)) == lookedAfresh->missing_.end()) {
    return false;
  }
  errno = ENOENT;
  return true;
}

LookedAfresh::LookedAfresh(std::string folder, std::vector<std::string_view> missing)
    : folder_(std::move(folder)), missing_(std::move(missing)) {
  lookedAfresh = this;
}

LookedAfresh::~LookedAfresh() { lookedAfresh = nullptr; }

Descriptor openPlainFile(const std::string& path, int flags) {
  struct statx status {};
  return openPlainFile(path, flags, status);
}

Descriptor openPlainFile(const std::string& path, int flags, struct statx& status) {
  int number = -1;
  do {
    // O_NONBLOCK: a pipe put in the file's place would hold open() up for good. 0600: a new file is
    // for its maker alone until shareLikeFolder() gives it its group.
    number = ::open(path.c_str(), flags | O_CLOEXEC | O_NONBLOCK | O_NOCTTY, 0600);
  } while (number < 0 && errno == EINTR);
  Descriptor file(number);
  if (!file.isOpen() || !lookAt(file.get(), "", status)) return Descriptor();
  if (S_ISREG(status.stx_mode)) return file;
  errno = S_ISDIR(status.stx_mode) ? EISDIR : ENXIO;
  return Descriptor();
}

Descriptor openToChange(const std::string& path, int flags) {
  struct statx status {};
  Descriptor file = openPlainFile(path, flags, status);
  if (!file.isOpen() || status.stx_nlink <= 1) return file;
  errno = EMLINK;
  return Descriptor();
}

void shareLikeFolder(int descriptor, const std::string& folder) {
  struct stat parent {};
  struct stat own {};
  if (::stat(folder.c_str(), &parent) != 0 || ::fstat(descriptor, &own) != 0) return;
  const bool isFolder = S_ISDIR(own.st_mode);
  // The group first: the mode below may give the group's rights only to the folder's own group.
  const bool sameGroup =
      own.st_gid == parent.st_gid || ::fchown(descriptor, uid_t(-1), parent.st_gid) == 0;
  // Members of a group that is not the folder's are to the folder what all others are.
  const mode_t others = parent.st_mode & 0007U;
  mode_t mode = sameGroup ? parent.st_mode & 0077U : others | others << 3U;
  if (!isFolder) mode &= 0066U;
  mode |= isFolder ? 0700U | (parent.st_mode & S_ISGID) : 0600U;
  // A file system without such rights of its own refuses; the file is then as open as its mount.
  if (::fchmod(descriptor, mode) != 0) errno = 0;
}

namespace {

/// Appends at most `most` bytes. How many; -1 and errno on failure.
ssize_t readSome(int descriptor, std::size_t most, std::string& bytes) {
  char block[1 << 16];
  for (;;) {
    const ssize_t count = ::read(descriptor, block, std::min(most, sizeof block));
    if (count > 0) bytes.append(block, static_cast<std::size_t>(count));
    if (count >= 0 || errno != EINTR) return count;
  }
}

}  // namespace

bool readAll(int descriptor, std::string& bytes) {
  for (;;) {
    const ssize_t count = readSome(descriptor, SIZE_MAX, bytes);
    if (count <= 0) return count == 0;
  }
}

bool readSized(int descriptor, std::size_t size, std::string& bytes) {
  while (size > 0) {
    const ssize_t count = readSome(descriptor, size, bytes);
    if (count <= 0) return count == 0;
    size -= static_cast<std::size_t>(count);
  }
  return true;
}

bool tryLock(int descriptor) {
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  // A lock of the open file description: another descriptor of this process that is closed does not
  // end it, as it would end a plain POSIX lock. It never waits: a holder's machine may be dead, and
  // its lock can outlive it for minutes.
  while (::fcntl(descriptor, F_OFD_SETLK, &whole) != 0) {
    if (errno == EACCES) errno = EAGAIN;  // what SMB says to a lock that another holds
    if (errno != EINTR) return false;
  }
  return true;
}

bool isLockedByAnother(int descriptor) {
  struct flock whole {};
  whole.l_type = F_WRLCK;
  whole.l_whence = SEEK_SET;
  if (::fcntl(descriptor, F_OFD_GETLK, &whole) == 0) return whole.l_type != F_UNLCK;
  return errno == EAGAIN || errno == EACCES;
}

bool waitForRemoval(int descriptor) {
  for (int tries = 0; tries < kRemovalTries; ++tries) {
    if (!isLockedByAnother(descriptor)) return true;
    // Locks of an open file description cannot be waited for with a limit; this is asked again.
    std::this_thread::sleep_for(kRemovalPause);
  }
  return false;
}

bool isStillAt(int descriptor, const std::string& path) {
  struct stat open {};
  struct stat named {};
  if (::fstat(descriptor, &open) != 0 || ::lstat(path.c_str(), &named) != 0) return false;
  return open.st_dev == named.st_dev && open.st_ino == named.st_ino;
}

}  // namespace korvel
