#include "station/media/MediaFiles.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstring>
#include <string_view>
#include <system_error>
#include <utility>

#include "host/media/DiskManager.h"
#include "host/os/Files.h"
#include "station/base/HostThread.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

constexpr std::size_t kHeadSize = 64;

struct Signature {
  std::size_t at;
  std::string_view bytes;
  const char* format;
};

constexpr Signature kSignatures[] = {
    {4, "ftyp", "QuickTime or MP4"},
    {4, "moov", "QuickTime"},
    {4, "mdat", "QuickTime"},
    {0, "\x06\x0E\x2B\x34", "MXF"},
    {8, "AVI ", "AVI"},
    {8, "WAVE", "Wave"},
    {0, "\x1A\x45\xDF\xA3", "Matroska"},
    {0, "FORM", "AIFF"},
    {0, "SDPX", "DPX"},
    {0, "XPDS", "DPX"},
};

std::string formatOf(std::string_view head) {
  for (const Signature& signature : kSignatures) {
    if (head.size() < signature.at) continue;
    if (head.substr(signature.at).starts_with(signature.bytes)) return signature.format;
  }
  return {};
}

}  // namespace

std::shared_ptr<MediaFiles> MediaFiles::shared() {
  static const auto files = std::make_shared<MediaFiles>();
  return files;
}

MediaFiles& MediaFiles::instance() { return *shared(); }

namespace {

// Closing asks the mount, too, on some file systems.
void closeOnAThread(int descriptor) {
  try {
    threadWithoutSignals([descriptor] { ::close(descriptor); }).detach();
  } catch (const std::system_error&) {
    ::close(descriptor);
  }
}

MediaLook lookOf(std::uint64_t size, std::string_view head) {
  return {true, size, {}, formatOf(head)};
}

MediaLook noFile(int problem) {
  return {false, 0, problem == 0 ? "no plain file" : std::strerror(problem), {}};
}

std::string headOf(int descriptor) {
  std::string bytes(kHeadSize, '\0');
  const ssize_t count = ::pread(descriptor, bytes.data(), bytes.size(), 0);
  bytes.resize(static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
  return bytes;
}

}  // namespace

MediaFiles::~MediaFiles() {
  for (const auto& [path, descriptor] : open_) ::close(descriptor);
}

MediaLook MediaFiles::look(const std::string& path) {
  Stamp stamp;
  errno = 0;
  const bool isThere = stampAt(path, stamp);
  const int missing = errno;
  std::uint64_t closings = 0;
  {
    const std::lock_guard lock(mutex_);
    closings = closings_;
    // The descriptor would still lead to the file that was there before.
    if (!isThere) letGo(path);
    if (const auto head = isThere ? kept(path, stamp) : std::nullopt) {
      return lookOf(stamp.size, *head);
    }
  }
  if (!isThere) return noFile(missing);
  errno = 0;
  // O_NONBLOCK: a pipe could have taken the file's place since it was looked at.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (descriptor < 0) return noFile(errno);
  Head head{stamp, headOf(descriptor)};
  const MediaLook look = lookOf(stamp.size, head.bytes);
  keep(path, descriptor, std::move(head), closings);
  return look;
}

void MediaFiles::close(const std::string& path) {
  const std::lock_guard lock(mutex_);
  ++closings_;
  const auto found = open_.find(path);
  if (found == open_.end()) return;
  closeOnAThread(found->second);
  open_.erase(found);
  std::erase(order_, path);
}

void MediaFiles::dropHead(const std::string& path) {
  const std::lock_guard lock(mutex_);
  ++closings_;
  heads_.erase(path);
}

bool MediaFiles::isOpen(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  return open_.contains(path);
}

bool MediaFiles::keepsHead(const std::string& path) const {
  const std::lock_guard lock(mutex_);
  return heads_.contains(path);
}

bool MediaFiles::stampAt(const std::string& path, Stamp& stamp) {
  struct stat found {};
  if (::stat(path.c_str(), &found) != 0 || !S_ISREG(found.st_mode)) return false;
  constexpr std::int64_t kNanoseconds = 1'000'000'000;
  stamp = {found.st_dev, found.st_ino, static_cast<std::uint64_t>(found.st_size),
           found.st_mtim.tv_sec * kNanoseconds + found.st_mtim.tv_nsec};
  return true;
}

std::optional<std::string> MediaFiles::kept(const std::string& path, const Stamp& stamp) {
  const auto head = heads_.find(path);
  if (head != heads_.end() && head->second.stamp == stamp && open_.contains(path)) {
    return head->second.bytes;
  }
  letGo(path);
  return std::nullopt;
}

void MediaFiles::keep(const std::string& path, int descriptor, Head head, std::uint64_t closings) {
  const std::lock_guard lock(mutex_);
  // Given up while it was looked at: an open descriptor would keep the removed file on the share.
  if (closings != closings_ || open_.contains(path)) return closeOnAThread(descriptor);
  if (open_.size() >= kMaxOpen) {
    const auto oldest = open_.find(order_.front());
    closeOnAThread(oldest->second);
    open_.erase(oldest);
    order_.pop_front();
  }
  open_.emplace(path, descriptor);
  order_.push_back(path);
  heads_.insert_or_assign(path, std::move(head));
}

void MediaFiles::letGo(const std::string& path) {
  heads_.erase(path);
  const auto found = open_.find(path);
  if (found == open_.end()) return;
  closeOnAThread(found->second);
  open_.erase(found);
  std::erase(order_, path);
}

/// What the looks and their threads share. A thread that waits for a mount may live longer than the
/// looks.
class MediaLooks::Work : public std::enable_shared_from_this<Work> {
 public:
  explicit Work(Look look) : look_(std::move(look)) {}

