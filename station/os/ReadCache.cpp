#include "station/os/ReadCache.h"

#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <exception>
#include <filesystem>
#include <mutex>
#include <system_error>
#include <utility>

#include "station/base/HostThread.h"
#include "station/base/Log.h"
#include "station/os/Posix.h"

namespace korvel {

namespace {

namespace fs = std::filesystem;

/// To be raised with every change of what a text holds.
constexpr std::string_view kMagic = "korvel cache 4\n";
constexpr std::uint32_t kByteOrder = 0x01020304;
constexpr std::string_view kBuilding = ".new-";
// The cache lies in the user's directory, which may be a network's too. Without the cache the
// project is only entered more slowly, so no more than this is waited for it.
constexpr std::chrono::seconds kPatience(1);

void add(std::string& bytes, std::uint64_t number) {
  bytes.append(reinterpret_cast<const char*>(&number), sizeof number);
}

void add(std::string& bytes, std::string_view text) {
  add(bytes, text.size());
  bytes += text;
}

/// Takes numbers and texts off the front of some bytes, as long as there are enough of them.
class Reader {
 public:
  explicit Reader(std::string_view bytes) : left_(bytes) {}

  [[nodiscard]] bool isWell() const { return isWell_; }
  [[nodiscard]] std::string_view left() const { return left_; }

  std::uint64_t number() {
    std::uint64_t number = 0;
    const std::string_view bytes = take(sizeof number);
    if (isWell_) std::memcpy(&number, bytes.data(), sizeof number);
    return number;
  }

  std::string_view text() { return take(number()); }

  std::string_view take(std::uint64_t count) {
    isWell_ = isWell_ && count <= left_.size();
    if (!isWell_) return {};
    const std::string_view taken = left_.substr(0, count);
    left_.remove_prefix(count);
    return taken;
  }

