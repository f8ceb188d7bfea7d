#pragma once

#include <memory>
#include <string>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/Json.h"
#include "station/os/FolderListing.h"
#include "station/os/ReadCache.h"
#include "station/project/ProjectFolder.h"

namespace korvel {

/// The project that is open on this station.
struct OpenProject {
  Cookie cookie;
  std::string name;
  std::string folder;  ///< <projects directory>/<cookie>, without a trailing separator
  bool isPrivate = false;
  /// As the folder was when the project was entered.
  std::shared_ptr<const FolderListing> listing = std::make_shared<const FolderListing>();
  std::shared_ptr<ReadCache> cache = {};   ///< of the folder's files; null where nothing is kept
  std::shared_ptr<NewlyShown> shown = {};  ///< where parts note what they show; null for nowhere
};

/// An object with a name that users may type in place of its cookie.
struct NamedObject {
  Cookie cookie;
  std::string name;
};

/// One kind of thing that a project holds (edits, bins, racks, filters, media, rooms): loaded when
/// a project is entered, forgotten when it is left. Host thread.
class iProjectPart {
 public:
  virtual ~iProjectPart() = default;

  /// Loads this part of the project that was just opened, with one look at the folder: `files` are
  /// the names in it without those of edits and logs. Each part takes its own of them. A file that
  /// cannot be read is reported (log) and set aside; the others go on.
  virtual void enter(const OpenProject& project, const std::vector<std::string>& files) = 0;

  /// Takes up those of its objects among the folder's `files` that it does not hold, because their
  /// message was lost or not sent. The names were listed just now.
  virtual void takeUpUnlisted(const std::vector<std::string>& files) { (void)files; }

  /// Shows what was found in the folder by looking, and tells of what no message told before.
  /// Files of other parts are among them. The number of those changes that
  /// a message should have told of.
  virtual std::size_t catchUp(const FoundFiles& files) {
    (void)files;
    return 0;
  }

  /// Forgets the project.
  virtual void leave() = 0;

  /// Appends every object of this part whose name is exactly `name`, at a cost that does not grow
  /// with the project.
  virtual void findByName(const std::string& name, std::vector<NamedObject>& found) const = 0;

  /// Whether this part holds the object.
  [[nodiscard]] virtual bool holds(const Cookie& cookie) const = 0;

  /// Appends all objects, for completion.
  virtual void listObjects(std::vector<NamedObject>& objects) const = 0;

  /// The key and value under which `state` shows this part: "edits", and an array of objects.
  [[nodiscard]] virtual std::string stateKey() const = 0;
  [[nodiscard]] virtual JsonValue state() const = 0;
};

}  // namespace korvel
