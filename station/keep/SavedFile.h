#pragma once

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "station/base/Result.h"
#include "station/keep/VersionFolder.h"
#include "station/os/FolderListing.h"

namespace korvel {

/// The file of an object as it was last read or written here, and how another version takes its
/// place: only where it is still that file, and only once both are in the object's history.
///
///     note(bytes, 6)  ...  replace(text, 7)  ->  the version 6 is kept if it is not yet
///                                                the new file is kept as version 7
///                                                the new file takes the object's place
///
/// Other stations that replace the same file wait meanwhile. Host thread.
class SavedFile {
 public:
  /// Whether a file is replaced even where no version of it can be kept.
  enum class History { eRequired, eIfPossible };

  explicit SavedFile(std::string path) : path_(std::move(path)) {}

  /// Notes that the file holds these bytes, which are the object's save of this number.
  void note(std::string_view bytes, long number);

  /// The same of bytes whose hash() was asked for before.
  void noteHash(std::size_t hash, long number);

  /// The hash of the noted bytes; empty where there is no file.
  [[nodiscard]] std::optional<std::size_t> hash() const { return content_; }

  /// Notes that there is no file.
  void noteMissing();

  /// Whether these are the bytes that were noted.
  [[nodiscard]] bool isNoted(std::string_view bytes) const {
    return content_ == std::hash<std::string_view>()(bytes);
  }

  /// Puts another version in its place, durably. Failure, with everything as it was: eChanged when
  /// the file is no longer the one that was noted (or is gone, or is there).
  Result<void> replace(const std::string& text, long number, History history);

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] long number() const { return number_; }

  /// The mark of the noted bytes among the object's versions.
  [[nodiscard]] std::string mark() const;

 private:
  Result<void> lookAtReplaced(History history);
  [[nodiscard]] Result<void> requireNoted(const Result<FileStamp>& there) const;

  std::string path_;
  std::optional<std::size_t> content_;  ///< a hash of the bytes; empty where there is no file
  std::optional<FileStamp> identity_;   ///< empty until this station wrote the file
  long number_ = 0;
};

}  // namespace korvel