 private:
  std::string_view left_;
  bool isWell_ = true;
};

void addStamp(std::string& bytes, const FileStamp& stamp) {
  add(bytes, stamp.device);
  add(bytes, stamp.inode);
  add(bytes, stamp.size);
  add(bytes, static_cast<std::uint64_t>(stamp.modified));
  add(bytes, static_cast<std::uint64_t>(stamp.changed));
}

FileStamp takeStamp(Reader& reader) {
  FileStamp stamp;
  stamp.device = reader.number();
  stamp.inode = reader.number();
  stamp.size = reader.number();
  stamp.modified = static_cast<std::int64_t>(reader.number());
  stamp.changed = static_cast<std::int64_t>(reader.number());
  return stamp;
}

// The hash may differ between standard libraries. Then the sum is wrong, and the cache counts as
// empty.
std::uint64_t sumOf(std::string_view bytes) { return std::hash<std::string_view>()(bytes); }

/// Whether something is this user's, and no other can write to it.
bool isOwn(const struct stat& status) {
  return status.st_uid == ::geteuid() && (status.st_mode & 0022) == 0;
}

/// Makes the directory where it is missing. False where what is there is not this user's alone.
bool prepare(const std::string& directory) {
  std::error_code problem;
  const fs::path above = fs::path(directory).parent_path();
  fs::create_directories(above.parent_path(), problem);
  ::mkdir(above.c_str(), 0700);
  ::mkdir(directory.c_str(), 0700);
  struct stat status {};
  return ::lstat(directory.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && isOwn(status);
}

/// The bytes of a plain file that only this user can have written; empty for any other file.
std::string readOwn(const std::string& path, std::size_t most) {
  const Descriptor file = openPlainFile(path, O_RDONLY | O_NOFOLLOW);
  struct stat status {};
  std::string bytes;
  if (!file.isOpen() || ::fstat(file.get(), &status) != 0) return bytes;
  if (!isOwn(status) || status.st_size > static_cast<off_t>(most)) return bytes;
  bytes.reserve(static_cast<std::size_t>(status.st_size));
  if (!readAll(file.get(), bytes)) bytes.clear();
  return bytes;
}

/// Keeps the newest files that have `most` bytes together, and removes all older ones.
void throwOutOldest(const std::string& directory, std::size_t most) {
  struct Aged {
    fs::file_time_type modified;
    std::uintmax_t size;
    fs::path path;
  };
  std::vector<Aged> entries;
  std::error_code problem;
  for (const fs::directory_entry& each : fs::directory_iterator(directory, problem)) {
    std::error_code gone;
    const Aged entry{each.last_write_time(gone), each.file_size(gone), each.path()};
    if (!gone) entries.push_back(entry);
  }
  std::ranges::sort(entries, std::ranges::greater(), &Aged::modified);
  std::uintmax_t sum = 0;
  for (const Aged& each : entries) {
    sum += each.size;
    if (sum > most) fs::remove(each.path, problem);
  }
}

void replaceFile(const std::string& directory, const std::string& name, const std::string& bytes,
                 std::size_t most) {
  if (!prepare(directory)) return;
  const std::string path = directory + "/" + name;
  const std::string building =
      directory + "/" + std::string(kBuilding) + name + "-" + std::to_string(::getpid());
  // Left by a killed process that had the same number.
  ::unlink(building.c_str());
  const Descriptor file = openPlainFile(building, O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW);
  if (!file.isOpen()) return;
  struct stat status {};
  const bool isFolder = ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
  std::error_code problem;
  // rename() does not put a file in a folder's place.
  if (isFolder) fs::remove_all(path, problem);
  // Without fsync(): what a crash cuts off is noticed by the checksum and read again from the
  // share.
  if (!writeAll(file.get(), bytes) || std::rename(building.c_str(), path.c_str()) != 0) {
    ::unlink(building.c_str());
  }
  throwOutOldest(directory, most);
}

std::string nameFor(const std::string& folder) {
  char name[17];
  std::snprintf(name, sizeof name, "%016llx", static_cast<unsigned long long>(sumOf(folder)));
  return name;
}

}  // namespace

/// Work on a thread that its owner stops waiting for when it takes too long. Owner and thread share
/// it, so it outlives either.
class CacheErrand {
 public:
  bool awaitEnd() {
    std::unique_lock lock(mutex_);
    return ended_.wait_for(lock, kPatience, [this] { return hasEnded_; });
  }
  bool hasEnded() {
    const std::lock_guard lock(mutex_);
    return hasEnded_;
  }
  void end() {
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
    ended_.notify_all();
  }

