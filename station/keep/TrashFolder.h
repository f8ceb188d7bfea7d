#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "station/base/Result.h"

namespace korvel {

/// One deletion of an object, as the trash keeps it.
struct Trashed {
  std::string path;    ///< of the file in the trash
  std::string object;  ///< its cookie
  std::string mark;    ///< tells the deletions of one object apart: eight digits
  std::string ending;  ///< of the object's own file: ".otio"
  std::string at;      ///< when, by that station's clock: "2024-05-31T12:00:00Z"
  std::string by;      ///< the user; a very long name is cut
  std::size_t size = 0;
  std::int64_t moved = 0;  ///< nanoseconds since 1970, by the share's clock
  bool isPlain = true;     ///< whether it is a file, rather than a folder, a link or a pipe

  /// When it was deleted, in seconds since 1970, where `now` is this machine's time. The share's
  /// clock decides where the deleting station's is more than a day ahead; else the later of both,
  /// so that a wrong clock does not make a deletion too old too soon.
  [[nodiscard]] std::int64_t deletedAt(std::int64_t now) const;
};

/// The deleted objects of one project:
///
///     <project>/.trash/<object>~20240531T120000Z~1a2b3c4d~ANNA.otio      when, mark and by whom
///
/// A file is moved there, and back, by one rename: even if the station ends meanwhile, it is whole
/// in one of both places. Its name alone says what the trash knows of it. Each deletion of an
/// object has a name of its own. Host thread.
class TrashFolder {
 public:
  explicit TrashFolder(const std::string& project) : folder_(project + "/.trash") {}

  /// Moves the file <project>/<object><ending> into the trash; eNotFound when it is not there.
  [[nodiscard]] Result<Trashed> take(const std::string& file, const std::string& user) const;

  /// All deletions, the newest first; none where there is no trash yet. What is no deletion is left
  /// out.
  [[nodiscard]] Result<std::vector<Trashed>> list() const;

  /// Who deleted an object last; empty where the trash does not hold it.
  [[nodiscard]] std::string whoDeleted(const std::string& object) const;

  /// The deletion itself while it is in the trash; else the newest of the same object by the same
  /// user, who took it back and deleted it again; the one that was given where there is none.
  static Trashed asItIsNow(const Trashed& trashed);

  /// Moves a deletion back to where its object's file was: eExists where one is there again,
  /// eNotFound where another station took it back or removed it.
  static Result<void> giveBack(const Trashed& trashed, const std::string& file);

  /// Removes a deletion for good; false when it was gone already.
  static Result<bool> remove(const Trashed& trashed);

  /// The time now by the share's clock, in seconds since 1970.
  [[nodiscard]] Result<std::int64_t> shareTime() const;

  [[nodiscard]] const std::string& path() const { return folder_; }

 private:
  [[nodiscard]] Result<void> make() const;
  [[nodiscard]] Result<void> requireFolder() const;

  std::string folder_;
};

}  // namespace korvel
