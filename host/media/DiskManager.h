#pragma once

// Where media files are, on this station and for all.
//
// Stations mount the same storage at different places. A message names a file by its network form,
// which each station turns into its own path:
//
//     A: /mnt/rushes/a.mov -> //store/rushes/a.mov  -- message -->  B: /media/store/a.mov
//
// When a file changes elsewhere, what this station has read of it is out of date. The player then
// must let the file go, and the read-ahead must forget what it brought.

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

/// Where a media file lies on this station. A plain value.
class KV_HOST_API MaterialFilename {
 public:
  MaterialFilename() = default;
  explicit MaterialFilename(const LightweightString<wchar_t>& osPath) : osPath_(osPath) {}

  /// The path as the host writes it, with "/" between components. On this system the same text as
  /// the local path.
  [[nodiscard]] const LightweightString<wchar_t>& getPath() const { return osPath_; }

  /// The path by which the operating system opens the file.
  [[nodiscard]] const LightweightString<wchar_t>& getOsPath() const { return osPath_; }

  friend bool operator==(const MaterialFilename& a, const MaterialFilename& b) {
    return a.osPath_ == b.osPath_;
  }

 private:
  LightweightString<wchar_t> osPath_;
};

/// Knows which local directory stands for which network directory. Host thread.
class KV_HOST_API DiskManager {
 public:
  /// The network (UNC) form of a local file, such as "//store/rushes/a.mov": the path's part below
  /// a media directory appended to that directory's network form. A file below none keeps its local
  /// path.
  static LightweightString<wchar_t> convertLocalToUNC(const MaterialFilename& file);

  /// The reverse. A text below no known network directory is taken as a local path.
  static MaterialFilename convertUNCtoFsysFilename(const LightweightString<wchar_t>& unc);
};

/// Files that the player keeps open.
class KV_HOST_API PlayFileCache {
 public:
  /// Closes the file if the player holds it open.
  static void remove(const LightweightString<wchar_t>& osPath);
};

namespace Kv {

/// Reads ahead of the player.
class KV_HOST_API FileReaderResource {
 public:
  /// Drops read requests for the file, and what they brought.
  static void clearRequestCache(const LightweightString<wchar_t>& osPath);
};

}  // namespace Kv
