#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/project/ProjectListener.h"
#include "station/base/HostThread.h"
#include "station/edit/EditFile.h"
#include "station/os/ReadCache.h"
#include "station/watch/FolderWatch.h"
#include "station/watch/StationNote.h"

namespace korvel {

class Edits;
class Presence;

/// Knows which unsaved changes of others are missing in what this station shows of an edit. What
/// another announces is shown on top of the saved state; where this station did not hear it from
/// the first change on, since it opened the edit late or a message was lost, that would be a state
/// that never was, so it is said. It heals when the other saves, closes, loses the changes or goes.
///
/// That there are unsaved changes is known from announcements and from the others' notes. A note
/// lags behind by some seconds: one that does not name the edit yet counts only when it must be
/// newer than the announcement, one that still names it only when it must be newer than the save.
/// Host thread.
class MissingChanges : public iEditObserver, public ProjectListener {
 public:
  /// What a station says of itself is here after so long, where the share is not slower than that.
  static constexpr std::chrono::seconds kNoteLag{20};

  /// All must outlive it.
  MissingChanges(HostThread& host, Edits& edits, const Presence& presence);
  MissingChanges(const MissingChanges&) = delete;
  MissingChanges& operator=(const MissingChanges&) = delete;
  ~MissingChanges() override;

  /// The users whose unsaved changes of an object are missing here.
  [[nodiscard]] std::vector<std::string> from(const Cookie& cookie) const;

  /// What the stations say of themselves may have changed: looks at it, and tells of the objects
  /// of which more or less is missing than before.
  void look();

  void modified(const Cookie& cookie, const Deed& deed) override;
  void replaced(const Cookie& cookie, const EditSummary& before, const EditSummary& now) override;
  void savedElsewhere(const Cookie& cookie) override;
  void forgetting(const Cookie& cookie, const EditSummary& last) override;
  void handleProjectEntry() override;
  void handleProjectExit() override;

 private:
  using Clock = std::chrono::steady_clock;

  /// What is known of one user's unsaved changes of one object.
  struct Unsaved {
    Clock::time_point since = Clock::now();  ///< when that was last learned
    bool isNoted = false;                    ///< a note has named it
    bool isSaved = false;                    ///< saved since; the note has yet to say so
  };
  using Key = std::pair<Cookie, std::string>;  ///< object and user

  void noteSaved(const Cookie& cookie, const std::string& user);
  void takeNotes(const std::set<Key>& noted);
  [[nodiscard]] std::set<Key> notedKeys() const;
  void tellChanges();
  void tellSoon();
  void lookLater();

  HostThread& host_;
  Edits& edits_;
  const Presence& presence_;
  std::map<Key, Unsaved> unsaved_;
  std::map<Cookie, std::vector<std::string>> told_;
  bool isPosted_ = false;
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);  ///< what posted tasks hold weakly
};

/// Brings what is shown of the open project in line with its folder, without a message and without
/// entering the project again: messages can be lost, and the folder decides. Changes found there
/// are handed to the project's parts and told with the origin "folder". Host thread.
class CatchUp : public ProjectListener {
 public:
  explicit CatchUp(HostThread& host) : host_(host) {}
  CatchUp(const CatchUp&) = delete;
  CatchUp& operator=(const CatchUp&) = delete;

  void handleProjectEntry() override;
  void handleProjectExit() override;

  /// How the open project's folder answered; nothing while no project is open.
  [[nodiscard]] std::optional<ShareAnswer> answer() const;

  /// What the open project's folders were asked since it was entered; nothing while none is open.
  [[nodiscard]] std::optional<WatchCounts> counts() const;

  /// How many changes were found, since the project was entered, that no message had told of.
  [[nodiscard]] std::size_t found() const { return found_; }

 private:
  void take(const FoundFiles& files);
  void postSave(std::chrono::milliseconds delay);

  HostThread& host_;
  std::unique_ptr<FolderWatch> watch_;
  std::size_t found_ = 0;
  std::shared_ptr<ReadCache> cache_;  ///< the open project's
};

}  // namespace korvel
