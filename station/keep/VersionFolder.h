#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "station/base/Result.h"
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
  /// Which versions must be kept, or nothing is replaced. Where another cannot be kept, that is
  /// logged.
  enum class History {
    eRequired,    ///< the one that is replaced and the new one
    eOfReplaced,  ///< the one that is replaced: it may be another user's, and there is no other
    eIfPossible,  ///< none
  };

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

/// One kept version of an object's file.
struct Version {
  std::string path;
  long number = 0;            ///< counts the saves of the object; 0 for what no station saved
  std::string mark;           ///< tells versions of one number apart: from its bytes, eight digits
  std::int64_t modified = 0;  ///< seconds since 1970, by the share's clock
  std::size_t size = 0;
};

/// How many versions are kept: the last ones, and one a day of those before, for some days.
struct KeepRule {
  int versions = 50;
  int days = 90;

  /// The configuration's: "history_versions" (1 at least) and "history_days".
  static KeepRule configured();
};

/// The older versions of one object, beside it in its project:
///
///     <project>/.history/<object>/000007-1a2b3c4d.otio      number and mark
///
/// A version is a hard link to the file that a save puts in the object's place, made before it does
/// so. After that the file is never written to again, since every save makes a new one. Where links
/// cannot be had it is a copy. So each file that was ever in the object's place is here, even when
/// several stations save at the same time. Host thread.
class VersionFolder {
 public:
  /// `file` is the object's own: <project>/<object><ending>. Nothing is made yet.
  explicit VersionFolder(const std::string& file);

  /// Keeps `file`, whose bytes have this mark, as a version. One that is kept already is success.
  /// Whatever else has the version's name (a damaged copy, a link, a folder) is moved aside.
  [[nodiscard]] Result<Version> keep(const std::string& file, long number,
                                     const std::string& mark) const;

  /// Takes back what keep() did.
  static void drop(const Version& version);

  /// Removes the folder once no version is left in it.
  void removeIfEmpty() const;

  /// Whether a file, whose bytes have this mark, is kept under this number, whole.
  [[nodiscard]] bool holds(const FileStamp& file, long number, const std::string& mark) const;

  /// The same, with why it cannot be told as a failure. What is there and is no such version is
  /// `false`.
  [[nodiscard]] Result<bool> isWhole(const FileStamp& file, long number,
                                     const std::string& mark) const;

  /// All versions, the oldest first. Links, folders and other names are left out. None where there
  /// is no history yet.
  [[nodiscard]] Result<std::vector<Version>> list() const;

  /// The version that a user means: "7", or "7.1a2b" where several have this number.
  [[nodiscard]] Result<Version> find(const std::string& text) const;

  /// The same among versions that were listed.
  static Result<Version> find(const std::string& text, const std::vector<Version>& among);

  /// Removes what the rule does not keep. Another station may do so at the same time.
  void thin(const KeepRule& rule) const;

  [[nodiscard]] const std::string& path() const { return folder_; }

  /// The mark of a version from the hash of its bytes (std::hash of a string).
  static std::string markOf(std::size_t hash);

  /// How a version is called in lists and found by find(): its number, with the mark's beginning
  /// where another of `all` has the same number.
  static std::string textOf(const Version& version, const std::vector<Version>& all);

 private:
  [[nodiscard]] std::string pathFor(long number, const std::string& mark) const;
  [[nodiscard]] Result<void> make() const;

  std::string parent_;  ///< <project>/.history
  std::string folder_;
  std::string ending_;
};

}  // namespace korvel
