#include "station/os/FolderListing.h"

#include <dirent.h>
#include <fcntl.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <exception>
#include <new>
#include <thread>

#include "station/base/HostThread.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

std::int64_t nanoseconds(const statx_timestamp& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

FileStamp stampOf(const struct statx& status) {
  return {::makedev(status.stx_dev_major, status.stx_dev_minor),
          status.stx_ino,
          status.stx_size,
          nanoseconds(status.stx_mtime),
          nanoseconds(status.stx_ctime),
          status.stx_nlink};
}

bool stampOpen(int descriptor, FileStamp& stamp) {
  struct statx status {};
  if (!lookAt(descriptor, "", status)) return false;
  stamp = stampOf(status);
  return true;
}

/// A file that vanishes while the folder is read is not in the listing.
void addEntry(int folder, const char* name, FolderListing& listing) {
  struct statx status {};
  if (!lookAt(folder, name, status)) return;
  if (S_ISREG(status.stx_mode)) {
    listing.files.emplace(name, stampOf(status));
  } else {
    listing.others.emplace_back(name);
  }
}

}  // namespace

Result<FolderListing> listStamped(const std::string& folder, WantedName isWanted) {
  const OpenFolder directory(::opendir(folder.c_str()));
  FolderListing listing;
  // Stamped before the entries are read: a change meanwhile shows as another stamp at the next
  // look.
  if (!directory || !stampOpen(::dirfd(directory.get()), listing.folder)) {
    return errorFromErrno(errno, "list", folder);
  }
  // NFS keeps a folder's names for as long as its time of change stays, but the states of its files
  // for seconds. Once it has forgotten the names, it asks for both together, a hundred in one round
  // trip, instead of for each state.
  ::posix_fadvise(::dirfd(directory.get()), 0, 0, POSIX_FADV_DONTNEED);
  // readdir() returns null at the end and on failure; only errno tells the two apart.
  errno = 0;
  while (const dirent* const entry = ::readdir(directory.get())) {
    if (isWanted(entry->d_name)) addEntry(::dirfd(directory.get()), entry->d_name, listing);
    errno = 0;
  }
  if (errno != 0) return errorFromErrno(errno, "list", folder);
  return listing;
}

Result<FileStamp> stampOfFolder(const std::string& folder) {
  struct statx status {};
  if (openAfresh(folder, status).isOpen()) return stampOf(status);
  return errorFromErrno(errno, "look at", folder);
}

Result<StampedContent> readStamped(const std::string& path, std::size_t most) try {
  struct statx status {};
  // Stamped before the bytes are read: where another writer changes them meanwhile, the stamp is
  // too old and the file is read again, instead of never.
  const Descriptor file = openPlainFile(path, O_RDONLY | O_NOFOLLOW, status);
  if (!file.isOpen()) return errorFromErrno(errno, "read", path);
  StampedContent content{stampOf(status), {}};
  if (content.stamp.size > most) return tooLarge(path, most);
  content.bytes.reserve(content.stamp.size);
  if (!readSized(file.get(), content.stamp.size, content.bytes)) {
    return errorFromErrno(errno, "read", path);
  }
  return content;
} catch (const std::bad_alloc&) {
  return errorFromErrno(ENOMEM, "read", path);
}

Result<FileStamp> stampOfFile(const std::string& path) {
  struct statx status {};
  if (!lookAt(AT_FDCWD, path.c_str(), status)) return errorFromErrno(errno, "look at", path);
  if (S_ISREG(status.stx_mode)) return stampOf(status);
  const int problem = S_ISDIR(status.stx_mode) ? EISDIR : S_ISLNK(status.stx_mode) ? ELOOP : ENXIO;
  return errorFromErrno(problem, "look at", path);
}

Result<FileStamp> freshStampOfFile(const std::string& path) {
  lookAfresh(folderOf(path));
  return stampOfFile(path);
}

