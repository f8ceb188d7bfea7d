#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

#include "host/project/ProjectListener.h"
#include "station/base/HostParts.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Rooms.h"
#include "station/project/iProjectPart.h"

namespace korvel {

/// The name that was most likely meant by what was typed: one that differs in capitals alone, else
/// the nearest, else the first that begins so; empty where none is likely.
std::string likelyName(const std::string& typed, const std::vector<std::string>& names);

/// Several objects in one line, each by as much of its cookie as tells it from the others, and by
/// its name where the names differ: "E0a1b2c3 (Harbour), E0a1b2c4 (Night)". Of many the first.
std::string candidateList(const std::vector<NamedObject>& objects);

/// The failure for a word that several objects have for their name, or, where none is called so,
/// with which several cookies begin (`what`: "edits").
Error severalMeant(const std::string& what, const std::string& word,
                   const std::vector<NamedObject>& objects);

/// The one object whose cookie begins with a word, in capitals or not. Media files that share a
/// cookie count once. Failures: severalMeant(), or `nothing` with what may have been meant behind
/// it.
Result<Cookie> resolveBegun(const std::string& begun, const std::vector<NamedObject>& objects,
                            Error nothing);

/// Every living ProjectListener, in the order of construction. Host thread.
class ProjectListeners {
 public:
  /// The one object. It is never destroyed, since listeners may end as late as the process does.
  static ProjectListeners& instance();

  void add(ProjectListener* listener);
  void remove(ProjectListener* listener);

  /// How many cookies a listener is handed at once: the plug-in's broadcaster counts in 16 bits.
  static constexpr std::size_t kMostDeleted = 65'535;

  /// Tells of logs and edits that were deleted, kMostDeleted at once at most; of none nothing is
  /// told.
  void tellDeleted(const CookieVec& cookies, const LightweightString<char>& by);

  /// Calls `event` with each listener. One that is destroyed meanwhile is not called any more; one
  /// that is made meanwhile is called from the next event on.
  template <typename Event>
  void tell(const Event& event) {
    const std::vector<ProjectListener*> now = listeners_;
    for (ProjectListener* listener : now) {
      if (isListening(listener)) event(*listener);
    }
  }

 private:
  ProjectListeners() = default;
  [[nodiscard]] bool isListening(const ProjectListener* listener) const;

  std::vector<ProjectListener*> listeners_;
};

/// What a list of projects shows of one.
struct ProjectInfo {
  Cookie cookie;
  std::string name;
  bool isPrivate = false;
  bool isOccupied = false;  ///< its lock file exists, held or left behind
  LockState lock = LockState::eFree;
  std::string lockOwner;  ///< empty when it is free or the name cannot be read
  std::string problem;    ///< why its record cannot be read; empty when it can
};

/// The projects of the shared directory and the one that is open here.
///
/// A project is the folder <projects directory>/<cookie> with the record "project.json" (name,
/// kind, when and by whom it was made). All else in the folder belongs to the project's parts. Host
/// thread. One object a process.
class Projects {
 public:
  Projects();
  Projects(const Projects&) = delete;
  Projects& operator=(const Projects&) = delete;
  ~Projects();

  /// Adds a part, which must outlive this; parts are entered in this order and left in the reverse.
  void addPart(iProjectPart& part);

  Result<Cookie> create(const std::string& name, bool isPrivate);

  /// The records of all projects.
  [[nodiscard]] ProjectRecords& records() const;

  /// The projects of exactly this name; none where the projects directory cannot be read.
  [[nodiscard]] std::vector<Cookie> named(const std::string& name) const;
  Result<std::vector<ProjectInfo>> list() const;

  /// Opens a project by name or cookie, leaving the open one first; tells the listeners. A private
  /// project is locked while it is open; one that another station holds is refused with the
  /// holder's name, and the open one stays open.
  Result<void> enter(const std::string& nameOrCookie);

  /// Leaves the open project, and its room; eNoProject when none is open.
  Result<void> leave();

  /// The open project, or null.
  [[nodiscard]] const OpenProject* current() const { return current_.get(); }

  /// The open project, or an eNoProject error that says how to open one.
  Result<const OpenProject*> requireOpen() const;

  /// The object of the open project that a user means by a cookie or an unambiguous name. `kinds`
  /// are the allowed kind letters ("ES"); empty for any. An object that no message told of yet is
  /// looked for in the folder. Failures name what was asked for, and the candidates of an ambiguous
  /// name.
  Result<Cookie> resolve(const std::string& nameOrCookie, const std::string& kinds) const;

  /// The names and cookies of the open project's objects, for completion.
  [[nodiscard]] std::vector<NamedObject> objects() const;

  /// The projects directory as this station first saw it.
  [[nodiscard]] std::shared_ptr<SeenDirectory> directory() const;

  /// Hands what was found in the open project's folder to the parts; the number of changes that
  /// they told of.
  std::size_t catchUp(const FoundFiles& files);

  /// Everything that this station shows of the open project, as one object: "project" (null when
  /// none is open) and each part under its key.
  [[nodiscard]] JsonValue state() const;

 private:
  struct Found {
    Cookie cookie;
    ProjectRecord record;
  };

  [[nodiscard]] Result<Found> find(const std::string& nameOrCookie) const;
  [[nodiscard]] Result<Found> findByName(const std::string& name) const;
  Result<void> takeOver(const Found& project);
  Result<void> open(const Found& project);
  [[nodiscard]] Result<Cookie> resolveListed(const std::string& nameOrCookie,
                                             const std::string& kinds) const;
  void takeUpUnlisted() const;
  void enterParts(const std::vector<std::string>& files);
  void close();

  std::vector<iProjectPart*> parts_;
  mutable std::shared_ptr<SeenDirectory> directory_;
  std::unique_ptr<OpenProject> current_;
  mutable std::unique_ptr<ProjectRecords> records_;
  const HostEntry<Projects> entry_{&HostParts::projects, *this};
};

}  // namespace korvel
