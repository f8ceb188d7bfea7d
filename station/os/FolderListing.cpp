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
#include <condition_variable>
#include <cstring>
#include <deque>
#include <exception>
#include <memory>
#include <mutex>
#include <new>
#include <span>
#include <system_error>
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

  StampedFiles::File file;
  Kind kind = Kind::eVanished;
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
    if (isWanted(entry->d_name)) wanted.push_back({{entry->d_name, {}}, {}});
    at += entry->d_reclen;
  }
  return wanted;
}

/// Asks for the states of a folder's files while its names are still read: each may take a round
/// trip, and always takes this machine some time. Threads are started once there is work for them.
class Stamping {
 public:
  explicit Stamping(int folder) : folder_(folder) { threads_.reserve(kMostInFlight); }
  Stamping(const Stamping&) = delete;
  Stamping& operator=(const Stamping&) = delete;
  ~Stamping() { finish(); }

  void add(std::vector<Entry> names);

  /// Asks for the states of a part of them on the calling thread.
  void askForSome();

  /// All that were added, each with its state.
  std::deque<std::vector<Entry>>& finish();

 private:
  using Part = std::span<Entry>;

  void startThreads(std::size_t wanted);
  void askUntilWhole();
  Part next(bool waits);
  static void ask(int folder, Part part);

  const int folder_;
  std::deque<std::vector<Entry>> blocks_;
  std::mutex mutex_;
  std::condition_variable added_;
  std::deque<Part> parts_;  ///< what no thread has begun with
  bool isWhole_ = false;    ///< nothing will be added
  std::vector<std::thread> threads_;
};

void Stamping::add(std::vector<Entry> names) {
  std::vector<Entry>& block = blocks_.emplace_back(std::move(names));
  std::unique_lock lock(mutex_);
  for (std::size_t at = 0; at < block.size(); at += kStatesAtOnce) {
    parts_.push_back(Part(block).subspan(at, std::min(kStatesAtOnce, block.size() - at)));
  }
  const std::size_t left = parts_.size();
  lock.unlock();
  added_.notify_all();
  startThreads(std::min(left, kMostInFlight));
}

void Stamping::startThreads(std::size_t wanted) {
  try {
    // The calling thread is one of them.
    while (threads_.size() + 1 < wanted) {
      threads_.push_back(threadWithoutSignals([this] { askUntilWhole(); }));
    }
  } catch (const std::system_error&) {
    // Those that were started do the work; without any, the calling thread does it alone.
  }
}

/// Through a descriptor of its own where there is one left: threads that use the same get into each
/// other's way with every call, which takes a sixth of the time.
void Stamping::askUntilWhole() {
  const Descriptor own(::openat(folder_, ".", O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  const int folder = own.isOpen() ? own.get() : folder_;
  for (Part part = next(true); !part.empty(); part = next(true)) ask(folder, part);
}

void Stamping::askForSome() { ask(folder_, next(false)); }

std::deque<std::vector<Entry>>& Stamping::finish() {
  for (Part part = next(false); !part.empty(); part = next(false)) ask(folder_, part);
  {
    const std::lock_guard lock(mutex_);
    isWhole_ = true;
  }
  added_.notify_all();
  for (std::thread& each : threads_) each.join();
  threads_.clear();
  return blocks_;
}

/// What to ask for next. Empty where nothing is left: for good, or for now where nobody waits.
Stamping::Part Stamping::next(bool waits) {
  std::unique_lock lock(mutex_);
  if (waits) added_.wait(lock, [this] { return !parts_.empty() || isWhole_; });
  if (parts_.empty()) return {};
  const Part part = parts_.front();
  parts_.pop_front();
  return part;
}

void Stamping::ask(int folder, Part part) {
  for (Entry& each : part) {
    struct statx status {};
    if (!lookAt(folder, each.file.name.c_str(), status)) continue;
    each.kind = S_ISREG(status.stx_mode) ? Entry::Kind::eFile : Entry::Kind::eOther;
    each.file.stamp = stampOf(status);
  }
}

/// How many letters all names begin with.
std::size_t commonLetters(const std::vector<StampedFiles::File>& files) {
  std::size_t count = files.empty() ? 0 : files.front().name.size();
  for (const StampedFiles::File& each : files) {
    const std::string& first = files.front().name;
    count = std::min(count, each.name.size());
    const auto end = first.begin() + static_cast<std::ptrdiff_t>(count);
    count = static_cast<std::size_t>(std::mismatch(first.begin(), end, each.name.begin()).first -
                                     first.begin());
  }
  return count;
}

/// Eight letters of a name as a number that is in order where they are.
std::uint64_t orderOf(const std::string& name, std::size_t from) {
  std::uint64_t order = 0;
  for (std::size_t at = from; at < from + sizeof order; ++at) {
    order = order << 8 | (at < name.size() ? static_cast<unsigned char>(name[at]) : 0);
  }
  return order;
}

/// By their names. Numbers decide nearly always, and are compared and moved in a third of the time
/// that the files take.
void sortByName(std::vector<StampedFiles::File>& files) {
  struct Place {
    std::uint64_t order;
    std::size_t at;
  };
  const std::size_t common = commonLetters(files);
  std::vector<Place> places;
  places.reserve(files.size());
  for (const StampedFiles::File& each : files) {
    places.push_back({orderOf(each.name, common), places.size()});
  }
  std::ranges::sort(places, [&files](const Place& a, const Place& b) {
    if (a.order != b.order) return a.order < b.order;
    return files[a.at].name < files[b.at].name;
  });
  std::vector<StampedFiles::File> sorted;
  sorted.reserve(files.size());
  for (const Place& each : places) sorted.push_back(std::move(files[each.at]));
  files = std::move(sorted);
}

}  // namespace

StampedFiles::StampedFiles(std::vector<File> files) : files_(std::move(files)) {
  sortByName(files_);
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
  const auto block = std::make_unique_for_overwrite<char[]>(kBlock);
  Stamping stamping(directory.get());
  ssize_t size = 0;
  while ((size = ::getdents64(directory.get(), block.get(), kBlock)) > 0) {
    stamping.add(wantedIn(block.get(), static_cast<std::size_t>(size), isWanted));
    stamping.askForSome();
  }
  if (size < 0) return errorFromErrno(errno, "list", folder);
  std::vector<StampedFiles::File> files;
  for (std::vector<Entry>& entries : stamping.finish()) {
    for (Entry& each : entries) {
      if (each.kind == Entry::Kind::eFile) files.push_back(std::move(each.file));
      if (each.kind == Entry::Kind::eOther) listing.others.push_back(std::move(each.file.name));
    }
  }
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

namespace {

Result<FileStamp> plainStampOf(const std::string& path, int flags) {
  struct statx status {};
  if (!lookAt(AT_FDCWD, path.c_str(), status, flags)) return errorFromErrno(errno, "look at", path);
  if (S_ISREG(status.stx_mode)) return stampOf(status);
  const int problem = S_ISDIR(status.stx_mode) ? EISDIR : S_ISLNK(status.stx_mode) ? ELOOP : ENXIO;
  return errorFromErrno(problem, "look at", path);
}

}  // namespace

Result<FileStamp> stampOfFile(const std::string& path) { return plainStampOf(path, 0); }

Result<FileStamp> knownStampOfFile(const std::string& path) {
  return plainStampOf(path, AT_STATX_DONT_SYNC);
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
