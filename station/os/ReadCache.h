#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "station/os/FolderListing.h"

namespace korvel {

/// What was read of one folder's files, kept on this machine from one session to the next, so that
/// a file is not read again while it is the same.
///
///     <directory>/<hash of the folder's path>
///         "korvel cache", format, byte order, checksum of what follows
///         the folder's path, then for each file: stamp, name, text
///
/// A text belongs to a stamp for good only if its file was at rest when it was read (isAtRest), and
/// only such texts may be put in. A cache that is cut, forged, of another version or user, or no
/// plain file counts as empty and is replaced. It is never an error. One thread.
class ReadCache {
 public:
  /// The largest directory of caches, in bytes; beyond it the oldest are thrown out.
  static constexpr std::size_t kMostBytes = std::size_t{64} << 20;

  /// Begins to read the cache of `folder` in this directory; an empty directory means that nothing
  /// is kept. What cannot be read within a second of the first question counts as empty.
  ReadCache(std::string directory, std::string folder, std::size_t most = kMostBytes);
  ReadCache(const ReadCache&) = delete;
  ReadCache& operator=(const ReadCache&) = delete;

  /// Saves, and waits for the end of that for a second at most.
  ~ReadCache();

  /// The text that was put in for a file of this name in this very state; null when there is none.
  /// Quick where names are asked for in their order. Valid until put() or the end.
  [[nodiscard]] const std::string_view* find(std::string_view name, const FileStamp& stamp) const;

  /// Whether a text was put in for a file of this name, in whatever state.
  [[nodiscard]] bool holds(std::string_view name) const;

  /// Keeps a text for a file that was at rest when it was read.
  void put(std::string_view name, const FileStamp& stamp, std::string_view text);

  /// Writes the cache, on a thread of its own, if something was put in since it was written or
  /// read. What was never found or put in is left out: its file is gone.
  void save();

 private:
  struct Row {
    std::string_view name;
    FileStamp stamp;
    std::string_view text;
    mutable bool isUsed = false;
  };
  struct Fresh {
    FileStamp stamp;
    std::string text;
    std::string_view view;
  };
  class Loading;
  class Saving;

  void awaitRows() const;
  /// What a cache of this folder holds, in the order of the names; empty where it is none.
  [[nodiscard]] static std::vector<Row> rowsIn(std::string_view bytes, const std::string& folder);
  [[nodiscard]] const Row* rowOf(std::string_view name) const;
  [[nodiscard]] std::string bytes() const;

  const std::string directory_;
  const std::string folder_;
  const std::size_t most_;
  mutable std::shared_ptr<Loading> loading_;         ///< null once the rows are there
  mutable std::shared_ptr<const std::string> read_;  ///< what rows_ look into
  mutable std::vector<Row> rows_;                    ///< in the order of their names
  mutable std::size_t next_ = 0;  ///< the row that is likely to be asked for next
  std::map<std::string, Fresh, std::less<>> fresh_;
  bool isChanged_ = false;
  std::shared_ptr<Saving> saving_;
};

}  // namespace korvel
