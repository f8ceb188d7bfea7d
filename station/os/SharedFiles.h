#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Ptr.h"
#include "station/base/Result.h"
#include "station/os/FileErrors.h"

class iFile;

namespace korvel {

// The endings of files of a projects directory: an edit or log; a record of a project, room or
// other object; a room's lock; what names the holder of a lock; a user's marker.
inline constexpr std::string_view kEditEnding = ".otio";
inline constexpr std::string_view kRecordEnding = ".json";
inline constexpr std::string_view kLockEnding = ".lck";
inline constexpr std::string_view kInformationEnding = ".inf";
inline constexpr std::string_view kMarkerEnding = ".cli";

// Files on the shared projects directory as the station's documents use them. Paths are UTF-8.
// Every question is asked freshly: the parent directory is opened and one entry read before the
// file is looked at, since a network file system otherwise goes on answering from its cache. Any
// thread; calls block as long as the share does.

/// Whether something exists at `path`; false also when that cannot be told.
bool existsFresh(const std::string& path);

/// The same, with why it cannot be told as a failure.
Result<bool> isThereFresh(const std::string& path);

/// Whether a file is known to be gone from a folder that is there itself: not while the share is
/// away, and not where that cannot be told.
bool isGoneFrom(const std::string& folder, const std::string& path);

/// How large a file is read whole: an edit, and a record or list, which is small. A larger one
/// holds something else, and reading it would keep the station from everything that it has to do.
inline constexpr std::size_t kLargestFile = std::size_t{128} << 20;
inline constexpr std::size_t kLargestRecord = std::size_t{16} << 20;

/// How much memory an edit may take that was read; it takes three times its file. For records and
/// lists kMostJsonMemory is the limit.
inline constexpr std::size_t kMostEditMemory = std::size_t{512} << 20;

/// A user list, a project's own record, and what trials and stations write about themselves: a few
/// lines. What is read becomes up to fifty times as large in memory, at every station.
inline constexpr std::size_t kLargestList = std::size_t{256} << 10;

/// A whole file's bytes. Larger than `most` is refused, with eBadContent.
Result<std::string> readFresh(const std::string& path, std::size_t most = kLargestFile);

/// The same for a file whose whole folder was listed a moment ago: the listing has made the answer
/// fresh, and reading the folder again for each of thousands of files would take most of the time.
Result<std::string> readListed(const std::string& path, std::size_t most = kLargestFile);

/// The names in a folder, without "." and "..", in no particular order.
Result<std::vector<std::string>> listFresh(const std::string& folder);

/// Replaces a file's content in one step: temporary file in the same folder, fsync, rename, fsync
/// of the folder. A reader sees the old or the new content, whole, and a crash leaves one of them.
/// New files take the folder's group and its group's write bit. The temporary file is always a new
/// one: what lies in its place is removed, never written to. Its name begins with a dot, so that no
/// listing takes it for anything; what a killed station left of it is removed by the next write to
/// the same file.
Result<void> writeAtomically(const std::string& path, const std::string& bytes);

/// The same, with a last look: `beforeRename` is called with the path of the temporary file when
/// that is whole and on the disk, while other writers of the same path wait. When it fails, nothing
/// is replaced and its failure is returned.
using BeforeRename = std::function<Result<void>(const std::string& temporary)>;
Result<void> writeAtomically(const std::string& path, const std::string& bytes,
                             const BeforeRename& beforeRename);

/// Whether writeAtomically could replace a file by one of this size now: tries it beside the file,
/// which stays as it is.
Result<void> checkReplaceable(const std::string& path, std::size_t size);

/// Removes a file; one that is not there is success.
Result<void> removeFileAt(const std::string& path);

/// Moves a file to another name or folder of the same file system in one step, durably. eExists,
/// with both as they were, where something has that name already.
Result<void> moveFile(const std::string& from, const std::string& to);

/// Makes a folder that takes its parent's group and write bits. eExists when it is there.
Result<void> makeFolder(const std::string& path);

/// The refusal to read a file that is larger than `most`.
Error tooLarge(const std::string& path, std::size_t most);

/// Keeps other stations from changing one object (an edit, a log, a bin, a rack, a filter) while
/// this one reads, changes and writes its file.
///
/// The lock is the exclusive open of a hidden file beside the object's (".<cookie>.json.lock"). It
/// is held for the few milliseconds of one change, and ends with this object, or with this
/// station. Readers need no lock: every write replaces the file in one step. Host thread.
class ObjectLock {
 public:
  /// Takes the lock of the object with this file; waits up to two seconds for a station that holds
  /// it.
  explicit ObjectLock(const std::string& objectFile);
  ObjectLock(const ObjectLock&) = delete;
  ObjectLock& operator=(const ObjectLock&) = delete;

  /// Gives the lock up and removes its file.
  ~ObjectLock();

  /// Success while the lock is held; else why it is not.
  [[nodiscard]] const Result<void>& taken() const { return taken_; }

 private:
  std::string path_;
  Kv::Ptr<iFile> file_;
  Result<void> taken_;
};

}  // namespace korvel