  void ask(const std::string& path, const std::string& root) {
    const std::lock_guard lock(mutex_);
    Asked& asked = asked_[path];
    if (asked.isWaiting) return;
    // Also where it is being looked at: it may have changed since that began.
    asked = {root, ++number_, true};
    lanes_[root].waiting.push_back(path);
    if (threads_ >= kMostThreads || !laneToWork()) return;
    try {
      threadWithoutSignals([self = shared_from_this()] { self->work(); }).detach();
      ++threads_;
    } catch (const std::system_error&) {
      // There is no thread to be had now. It is asked again when the files are listed.
    }
  }

  std::optional<MediaLook> lookNow(const std::string& path, const std::string& root, Limit limit) {
    ask(path, root);
    std::unique_lock lock(mutex_);
    if (!changes_.wait_for(lock, limit, [&] { return !asked_.contains(path); })) return {};
    const auto found = answers_.find(path);
    return found == answers_.end() ? std::nullopt : std::optional(found->second);
  }

  void await(Limit limit) {
    const auto deadline = Clock::now() + limit;
    std::unique_lock lock(mutex_);
    while (!isAnswered() && Clock::now() < deadline) {
      changes_.wait_until(lock, nextToHang(deadline));
    }
  }

  std::optional<MediaLook> at(const std::string& path) {
    const std::lock_guard lock(mutex_);
    const auto asked = asked_.find(path);
    if (asked != asked_.end() && lanes_[asked->second.root].hangs()) return std::nullopt;
    const auto found = answers_.find(path);
    return found == answers_.end() ? std::nullopt : std::optional(found->second);
  }

  void forget(const std::string& path) {
    const std::lock_guard lock(mutex_);
    answers_.erase(path);
    const auto asked = asked_.find(path);
    if (asked == asked_.end()) return;
    std::erase(lanes_[asked->second.root].waiting, path);
    asked_.erase(asked);
  }

  void forgetAll() {
    const std::lock_guard lock(mutex_);
    answers_.clear();
    asked_.clear();
    for (auto& [root, lane] : lanes_) lane.waiting.clear();
  }

  /// Asks the threads to end, and waits for them a little.
  void end() {
    constexpr Limit kTimeToEnd(200);
    forgetAll();
    std::unique_lock lock(mutex_);
    changes_.wait_for(lock, kTimeToEnd, [this] { return threads_ == 0; });
  }

 private:
  using Clock = std::chrono::steady_clock;

  struct Lane {
    std::deque<std::string> waiting;
    bool isWorked = false;
    Clock::time_point since;  ///< when its present look began

    [[nodiscard]] bool hangs() const { return isWorked && Clock::now() - since >= kPatience; }
  };

  struct Asked {
    std::string root;
    std::uint64_t number = 0;
    bool isWaiting = false;  ///< no look at it has begun
  };

  Lane* laneToWork() {
    const auto found = std::ranges::find_if(lanes_, [](const auto& each) {
      return !each.second.isWorked && !each.second.waiting.empty();
    });
    return found == lanes_.end() ? nullptr : &found->second;
  }

  [[nodiscard]] bool isAnswered() const {
    return std::ranges::all_of(lanes_, [](const auto& each) {
      const Lane& lane = each.second;
      return (lane.waiting.empty() && !lane.isWorked) || lane.hangs();
    });
  }

