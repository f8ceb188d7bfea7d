#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/keep/TrashFolder.h"
#include "station/keep/UndoList.h"

namespace korvel {

class ContainerPart;
class Projects;

/// The deleted objects of the open project, as users see them: edits, logs, bins, racks and
/// filters. Every user may take back an object; it belongs to its old owner again. A user can
/// remove for good only objects that he deleted or could have deleted. Host thread.
class Trash {
 public:
  /// The parts must outlive this.
  Trash(const Projects& projects, std::vector<ContainerPart*> containers)
      : projects_(projects), containers_(std::move(containers)) {}
  Trash(const Trash&) = delete;
  Trash& operator=(const Trash&) = delete;

  /// All deletions, the newest first: cookie, name, kind, owner, deleted (when), by, size, the
  /// deletion's mark, and a problem where its file cannot be read.
  [[nodiscard]] Result<JsonValue> list() const;

  /// The names and cookies in it, for completion; none where it cannot be read.
  [[nodiscard]] std::vector<std::string> namesAndCookies() const;

  /// Takes back what a user means by a name, a cookie, the unambiguous beginning of one, or a
  /// cookie and the mark of one of its deletions ("E0a1b.1a2b"): the newest deletion of that
  /// object. Others are told that it was created. Its cookie. eExists where an object of that
  /// cookie is there again.
  Result<Cookie> restore(const std::string& object);

  /// Removes for good what was deleted longer than `days` ago, all for no number, with the
  /// histories of objects of which nothing is left. What others own and deleted stays. The numbers
  /// "removed" and "kept".
  Result<JsonValue> empty(std::optional<int> days);

 private:
  struct Content {
    std::string name;
    std::string owner;
    std::optional<Error> problem;  ///< why nothing is known of it
  };

  [[nodiscard]] Result<std::string> folder() const;
  [[nodiscard]] Result<std::vector<Trashed>> all() const;
  [[nodiscard]] ContainerPart* containerOf(const Trashed& trashed) const;
  [[nodiscard]] std::string kindOf(const Trashed& trashed) const;
  [[nodiscard]] Content contentOf(const Trashed& trashed) const;
  [[nodiscard]] Result<Trashed> find(const std::string& object) const;
  Step stepOf(const Trashed& trashed, const std::string& name);
  [[nodiscard]] bool mayRemove(const Trashed& trashed) const;
  Result<bool> remove(const Trashed& trashed) const;

  const Projects& projects_;
  std::vector<ContainerPart*> containers_;
};

}  // namespace korvel
