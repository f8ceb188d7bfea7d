#include "station/os/FolderListing.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <new>
#include <system_error>
#include <thread>

#include "station/base/QuietThread.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

std::int64_t nanoseconds(const timespec& time) {
  return std::int64_t{time.tv_sec} * 1'000'000'000 + time.tv_nsec;
}

FileStamp stampOf(const struct stat& status) {
  return {status.st_dev,
          status.st_ino,
          static_cast<std::uint64_t>(status.st_size),
          nanoseconds(status.st_mtim),
          nanoseconds(status.st_ctim),
          status.st_nlink};
}

bool stampOpen(int descriptor, FileStamp& stamp) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return false;
  stamp = stampOf(status);
  return true;
}

/// A file that vanishes while the folder is read is not in the listing.
void addEntry(int folder, const char* name, FolderListing& listing) {
  struct stat status {};
  if (::fstatat(folder, name, &status, AT_SYMLINK_NOFOLLOW) != 0) return;
  if (S_ISREG(status.st_mode)) {
    listing.files.emplace(name, stampOf(status));
  } else {
    listing.others.emplace_back(name);
  }
}

}  // namespace

Result<FolderListing> listStamped(const std::string& folder, WantedName isWanted) {
  const OpenFolder directory(::opendir(folder.c_str()));
  FolderListing listing;
  if (!directory || !stampOpen(::dirfd(directory.get()), listing.folder)) {
    return errorFromErrno(errno, "list", folder);
  }
  errno = 0;
  while (const dirent* const entry = ::readdir(directory.get())) {
    if (isWanted(entry->d_name)) addEntry(::dirfd(directory.get()), entry->d_name, listing);
    errno = 0;
  }
  if (errno != 0) return errorFromErrno(errno, "list", folder);
  return listing;
}

// Some network file systems answer truly after the folder was opened, others only after an entry
// of it was read.
Result<FileStamp> stampOfFolder(const std::string& folder) {
  const Descriptor directory = openAfresh(folder);
  FileStamp stamp;
  if (!directory.isOpen() || !stampOpen(directory.get(), stamp)) {
    return errorFromErrno(errno, "look at", folder);
  }
  return stamp;
}

Result<StampedContent> readStamped(const std::string& path, std::size_t most) try {
  const Descriptor file = openPlainFile(path, O_RDONLY | O_NOFOLLOW);
  StampedContent content;
  if (!file.isOpen() || !stampOpen(file.get(), content.stamp)) {
    return errorFromErrno(errno, "read", path);
  }
  if (content.stamp.size > most) return tooLarge(path, most);
  content.bytes.reserve(content.stamp.size);
  if (!readAll(file.get(), content.bytes)) return errorFromErrno(errno, "read", path);
  return content;
} catch (const std::bad_alloc&) {
  return errorFromErrno(ENOMEM, "read", path);
}

Result<FileStamp> stampOfFile(const std::string& path) {
  struct stat status {};
  if (::lstat(path.c_str(), &status) != 0) return errorFromErrno(errno, "look at", path);
  if (S_ISREG(status.st_mode)) return stampOf(status);
  return errorFromErrno(S_ISDIR(status.st_mode) ? EISDIR : ELOOP, "look at", path);
}

Result<FileStamp> freshStampOfFile(const std::string& path) {
  lookAfresh(folderOf(path));
  return stampOfFile(path);
}

void inFlight(std::size_t count, const std::function<void(std::size_t)>& job) {
  std::atomic<std::size_t> next = 0;
  const auto work = [&] {
    for (std::size_t each = next++; each < count; each = next++) job(each);
  };
  std::vector<std::thread> threads;
  try {
    while (threads.size() + 1 < std::min(count, kMostInFlight)) {
      threads.push_back(threadWithoutSignals(work));
    }
  } catch (const std::system_error&) {
    // As many as the machine has are enough.
  }
  work();
  for (std::thread& thread : threads) thread.join();
}

bool isStillStamped(const std::string& path, const FileStamp& stamp) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 && stampOf(status) == stamp;
}

bool isSurelyGone(const std::string& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) != 0 && errno == ENOENT;
}

bool isAtRest(const FileStamp& stamp, std::int64_t moment) {
  return std::max(stamp.modified, stamp.changed) < moment - kCoarsestTick;
}

}  // namespace korvel
