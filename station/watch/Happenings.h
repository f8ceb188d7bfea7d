#pragma once

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "host/base/Cookie.h"
#include "host/project/ProjectListener.h"
#include "station/base/Events.h"
#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/edit/EditFile.h"
#include "station/edit/EditHistory.h"

namespace korvel {

class Edits;

/// Something that somebody did in the open project.
struct Happening {
  long id = 0;              ///< counts from the station's start
  std::int64_t when = 0;    ///< seconds since 1970
  std::string by;           ///< the user; empty where that is not known
  std::string what;         ///< "edit", "log", "bin", "rack", "filter", "media"
  std::string cookie;       ///< of the object
  std::string name;         ///< what the object was called then
  std::vector<Deed> deeds;  ///< what was done, at least one; of many the first kMostDeeds
  std::size_t further = 0;  ///< how many more there were
  bool isUnsaved = false;   ///< announced and not saved when it was told
};

/// As many of a save are kept; the rest is counted. Few are shown.
constexpr std::size_t kMostDeeds = 20;

/// "ANNA trimmed Clip-002 in Harbour", "Somebody deleted the bin Selects".
std::string happeningText(const Happening& happening);

/// As lists and the event "happened" show it: id, when, time, by, own, what, cookie, name, deeds
/// (the first three, each with did, clip, path, was and to where they say something), more (how
/// many further), unsaved, words.
JsonValue shownHappening(const Happening& happening);

/// What happened in the open project, by everybody at every station: who did what when. From the
/// messages that are delivered, from what is found in the folder, and from what the user does here.
///
///     a modification was announced     "ANNA trimmed Clip-002 in Harbour", not saved yet
///     a file holds something else      what its kept versions differ in; less what was told when
///                                      it was announced; else "ANNA saved Harbour"
///     the project is entered           the latest saves that its files tell of, and what the kept
///                                      versions of the newest differ in
///
/// Versions are read on a thread of its own, which may wait for the share: what it finds is told a
/// moment later, or, of too much at once, nothing but that something was saved. Bounded: the latest
/// kMost stay. Each is told as an event "happened", again when more is known of it. Host thread.
class Happenings : public iChangeObserver, public iEditObserver, public ProjectListener {
 public:
  static constexpr std::size_t kMost = 500;

  /// Of a project that is entered so many saves are listed, and of the newest so many it is looked
  /// up what they changed.
  static constexpr std::size_t kMostBefore = 100;
  static constexpr std::size_t kMostLookedUp = 12;

  /// What a user does to the same clip or object within so many seconds is one happening.
  static constexpr std::int64_t kTogether = 60;

  /// Both must outlive it.
  Happenings(HostThread& host, Edits& edits);
  Happenings(const Happenings&) = delete;
  Happenings& operator=(const Happenings&) = delete;
  ~Happenings() override;

  /// The latest first.
  [[nodiscard]] const std::deque<Happening>& all() const { return all_; }

  /// The first number of this visit to the project: lower ones are of another.
  [[nodiscard]] long firstId() const { return firstId_; }

  /// As a list; with a user, whatever the capitals, or the name or cookie of an object, only what
  /// is theirs. All where it is empty.
  [[nodiscard]] JsonValue list(const std::string& of) const;

  void changed(const std::string& what, const Cookie& cookie, const std::string& how,
               const std::string& name) override;
  void modified(const Cookie& cookie, const Deed& deed) override;
  void replaced(const Cookie& cookie, const EditSummary& before, const EditSummary& now) override;
  void forgetting(const Cookie& cookie, const EditSummary& last) override;
  void handleProjectEntry() override;
  void handleProjectExit() override;

 private:
  class Reader;
  using Deeds = std::vector<Deed>;
  using ByUser = std::pair<std::string, std::string>;  ///< an object's cookie, and a user

  [[nodiscard]] Happening begun(const std::string& what, const Cookie& cookie,
                                const std::string& name) const;
  [[nodiscard]] Happening begunLast(const std::string& what, const Cookie& cookie);
  void add(Happening happening);
  void addUnlessTold(Happening happening);
  bool putTogether(const Happening& happening);
  void documentChanged(const std::string& what, const Cookie& cookie, const std::string& how);
  void tellDeletion(Happening happening);
  Deeds takeTold(const std::string& cookie, const std::string& user);
  void lookUpDeeds(long id, const std::string& path, std::size_t content);
  void complete(long id, const std::string& by, const Deeds& deeds);
  void listEarlier();

  /// Has the reader find something out; `take` is told on the host thread, unless the project was
  /// left meanwhile. False where there is too much to do already.
  template <typename Found>
  bool findOut(std::function<Found()> find, std::function<void(Found)> take);

  HostThread& host_;
  Edits& edits_;
  std::unique_ptr<Reader> reader_;
  std::deque<Happening> all_;
  std::map<ByUser, Deeds> told_;                  ///< announced and not saved yet
  std::map<std::string, std::string> lastNames_;  ///< of forgotten edits, until that is told
  std::set<std::string> deleted_;                 ///< cookies
  long lastId_ = 0;
  long firstId_ = 1;
  std::shared_ptr<int> visit_ = std::make_shared<int>(0);  ///< new with each project
};

}  // namespace korvel