  /// When the first of the lanes that answer will count as one that does not: nothing is notified
  /// of that.
  [[nodiscard]] Clock::time_point nextToHang(Clock::time_point atLast) const {
    for (const auto& [root, lane] : lanes_) {
      if (lane.isWorked && !lane.hangs()) atLast = std::min(atLast, lane.since + kPatience);
    }
    return atLast;
  }

  /// A thread's work: lanes in turn, until nothing is asked.
  void work() {
    std::unique_lock lock(mutex_);
    while (Lane* const lane = laneToWork()) {
      const std::string path = std::move(lane->waiting.front());
      lane->waiting.pop_front();
      lane->isWorked = true;
      lane->since = Clock::now();
      Asked& taken = asked_.at(path);
      taken.isWaiting = false;
      const std::uint64_t number = taken.number;
      lock.unlock();
      MediaLook look = look_(path);
      lock.lock();
      lane->isWorked = false;
      // Not where the file was forgotten meanwhile, or asked for again.
      const auto asked = asked_.find(path);
      if (asked != asked_.end() && asked->second.number == number) {
        asked_.erase(asked);
        answers_.insert_or_assign(path, std::move(look));
      }
      changes_.notify_all();
    }
    --threads_;
    changes_.notify_all();
  }

  const Look look_;
  std::mutex mutex_;
  std::condition_variable changes_;
  std::map<std::string, Lane> lanes_;   ///< by root
  std::map<std::string, Asked> asked_;  ///< not answered yet
  std::map<std::string, MediaLook> answers_;
  std::uint64_t number_ = 0;  ///< of the latest question
  std::size_t threads_ = 0;
};

MediaLooks::MediaLooks()
    : MediaLooks(
          [files = MediaFiles::shared()](const std::string& path) { return files->look(path); }) {}

MediaLooks::MediaLooks(Look look) : work_(std::make_shared<Work>(std::move(look))) {}

MediaLooks::~MediaLooks() { work_->end(); }

void MediaLooks::ask(const std::string& path, const std::string& root) { work_->ask(path, root); }

std::optional<MediaLook> MediaLooks::lookNow(const std::string& path, const std::string& root,
                                             Limit limit) {
  return work_->lookNow(path, root, limit);
}

void MediaLooks::await(Limit limit) { work_->await(limit); }

std::optional<MediaLook> MediaLooks::at(const std::string& path) const { return work_->at(path); }

void MediaLooks::forget(const std::string& path) { work_->forget(path); }

void MediaLooks::forgetAll() { work_->forgetAll(); }

namespace {

bool hasBackslashes(const std::string& path) { return path.starts_with("\\\\"); }

bool climbs(const std::string& path) { return (path + '/').find("/../") != std::string::npos; }

/// A directory without separators at its end, so that "/media" and "/media/" are one; the root is
/// the empty text.
std::string stemOf(std::string directory) {
  const char* const separators = hasBackslashes(directory) ? "/\\" : "/";
  directory.resize(directory.find_last_not_of(separators) + 1);
  return directory;
}

/// What follows the directory in the path, with the slash before it; nothing when the path does not
/// lie below it.
std::optional<std::string> below(const std::string& path, const std::string& directory) {
  const std::string stem = stemOf(directory);
  if (directory.empty() || !path.starts_with(stem + '/') || climbs(path)) return std::nullopt;
  return path.substr(stem.size());
}

/// The media directory that the path lies below by its text `side`, the longest one; `rest` is what
/// follows it.
const MediaDirectory* longestMatch(const std::string& path, std::string MediaDirectory::*side,
                                   std::string& rest) {
  const MediaDirectory* longest = nullptr;
  for (const MediaDirectory& directory : settings().media) {
    const std::optional<std::string> tail = below(path, mediaKey(directory.*side));
    if (!tail || (longest && tail->size() >= rest.size())) continue;
    longest = &directory;
    rest = *tail;
  }
  return longest;
}

}  // namespace

std::string mediaKey(const std::string& path) {
  std::string key = path;
  if (hasBackslashes(path)) std::replace(key.begin(), key.end(), '\\', '/');
  return key;
}

Cookie materialCookie(const std::string& localPath) {
  // Required as it is, with the cut before the directories are stripped: other stations make the
  // same cookie so.
  const std::string cut = localPath.substr(0, localPath.find('.'));
  return Cookie(utf8Text(stripPath(wideText(cut))).c_str(), true);
}

std::string networkForm(const std::string& localPath) {
  std::string rest;
  const MediaDirectory* const directory = longestMatch(localPath, &MediaDirectory::local, rest);
  if (!directory) return localPath;
  // The network form of a share that is written with backslashes has them throughout.
  if (hasBackslashes(directory->unc)) std::replace(rest.begin(), rest.end(), '/', '\\');
  return stemOf(directory->unc) + rest;
}

std::string mediaDirectoryOf(const std::string& localPath) {
  std::string rest;
  const MediaDirectory* const directory = longestMatch(localPath, &MediaDirectory::local, rest);
  return directory ? directory->local : std::string();
}

bool liesBelow(const std::string& path, const std::string& directory) {
  return below(path, directory).has_value();
}

std::string localForm(const std::string& networkPath) {
  std::string rest;
  const MediaDirectory* const directory =
      longestMatch(mediaKey(networkPath), &MediaDirectory::unc, rest);
  return directory ? stemOf(directory->local) + rest : networkPath;
}

namespace {

template <typename Key>
void erase(std::map<Key, std::set<std::string>>& index, const Key& key, const std::string& file) {
  const auto found = index.find(key);
  if (found == index.end()) return;
  found->second.erase(file);
  if (found->second.empty()) index.erase(found);
}

}  // namespace

std::string mediaName(const std::string& path) {
  const std::string key = mediaKey(path);
  return key.substr(key.rfind('/') + 1);
}

const MediaFile* MediaTable::find(const std::string& network) const {
  const auto found = files_.find(mediaKey(network));
  return found == files_.end() ? nullptr : &found->second;
}

const MediaFile* MediaTable::mainOf(const MediaFile& file) const {
  return file.proxyOf.empty() ? nullptr : find(file.proxyOf);
}

template <typename Key>
std::vector<MediaFile> MediaTable::lookUp(const Index<Key>& index, const Key& key) const {
  std::vector<MediaFile> files;
  const auto found = index.find(key);
  if (found == index.end()) return files;
  for (const std::string& file : found->second) files.push_back(files_.at(file));
  return files;
}

std::vector<MediaFile> MediaTable::withCookie(const Cookie& cookie) const {
  return lookUp(byCookie_, cookie);
}

std::vector<MediaFile> MediaTable::withName(const std::string& name) const {
  return lookUp(byName_, name);
}

std::vector<MediaFile> MediaTable::proxiesOf(const MediaFile& file) const {
  return lookUp(proxies_, mediaKey(file.network));
}

std::vector<MediaFile> MediaTable::mains() const {
  std::vector<MediaFile> files;
  for (const auto& [key, file] : files_) {
    if (!mainOf(file)) files.push_back(file);
  }
  return files;
}

std::vector<MediaFile> MediaTable::all() const {
  std::vector<MediaFile> files;
  for (const auto& [key, file] : files_) files.push_back(file);
  return files;
}

void MediaTable::insert(const MediaFile& file) {
  remove(file);
  const std::string key = mediaKey(file.network);
  files_[key] = file;
  byCookie_[file.cookie].insert(key);
  byName_[mediaName(file.path)].insert(key);
  if (!file.proxyOf.empty()) proxies_[mediaKey(file.proxyOf)].insert(key);
}

void MediaTable::remove(const MediaFile& file) {
  const std::string key = mediaKey(file.network);
  const auto found = files_.find(key);
  if (found == files_.end()) return;
  // By what the table knows: the caller's `file` may have another name or main file.
  const MediaFile known = found->second;
  erase(byCookie_, known.cookie, key);
  erase(byName_, mediaName(known.path), key);
  erase(proxies_, mediaKey(known.proxyOf), key);
  files_.erase(found);
}

void MediaTable::clear() { *this = MediaTable(); }

}  // namespace korvel

using namespace korvel;

LightweightString<wchar_t> DiskManager::convertLocalToUNC(const MaterialFilename& file) {
  return wideText(networkForm(utf8Text(file.getOsPath())));
}

MaterialFilename DiskManager::convertUNCtoFsysFilename(const LightweightString<wchar_t>& unc) {
  return MaterialFilename(wideText(localForm(utf8Text(unc))));
}

void PlayFileCache::remove(const LightweightString<wchar_t>& osPath) {
  MediaFiles::instance().close(utf8Text(osPath));
}

void Kv::FileReaderResource::clearRequestCache(const LightweightString<wchar_t>& osPath) {
  MediaFiles::instance().dropHead(utf8Text(osPath));
}
