#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "station/base/HostThread.h"
#include "station/base/Result.h"
#include "station/watch/WatchedFiles.h"

namespace korvel {

/// How the share answered a watch's latest question.
struct ShareAnswer {
  Result<void> result;                            ///< why a question could not be answered
  std::chrono::milliseconds took{0};              ///< how long the answer took
  std::chrono::steady_clock::time_point when{};   ///< when it came; the epoch before the first
  bool isAwaited = false;                         ///< the next question waits for its answer
  std::chrono::steady_clock::time_point asked{};  ///< when that was asked
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

  /// How the first of the folders answered.
  [[nodiscard]] ShareAnswer answer() const;

  /// Asks all folders now: the network came back, or a message says that something changed.
  void askNow();

 private:
  class Loop;

  std::shared_ptr<Loop> loop_;
  std::thread thread_;
};

}  // namespace korvel
