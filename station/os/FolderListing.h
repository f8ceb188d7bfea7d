#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "station/base/Result.h"
#include "station/os/Posix.h"

namespace korvel {

/// What tells one state of a file from another, and a file from one that took its place, without
/// reading it. Times are nanoseconds since 1970 by the clock of the file system.
struct FileStamp {
  std::uint64_t device = 0;
  std::uint64_t inode = 0;
  std::uint64_t size = 0;
  std::int64_t modified = 0;
  std::int64_t changed = 0;  ///< of its names and rights as well
  std::uint64_t names = 0;   ///< how many hard links lead to it

  /// Whether both are the same file with the same content; `names` does not count.
  bool operator==(const FileStamp& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           modified == other.modified && changed == other.changed;
  }
};

/// Files by name. One thread may change it; any number may look at it then.
class StampedFiles {
 public:
  struct File {
    std::string name;
    FileStamp stamp;
  };

  StampedFiles() = default;

  /// Of two files of one name one stays.
  explicit StampedFiles(std::vector<File> files);

  /// The stamp of the file of this name, or null.
  [[nodiscard]] const FileStamp* find(std::string_view name) const;

  [[nodiscard]] bool contains(std::string_view name) const { return find(name) != nullptr; }
  [[nodiscard]] bool empty() const { return files_.empty(); }

  // In the order of their names.
  [[nodiscard]] auto begin() const { return files_.begin(); }
  [[nodiscard]] auto end() const { return files_.end(); }

 private:
  std::vector<File> files_;
};

/// A folder's files, each as it was when the folder was read. The folder's own stamp is older than
/// all of them: a change after it shows in the next stamp of the folder.
struct FolderListing {
  FileStamp folder;
  StampedFiles files;
  std::vector<std::string> others;  ///< wanted names that are no plain files: links and folders
};

/// A file's bytes, and the stamp of the file that they were read from.
struct StampedContent {
  FileStamp stamp;
  std::string bytes;
};

/// The coarsest clock of a file system that is reckoned with. A file may change twice within one
/// tick and look the same from outside.
inline constexpr std::int64_t kCoarsestTick = 2'000'000'000;

/// Which files a listing looks at.
using WantedName = bool (*)(std::string_view name);

// Paths are UTF-8. Answers are fresh on a network file system. Any thread; calls block as long as
// the share does.

/// Lists a folder with the stamps of the wanted files.
Result<FolderListing> listStamped(const std::string& folder, WantedName isWanted);

/// The folder's own stamp: its time of change moves with every rename, creation and removal in it.
/// One or two round trips, whatever the folder's size.
Result<FileStamp> stampOfFolder(const std::string& folder);

/// The stamp of the plain file at `path`; a link or a folder is eBadContent. It is as fresh as the
/// last look at the folder, so that each of many files costs one call.
Result<FileStamp> stampOfFile(const std::string& path);

/// The same as this machine knows it: where the folder was looked at a moment ago and is as it was,
/// nothing is asked. Every station's write puts another file in the place, which changes the
/// folder. What a person writes into the file itself may show on NFS only once its kernel has asked
/// for another reason, as it does when the file is opened.
Result<FileStamp> knownStampOfFile(const std::string& path);

/// The same, asked for freshly.
Result<FileStamp> freshStampOfFile(const std::string& path);

/// Reads a file whose folder was listed a moment ago.
Result<StampedContent> readStamped(const std::string& path, std::size_t most);

/// How many questions to a share are under way at once. Each waits for a round trip of its own.
inline constexpr std::size_t kMostInFlight = 8;

/// Calls job(0) to job(count - 1), up to kMostInFlight of them at once on threads of their own and
/// on the calling one, which returns when all are done. When a job throws, no further one begins,
/// and the first exception is thrown here.
void inFlight(std::size_t count, const std::function<void(std::size_t)>& job);

/// Whether the path leads to the file in this state now.
bool isStillStamped(const std::string& path, const FileStamp& stamp);

/// Whether nothing is at the path. False where that cannot be told.
bool isSurelyGone(const std::string& path);

/// Whether a file was at rest when it was stamped: its last change is older than any clock's tick
/// before `moment`, a time by the same file system's clock that had passed by then.
bool isAtRest(const FileStamp& stamp, std::int64_t moment);

/// The same, as a listing of its folder tells: the folder's last change is such a moment.
inline bool isAtRest(const FileStamp& stamp, const FolderListing& listing) {
  return isAtRest(stamp, listing.folder.changed);
}

/// Tells at once when names in folders change on this machine. On a network file system it tells
/// of this machine's own changes alone. One thread waits; wake() may be called by any.
class FolderNotices {
 public:
  using Clock = std::chrono::steady_clock;

  FolderNotices();

  /// Watches a folder, and goes on watching one that was watched before. False where that is not
  /// possible: it is missing, or the machine allows no more watches.
  bool watch(const std::string& folder);

  /// Waits until something changes, wake() is called or the moment has come. The folders that
  /// changed, as given to watch().
  std::set<std::string> await(Clock::time_point until);

  /// Waits until the moment has come, or wake() was called.
  void pause(Clock::time_point until);

  /// Ends this and every later wait at once.
  void wake();

 private:
  std::set<std::string> taken();

  Descriptor notices_;
  Descriptor wakes_;
  std::map<int, std::string> folders_;  ///< by watch number
};

}  // namespace korvel
