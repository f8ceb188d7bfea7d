#pragma once

// What a plug-in asks about paths and small files. The projects directory is shared by all
// stations, mostly on a network file system, whose cache may be seconds old. A plug-in decides by
// these answers whether a lock is taken and whether an announced file has arrived, so a stale
// answer is a wrong one.

#include <cstddef>

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"

// Helpers on whole paths. Those that ask the file system give fresh answers on a network mount, and
// may block with it.

/// Whether a file exists at `path`, asked freshly: the parent directory is read first. False for
/// the empty path.
KV_HOST_API bool fileExists(const LightweightString<wchar_t>& path);

/// The directories of a path with the separator at their end. A path without directories (the empty
/// one included) lies in the projects base directory, and gives that.
KV_HOST_API LightweightString<wchar_t> getPath(const LightweightString<wchar_t>& path);

/// What follows a path's last separator.
KV_HOST_API LightweightString<wchar_t> stripPath(const LightweightString<wchar_t>& path);

/// The shared projects directory, ending with the path separator.
KV_HOST_API LightweightString<wchar_t> getProjectsBaseDirectory();

/// A small text file, read whole when built. A missing or unreadable file has no lines. Host
/// thread.
class KV_HOST_API TextFile {
 public:
  /// Reads the file. With `keepEmptyLines` an empty line counts as a line; without, empty lines are
  /// left out. Lines end with LF, CR LF or CR, which are no part of the line; the last may lack its
  /// end. Bytes are kept as they are.
  TextFile(const LightweightString<wchar_t>& path, bool keepEmptyLines);

  [[nodiscard]] std::size_t getNumLines() const { return lines_.size(); }

  /// The line at `index`, which must be smaller than getNumLines().
  [[nodiscard]] const LightweightString<char>& getLine(std::size_t index) const {
    return lines_[index];
  }

 private:
  Vector<LightweightString<char>> lines_;
};