 private:
  std::mutex mutex_;
  std::condition_variable ended_;
  bool hasEnded_ = false;
};

namespace {

/// Runs the work on a thread of its own, or on this one where the machine has none left.
template <typename Work>
void run(const std::shared_ptr<CacheErrand>& errand, Work work) {
  auto all = [errand, work = std::move(work)] {
    try {
      work();
    } catch (const std::exception&) {
      // Without memory for it nothing is kept.
    }
    errand->end();
  };
  try {
    watchThread(all).detach();
  } catch (const std::system_error&) {
    all();
  }
}

}  // namespace

class ReadCache::Loading : public CacheErrand {
 public:
  std::string bytes;
  std::vector<Row> rows;  ///< they look into `bytes`
};

class ReadCache::Saving : public CacheErrand {};

ReadCache::ReadCache(std::string directory, std::string folder, std::size_t most)
    : directory_(std::move(directory)), folder_(std::move(folder)), most_(most) {
  if (directory_.empty()) return;
  const auto loading = std::make_shared<Loading>();
  const std::string path = directory_ + "/" + nameFor(folder_);
  run(loading, [loading, directory = directory_, path, folder = folder_, most] {
    struct stat status {};
    const bool isOwned = ::lstat(directory.c_str(), &status) == 0 && isOwn(status);
    if (!isOwned) return;
    loading->bytes = readOwn(path, most);
    loading->rows = rowsIn(loading->bytes, folder);
  });
  loading_ = loading;
}

void ReadCache::awaitRows() const {
  const auto loading = std::exchange(loading_, nullptr);
  // A thread that takes longer may still be filling `loading`, which must not be looked at.
  if (!loading || !loading->awaitEnd()) return;
  read_ = std::shared_ptr<const std::string>(loading, &loading->bytes);
  rows_ = std::move(loading->rows);
}

ReadCache::~ReadCache() {
  if (saving_ && !saving_->awaitEnd()) return;
  save();
  if (saving_) saving_->awaitEnd();
}

std::vector<ReadCache::Row> ReadCache::rowsIn(std::string_view bytes, const std::string& folder) {
  Reader head(bytes);
  const bool isOurs = head.take(kMagic.size()) == kMagic && head.number() == kByteOrder;
  const std::uint64_t sum = head.number();
  if (!head.isWell() || !isOurs || sum != sumOf(head.left())) return {};
  Reader reader(head.left());
  if (reader.text() != folder) return {};
  std::vector<Row> rows;
  while (reader.isWell() && !reader.left().empty()) {
    Row row;
    row.stamp = takeStamp(reader);
    row.name = reader.text();
    row.text = reader.text();
    rows.push_back(row);
  }
  if (!reader.isWell() || !std::ranges::is_sorted(rows, {}, &Row::name)) return {};
  return rows;
}

const ReadCache::Row* ReadCache::rowOf(std::string_view name) const {
  awaitRows();
  if (next_ >= rows_.size() || rows_[next_].name != name) {
    // Names are mostly asked for in their order, so the next row is the right one; else search.
    const auto at = std::ranges::lower_bound(rows_, name, {}, &Row::name);
    next_ = static_cast<std::size_t>(at - rows_.begin());
  }
  if (next_ >= rows_.size() || rows_[next_].name != name) return nullptr;
  return &rows_[next_++];
}

const std::string_view* ReadCache::find(std::string_view name, const FileStamp& stamp) const {
  if (const auto fresh = fresh_.find(name); fresh != fresh_.end()) {
    return fresh->second.stamp == stamp ? &fresh->second.view : nullptr;
  }
  const Row* const row = rowOf(name);
  if (!row || !(row->stamp == stamp)) return nullptr;
  row->isUsed = true;
  return &row->text;
}

bool ReadCache::holds(std::string_view name) const {
  awaitRows();
  return fresh_.contains(name) || std::ranges::binary_search(rows_, name, {}, &Row::name);
}

void ReadCache::put(std::string_view name, const FileStamp& stamp, std::string_view text) {
  if (directory_.empty()) return;
  Fresh& fresh = fresh_[std::string(name)];
  fresh = {stamp, std::string(text), {}};
  fresh.view = fresh.text;
  isChanged_ = true;
}

std::string ReadCache::bytes() const {
  awaitRows();
  std::string body;
  add(body, folder_);
  const auto addRow = [&body](std::string_view name, const FileStamp& stamp,
                              std::string_view text) {
    addStamp(body, stamp);
    add(body, name);
    add(body, text);
  };
  auto fresh = fresh_.begin();
  for (const Row& row : rows_) {
    for (; fresh != fresh_.end() && fresh->first < row.name; ++fresh) {
      addRow(fresh->first, fresh->second.stamp, fresh->second.text);
    }
    const bool isReplaced = fresh != fresh_.end() && fresh->first == row.name;
    // A row that was not asked for belongs to a file that is gone.
    if (row.isUsed && !isReplaced) addRow(row.name, row.stamp, row.text);
  }
  for (; fresh != fresh_.end(); ++fresh) {
    addRow(fresh->first, fresh->second.stamp, fresh->second.text);
  }
  std::string all(kMagic);
  add(all, kByteOrder);
  add(all, sumOf(body));
  return all + body;
}

void ReadCache::save() {
  if (!isChanged_ || (saving_ && !saving_->hasEnded())) return;
  isChanged_ = false;
  saving_ = std::make_shared<Saving>();
  run(saving_, [directory = directory_, name = nameFor(folder_), bytes = bytes(), most = most_] {
    replaceFile(directory, name, bytes, most);
  });
}

}  // namespace korvel
