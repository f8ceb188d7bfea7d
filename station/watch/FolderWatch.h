#pragma once

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "station/base/HostThread.h"
#include "station/base/Result.h"
#include "station/os/FolderListing.h"
#include "station/os/ReadCache.h"
#include "station/project/ProjectFolder.h"

namespace korvel {

/// How long it is until the machine's clock is next at a multiple of `period`. What is done every
/// few seconds is done then, so that all of it together wakes an idle station once.
inline std::chrono::nanoseconds untilNextBeat(std::chrono::nanoseconds period) {
  return period - std::chrono::steady_clock::now().time_since_epoch() % period;
}

/// A folder to be watched.
struct WatchedFolder {
  std::string path;
  std::string prefix;  ///< what stands before its files' names in reports: "", "rooms/"
  WantedName isWanted = nullptr;
  std::size_t largest = 0;  ///< the largest file that is read; 0: none is, names and times will do
  std::chrono::milliseconds period{2000};  ///< between two questions, where answers are quick
  bool mayBeMissing = false;               ///< it is made with its first file
  std::string proof;  ///< once seen, a file without which the folder counts as gone; or empty
  /// What is known of it at the start.
  std::shared_ptr<const FolderListing> known = std::make_shared<const FolderListing>();
  std::shared_ptr<const ReadCache> cache = {};  ///< holds what was at rest when it was read
  std::shared_ptr<NewlyShown> shown = {};       ///< what is shown beside what was found
};

/// What is known of one folder's files, and how they differ from it. One thread.
class WatchedFiles {
 public:
  using Clock = std::chrono::steady_clock;

  explicit WatchedFiles(WatchedFolder folder);

  [[nodiscard]] const WatchedFolder& folder() const { return folder_; }

  /// Whether its files must be looked at: its time of change is another than when they were looked
  /// at, or the time for another look at recent changes has come. Asks the share.
  Result<bool> hasMoved();

  /// Lists the folder. The names of the files that differ, and of those that were too young when
  /// they were read. Without its proof the folder is not looked at: another may stand in its place.
  Result<std::vector<std::string>> look();

  /// Reads as many of these files as fit into one report, takes note of them and removes their
  /// names.
  FoundFiles readSome(std::vector<std::string>& names);

  /// When files that were too young are to be looked at again; far away where there are none.
  [[nodiscard]] Clock::time_point recheck() const { return recheck_; }

 private:
  struct Known {
    FileStamp stamp;
    Clock::time_point since;  ///< when it was first found in this state
    bool isSure = false;      ///< it was read when it was at rest
  };

  void takeUpStart();
  [[nodiscard]] std::vector<std::string> differing(FolderListing now);
  void read(const std::string& name, FoundFile& found) const;
  void note(const std::string& name, FoundFile& found, Clock::time_point start);

  WatchedFolder folder_;
  FileStamp stamp_;
  std::shared_ptr<const FolderListing> start_;  ///< not yet among the known; else null
  std::set<std::string> young_;                 ///< its files that were read when they were young
  Clock::time_point started_;
  std::map<std::string, Known> known_;
  StampedFiles listed_;
  std::set<std::string> shown_;  ///< files to be missed where they are not in the folder
  Clock::time_point recheck_ = Clock::time_point::max();
};

/// How the share answered a watch's latest question.
struct ShareAnswer {
  Result<void> result;                            ///< why a question could not be answered
  std::chrono::milliseconds took{0};              ///< how long the answer took
  std::chrono::steady_clock::time_point when{};   ///< when it came; the epoch before the first
  bool isAwaited = false;                         ///< the next question waits for its answer
  std::chrono::steady_clock::time_point asked{};  ///< when that was asked
};

/// What a watch has asked of the share so far. On a network file system a question is a round trip
/// or two, a listing one for each 60 to 200 names, a file that is read three.
struct WatchCounts {
  std::size_t asked = 0;   ///< whether a folder has changed
  std::size_t listed = 0;  ///< folders
  std::size_t read = 0;    ///< files
};

/// Finds what changes in folders, on a thread of its own that may wait for a share that hangs.
///
///     each period     is the folder's time of change another?   one question
///     if so           which files differ from what is known?    one listing
///     those           are read, and handed to the host thread   at most 64 at once
///
/// On a local disk the first question is asked as soon as something changes. A folder that answers
/// slowly is asked less often. A file that changed is read once more when the coarsest clock has
/// ticked, since it may have changed twice within a tick. Host thread.
class FolderWatch {
 public:
  /// Takes what was found, on the host thread, and never after the watch was destroyed.
  using Take = std::function<void(const FoundFiles&)>;

  FolderWatch(HostThread& host, std::vector<WatchedFolder> folders, Take take);
  FolderWatch(const FolderWatch&) = delete;
  FolderWatch& operator=(const FolderWatch&) = delete;

  /// Ends the watch. A thread that waits for the share is left to end by itself.
  ~FolderWatch();

  /// How the first of the folders answered; and whether any of them is awaited, since when.
  [[nodiscard]] ShareAnswer answer() const;

  /// Of all its folders.
  [[nodiscard]] WatchCounts counts() const;

  /// Asks all folders now: the network came back, or a message says that something changed.
  void askNow();

 private:
  class Loop;

  std::shared_ptr<Loop> loop_;
  std::thread thread_;
};

}  // namespace korvel