void inFlight(std::size_t count, const std::function<void(std::size_t)>& job) {
  std::atomic<std::size_t> next = 0;
  std::atomic<bool> hasFailed = false;
  std::exception_ptr failure;
  const auto work = [&] {
    try {
      for (std::size_t each = next++; each < count; each = next++) job(each);
    } catch (...) {
      // No thread takes another job.
      next = count;
      if (!hasFailed.exchange(true)) failure = std::current_exception();
    }
  };
  std::array<std::thread, kMostInFlight - 1> threads;
  try {
    for (std::size_t each = 0; each + 1 < std::min(count, kMostInFlight); ++each) {
      threads[each] = threadWithoutSignals(work);
    }
  } catch (const std::exception&) {
    // The threads that were started do the work; without any, this one does it alone.
  }
  work();
  for (std::thread& thread : threads) {
    if (thread.joinable()) thread.join();
  }
  if (failure) std::rethrow_exception(failure);
}

bool isStillStamped(const std::string& path, const FileStamp& stamp) {
  struct statx status {};
  return lookAt(AT_FDCWD, path.c_str(), status) && stampOf(status) == stamp;
}

bool isSurelyGone(const std::string& path) {
  struct statx status {};
  return !lookAt(AT_FDCWD, path.c_str(), status) && errno == ENOENT;
}

bool isAtRest(const FileStamp& stamp, std::int64_t moment) {
  // A copy that keeps its original's time sets `modified` to the past, but never `changed`.
  return std::max(stamp.modified, stamp.changed) < moment - kCoarsestTick;
}

namespace {

// IN_CLOSE_WRITE rather than IN_MODIFY: one notice for a file, once it is whole.
constexpr std::uint32_t kChanges = IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO |
                                   IN_CLOSE_WRITE | IN_DELETE_SELF | IN_MOVE_SELF | IN_ONLYDIR;

int millisecondsUntil(FolderNotices::Clock::time_point until) {
  const auto left =
      // Rounded up: rounded down, the caller would spin through the last millisecond.
      std::chrono::ceil<std::chrono::milliseconds>(until - FolderNotices::Clock::now());
  return static_cast<int>(std::clamp<std::int64_t>(left.count(), 0, 3'600'000));
}

}  // namespace

FolderNotices::FolderNotices()
    : notices_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
      wakes_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

bool FolderNotices::watch(const std::string& folder) {
  if (!notices_.isOpen()) return false;
  const int number = ::inotify_add_watch(notices_.get(), folder.c_str(), kChanges);
  if (number < 0) return false;
  folders_[number] = folder;
  return true;
}

std::set<std::string> FolderNotices::await(Clock::time_point until) {
  std::array<pollfd, 2> waited{{{wakes_.get(), POLLIN, 0}, {notices_.get(), POLLIN, 0}}};
  if (::poll(waited.data(), waited.size(), millisecondsUntil(until)) <= 0) return {};
  return taken();
}

void FolderNotices::pause(Clock::time_point until) {
  pollfd waited{wakes_.get(), POLLIN, 0};
  ::poll(&waited, 1, millisecondsUntil(until));
}

void FolderNotices::wake() {
  // The counter is never read back, so that every later wait ends at once, too.
  const std::uint64_t one = 1;
  // The counter can only be full, and then it is readable already.
  [[maybe_unused]] const ssize_t written = ::write(wakes_.get(), &one, sizeof one);
}

std::set<std::string> FolderNotices::taken() {
  std::set<std::string> changed;
  alignas(inotify_event) std::array<char, 1 << 14> buffer;
  for (;;) {
    const ssize_t count = ::read(notices_.get(), buffer.data(), buffer.size());
    if (count <= 0) return changed;
    for (ssize_t at = 0; at < count;) {
      inotify_event notice{};
      std::memcpy(&notice, buffer.data() + at, sizeof notice);
      at += static_cast<ssize_t>(sizeof notice + notice.len);
      // After an overflow any folder may have changed.
      for (const auto& [number, folder] : folders_) {
        if (number == notice.wd || (notice.mask & IN_Q_OVERFLOW)) changed.insert(folder);
      }
      if (notice.mask & IN_IGNORED) folders_.erase(notice.wd);
    }
  }
}

}  // namespace korvel
