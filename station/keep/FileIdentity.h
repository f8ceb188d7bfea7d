#pragma once

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <string>

#include "station/base/Result.h"

namespace korvel {

/// By what a file is told from another that took its place, and from itself after a change: a quick
/// answer, without reading it.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  std::size_t size = 0;
  std::int64_t modified = 0;  ///< nanoseconds since 1970, by the share's clock
  std::int64_t changed = 0;   ///< the same, of its names and rights as well
  std::size_t names = 0;      ///< how many hard links lead to it

  /// Whether both are the same file with the same content; `names` does not count.
  bool operator==(const FileIdentity& other) const {
    return device == other.device && inode == other.inode && size == other.size &&
           modified == other.modified && changed == other.changed;
  }
};

/// The identity of the plain file at `path`. A link or a folder is eBadContent. Any thread; answers
/// as the last listing of its folder did (lookAfresh), so that each of many files costs one call.
Result<FileIdentity> identityOf(const std::string& path);

/// The same, asked for freshly.
Result<FileIdentity> freshIdentityOf(const std::string& path);

}  // namespace korvel
