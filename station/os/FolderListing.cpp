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
#include <memory>
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

/// A wanted name of a folder, and what is there.
struct Entry {
  enum class Kind { eVanished, eFile, eOther };

  std::string name;
  Kind kind = Kind::eVanished;
  FileStamp stamp;
};

/// How many bytes of entries are read before the states of their files are asked for: some 1 800
/// names. NFS sends names and states together as long as the states are asked for in between.
constexpr std::size_t kBlock = std::size_t{128} << 10;

/// How many states one thread asks for.
constexpr std::size_t kStatesAtOnce = 256;

std::vector<Entry> wantedIn(const char* block, std::size_t size, WantedName isWanted) {
  std::vector<Entry> wanted;
  for (std::size_t at = 0; at < size;) {
    const auto* const entry = reinterpret_cast<const dirent64*>(block + at);
    if (isWanted(entry->d_name)) wanted.push_back({entry->d_name, {}, {}});
    at += entry->d_reclen;
  }
  return wanted;
}

/// Several threads, since each state may take a round trip, and always takes this machine some
/// time.
void stampAll(int folder, std::vector<Entry>& entries) {
  inFlight((entries.size() + kStatesAtOnce - 1) / kStatesAtOnce, [&](std::size_t part) {
    const std::size_t end = std::min(entries.size(), (part + 1) * kStatesAtOnce);
    for (std::size_t at = part * kStatesAtOnce; at < end; ++at) {
      struct statx status {};
      if (!lookAt(folder, entries[at].name.c_str(), status)) continue;
      entries[at].kind = S_ISREG(status.stx_mode) ? Entry::Kind::eFile : Entry::Kind::eOther;
      entries[at].stamp = stampOf(status);
    }
  });
}

}  // namespace

StampedFiles::StampedFiles(std::vector<File> files) : files_(std::move(files)) {
  std::ranges::sort(files_, {}, &File::name);
  const auto isSame = [](const File& a, const File& b) { return a.name == b.name; };
  files_.erase(std::unique(files_.begin(), files_.end(), isSame), files_.end());
}

const FileStamp* StampedFiles::find(std::string_view name) const {
  const auto at = std::ranges::lower_bound(files_, name, {}, &File::name);
  return at != files_.end() && at->name == name ? &at->stamp : nullptr;
}

Result<FolderListing> listStamped(const std::string& folder, WantedName isWanted) {
  const Descriptor directory(::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  struct statx status {};
  // Stamped before the entries are read: a change meanwhile shows as another stamp at the next
  // look.
  if (!directory.isOpen() || !lookAt(directory.get(), "", status)) {
    return errorFromErrno(errno, "list", folder);
  }
  // NFS keeps a folder's names for as long as its time of change stays, but the states of its files
  // for seconds. Once it has forgotten the names, it asks for both together, a hundred in one round
  // trip, instead of for each state.
  ::posix_fadvise(directory.get(), 0, 0, POSIX_FADV_DONTNEED);
  FolderListing listing{stampOf(status), {}, {}};
  std::vector<StampedFiles::File> files;
  const auto block = std::make_unique_for_overwrite<char[]>(kBlock);
  ssize_t size = 0;
  while ((size = ::getdents64(directory.get(), block.get(), kBlock)) > 0) {
    std::vector<Entry> entries = wantedIn(block.get(), static_cast<std::size_t>(size), isWanted);
    stampAll(directory.get(), entries);
    for (Entry& each : entries) {
      if (each.kind == Entry::Kind::eFile) files.push_back({std::move(each.name), each.stamp});
      if (each.kind == Entry::Kind::eOther) listing.others.push_back(std::move(each.name));
    }
  }
  if (size < 0) return errorFromErrno(errno, "list", folder);
  listing.files = StampedFiles(std::move(files));
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
