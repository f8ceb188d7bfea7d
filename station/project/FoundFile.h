#pragma once

#include <mutex>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "station/base/Result.h"
#include "station/os/FolderListing.h"

namespace korvel {

/// A file of the open project that was found to differ from what was known of it.
struct FoundFile {
  std::string name;  ///< in the project's folder: "E0a1b.otio", "rooms/Sound.lck"
  std::string path;
  bool isGone = false;
  FileStamp stamp;                            ///< as it was when it was found
  Result<std::string> bytes = std::string();  ///< what it held then, where its content matters
  bool isAtRest = false;                      ///< these bytes belong to this stamp for good

  /// Whether the file is still so. What was found a moment ago may be older than what this station
  /// wrote or read since. Asks the share.
  [[nodiscard]] bool isCurrent() const {
    return isGone ? isSurelyGone(path) : isStillStamped(path, stamp);
  }
};

using FoundFiles = std::vector<FoundFile>;

/// Files of the open project whose objects are shown because of a message or of this station's own
/// doing. One that was made and removed between two looks at the folder would never be missed
/// there. Any thread.
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

}  // namespace korvel
