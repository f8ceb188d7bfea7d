#pragma once

#include <string>
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

}  // namespace korvel
