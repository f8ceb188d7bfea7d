#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Result.h"
#include "station/os/FolderListing.h"
#include "station/os/ReadCache.h"

namespace korvel {

/// Files of the open project whose objects are shown because of a message or of something this
/// station did. The folder watch learns of them here: a file made and removed between two of its
/// looks would otherwise stay shown for good. Any thread.
class NewlyShown {
 public:
  void add(const std::string& name) {
    const std::lock_guard lock(mutex_);
    names_.insert(name);
  }

  /// The names since the last time.
  std::set<std::string> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(names_, {});
  }

 private:
  std::mutex mutex_;
  std::set<std::string> names_;
};

/// A file of the open project that was found to differ from what was known of it.
struct FoundFile {
  std::string name;  ///< in the project's folder: "E0a1b.otio", "rooms/Sound.lck"
  std::string path;
  bool isGone = false;
  FileStamp stamp;                            ///< as it was when it was found
  Result<std::string> bytes = std::string();  ///< what it held then, where its content matters
  bool isAtRest = false;                      ///< these bytes belong to this stamp for good
  std::shared_ptr<NewlyShown> shown = {};     ///< of its folder; null where nothing is noted

  /// Whether the file is still as it was found. The finding may be older than what this station
  /// wrote or read since. A file that was gone and is back is noted as shown: the watch no longer
  /// knows it, and would not notice when it goes. Asks the share.
  [[nodiscard]] bool isCurrent() const {
    if (!isGone) return isStillStamped(path, stamp);
    const bool isStillGone = isSurelyGone(path);
    if (!isStillGone && shown) shown->add(name);
    return isStillGone;
  }
};

using FoundFiles = std::vector<FoundFile>;

/// A directory as it was when it was first seen. A share that is no longer mounted leaves the
/// folder that it was mounted on in its place, mostly empty, and what is written there is lost to
/// everybody. Any thread.
class SeenDirectory {
 public:
  explicit SeenDirectory(std::string path) : path_(std::move(path)) {}

  /// Adds a file in the directory, named from there, which nothing but the share holds.
  void addProof(const std::string& file);

  /// Success while the path leads to the directory that it led to at the first call, or to another
  /// that holds a proof: the share, mounted anew. The failure says what to do. Asks the share.
  Result<void> check();

 private:
  [[nodiscard]] bool holdsProof() const;

  const std::string path_;
  std::mutex mutex_;
  std::set<std::string> proofs_;
  std::optional<FileStamp> seen_;
};

/// The record of a project: the file "project.json" in its folder.
struct ProjectRecord {
  std::string name;
  bool isPrivate = false;
  std::string made;    ///< when, "2024-05-31T12:00:00Z"
  std::string madeBy;  ///< the user
};

// The folders of the projects directory. Any thread; answers are fresh.

/// The file in a project's folder that is its lock, and the folder of its rooms.
inline constexpr std::string_view kProjectLock = "Lock";
inline constexpr std::string_view kRoomsFolder = "rooms";

/// <projects directory>/<cookie>, without a trailing separator.
std::string projectFolder(const Cookie& project);

/// The cookies of all projects in the projects directory, in order; the failure says what is wrong
/// with the directory and how to name another.
Result<std::vector<Cookie>> listProjectFolders();

/// Where a file of this name is in the project that the message being delivered names; empty while
/// none is delivered and where it names none. Neither the file nor the folder need exist. Host
/// thread.
std::string pathInNamedProject(const std::string& fileName);

/// The cookie that a file of this ending is called after; null for any other name. A cookie has one
/// spelling, so that no two files of an ending stand for one object.
Cookie cookieNamedBy(std::string_view fileName, std::string_view ending);

/// Whether a file of this name in a project's folder can belong to one of its parts, or is its
/// record. Other programs' files are not looked at.
bool isProjectFile(std::string_view name);

/// Reads a project's record. A broken one is eBadContent, and is never written over.
Result<ProjectRecord> readProjectRecord(const Cookie& project);

/// The records of all projects. What was read is kept on this machine, and is not read again while
/// its file is the same. One thread.
class ProjectRecords {
 public:
  ProjectRecords();

  using Take = std::function<void(const Cookie&, const Result<ProjectRecord>&)>;

  /// Of which projects `take` asks for files.
  enum class Asked { eOfAll, eOfPrivate };

  /// Calls `take` with each project of the projects directory, in the order of their cookies, and
  /// with its record as it is now, or why it cannot be read. While `take` runs the folder of a
  /// project that it asks for files (`asked`) counts as looked at afresh, and what it lacks of them
  /// as missing. Several projects are looked at, and read, at once. Failure: as of
  /// listProjectFolders().
  Result<void> forEach(const Take& take, const std::vector<std::string_view>& asked = {},
                       Asked of = Asked::eOfAll);

 private:
  struct Look;
  [[nodiscard]] std::optional<Look> opened(const Cookie& project,
                                           const Result<FileStamp>& directory,
                                           std::mutex& cacheMutex) const;
  [[nodiscard]] Look lookAtProject(const Cookie& project, std::mutex& cacheMutex) const;
  [[nodiscard]] bool isHeld(const Cookie& project, std::mutex& cacheMutex) const;
  void keep(const Look& look, const FileStamp& directory);

  ReadCache cache_;
};

/// Makes the folder of a new project with its record in it. Others see it whole or not at all; on
/// failure nothing is left. What a station left an hour ago or longer that was killed meanwhile is
/// removed.
Result<void> makeProjectFolder(const Cookie& project, const ProjectRecord& record);

/// The time as records have it.
std::string timeForRecord();

}  // namespace korvel
