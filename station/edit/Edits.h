#pragma once

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/base/Cookie.h"
#include "station/base/HostParts.h"
#include "station/edit/EditFile.h"
#include "station/edit/EditSummary.h"
#include "station/project/iProjectPart.h"

namespace korvel {

/// The open project's edits and logs by cookie and by name, without their documents. Host thread.
class EditIndex {
 public:
  /// Adds an object, or replaces what is known of it.
  void put(const Cookie& cookie, EditSummary summary);

  /// Forgets an object; an unknown one is ignored.
  void remove(const Cookie& cookie);
  void clear();

  /// Notes that an object was forgotten whose owner others may remember.
  void markForgotten(const Cookie& cookie) { forgotten_.insert(cookie); }

  /// Notes that it is known again; whether it was so noted.
  bool clearForgotten(const Cookie& cookie) { return forgotten_.erase(cookie) > 0; }

  /// What is known of an object, or null; valid until the index changes.
  [[nodiscard]] const EditSummary* find(const Cookie& cookie) const;

  /// Appends every readable object of exactly this name.
  void findByName(const std::string& name, std::vector<NamedObject>& found) const;

  [[nodiscard]] const std::map<Cookie, EditSummary>& all() const { return summaries_; }

  /// Notes that an object's file has changed since it was looked at.
  void markStale(const Cookie& cookie) { stale_.insert(cookie); }

  [[nodiscard]] bool isStale(const Cookie& cookie) const { return stale_.contains(cookie); }

  /// Notes that it was looked at again; whether it was so noted.
  bool clearStale(const Cookie& cookie) { return stale_.erase(cookie) > 0; }

  /// The objects so noted, which are no longer noted afterwards.
  std::set<Cookie> takeStale() { return std::exchange(stale_, {}); }

 private:
  using Names = std::unordered_multimap<std::string, Cookie>;

  void removeName(const Cookie& cookie, const std::string& name);
  Names& names() const;

  std::map<Cookie, EditSummary> summaries_;
  mutable std::optional<Names> byName_;  ///< made when it is first asked for
  std::set<Cookie> stale_;
  std::set<Cookie> forgotten_;
};

/// The open project's edits (cookie kind 'E') and logs (kind 'S'): an index of all, and the
/// documents of those that are open, held by an EditPtr or changed. Each is the file
/// "<cookie>.otio" in the project's folder. Host thread. One object a process.
class Edits : public iProjectPart {
 public:
  static constexpr const char* kKinds = "ES";

  Edits();
  Edits(const Edits&) = delete;
  Edits& operator=(const Edits&) = delete;
  ~Edits() override;

  void enter(const OpenProject& project, const std::vector<std::string>& files) override;
  void takeUpUnlisted(const std::vector<std::string>& files) override;
  std::size_t catchUp(const FoundFiles& files) override;
  void leave() override;
  void findByName(const std::string& name, std::vector<NamedObject>& found) const override;
  [[nodiscard]] bool holds(const Cookie& cookie) const override;
  void listObjects(std::vector<NamedObject>& objects) const override;
  [[nodiscard]] std::string stateKey() const override { return "edits"; }
  [[nodiscard]] JsonValue state() const override;

  /// Every object's line in a list.
  [[nodiscard]] JsonValue list() const;

  /// One object's line in it; null when there is no such object.
  [[nodiscard]] JsonValue listed(const Cookie& cookie) const;

  /// What the lists know of an object; null when there is no such object. Valid until it changes.
  [[nodiscard]] const EditSummary* summary(const Cookie& cookie) const {
    return index_.find(cookie);
  }

  /// One object with its clips; loads it if need be.
  Result<JsonValue> show(const Cookie& cookie);

  /// The loaded object, held until release() is called as often as hold() was; loads it if need be.
  /// Failure: no such object in the open project, or a file that is no edit, which is reported and
  /// left as it is.
  Result<EditFile*> hold(const Cookie& cookie);

  /// Holds a loaded object once more.
  static void holdAgain(EditFile& edit) { ++edit.holders; }

  /// Gives a hold back. An object without holds that is not open and has nothing unsaved is
  /// unloaded.
  void release(EditFile* edit);

  /// The loaded object, or null.
  [[nodiscard]] EditFile* loaded(const Cookie& cookie) const;

  /// Appends the objects that the user has open, and those with changes of the user's that are not
  /// saved.
  void listOpen(std::vector<Cookie>& open, std::vector<Cookie>& unsaved) const;

  /// Opens an object for the user, and closes it. Closing one with unsaved changes of the local
  /// user's is refused. One whose file is gone is forgotten then.
  Result<void> open(const Cookie& cookie);
  Result<void> close(const Cookie& cookie);

  /// Takes up what the file of an object says in the lists; forgets one whose file is gone.
  void refresh(const Cookie& cookie);

  /// Takes up what a loaded object says in the lists.
  void noteLoaded(const EditFile& edit);

  /// Notes the announced owner of an object.
  void noteOwner(const Cookie& cookie, const std::string& owner);

  /// Notes that another station saved an object: lists read its file again when next shown.
  void noteSavedElsewhere(const Cookie& cookie);

  /// Another station says that it deleted an object. One whose file is gone is forgotten; one that
  /// the user has open, or has unsaved changes to, stays in memory, marked. One whose file is still
  /// there stays, and is looked at again a little later.
  void noteDeletedElsewhere(const Cookie& cookie);

  /// Whether the file of an object of the open project is surely gone. Asks the share.
  [[nodiscard]] bool isFileGone(const Cookie& cookie) const;

  /// Takes up the owner that the file of an edit names, and tells of it.
  void takeStoredOwner(const Cookie& cookie);

  /// Because of a message that the object was saved: reads its file once more a little later
  /// (DelayedReread), and shows what differs then.
  void lookLater(const Cookie& cookie);

  /// Takes an object out of the lists and out of memory.
  void forget(const Cookie& cookie);

  /// The same for an object that stayed in memory with its unsaved changes although its file is
  /// gone. The user does not want them, or has saved them elsewhere; tells of it.
  void letGo(const Cookie& cookie);

  /// Takes up an object whose file is there again, or for the first time, and tells of it.
  void takeUpFile(const Cookie& cookie);

  /// The file of an object in the open project, which must be open.
  [[nodiscard]] std::string pathFor(const Cookie& cookie) const;

  /// The name and owner of an object as shown; empty when it is unknown.
  [[nodiscard]] std::string nameOf(const Cookie& cookie) const;
  [[nodiscard]] std::string ownerOf(const Cookie& cookie) const;

  /// What stands in a sentence behind an object's name where another edit or log is called so, too:
  /// " (E0a1b2c3)". Empty where the name alone tells which one is meant.
  [[nodiscard]] std::string namesakeMark(const Cookie& cookie, const std::string& name) const;

  [[nodiscard]] bool isProjectOpen() const { return !folder_.empty(); }

  /// The objects with unsaved changes of the local user's.
  [[nodiscard]] std::vector<NamedObject> unsaved() const;

  /// Sets the observer of unsaved changes, or null; it must outlive this or be taken back.
  void observeUnsaved(iUnsavedObserver* observer) { observer_ = observer; }

  /// The observer of unsaved changes, or null.
  [[nodiscard]] iUnsavedObserver* unsavedObserver() const { return observer_; }

  /// Tells which users have unsaved changes of an object that are missing in what is shown of it.
  using MissingFrom = std::function<std::vector<std::string>(const Cookie&)>;
  void askMissingBy(MissingFrom missing) { missing_ = std::move(missing); }

  /// "Unsaved changes of ANNA's are missing here until ANNA saves."; empty where none are.
  [[nodiscard]] std::string missingText(const Cookie& cookie) const;

  /// Adds an observer of all edits, which must outlive this or be taken out again.
  void addObserver(iEditObserver& observer) { observers_.push_back(&observer); }
  void removeObserver(iEditObserver& observer) { std::erase(observers_, &observer); }

  /// Tells the observers: `tell(observer)`.
  template <typename Tell>
  void tellObservers(const Tell& tell) const {
    for (iEditObserver* const each : observers_) tell(*each);
  }

  /// What the lists know of all objects; valid until one changes.
  [[nodiscard]] const std::map<Cookie, EditSummary>& summaries() const { return index_.all(); }

  /// "edit" or "log" after the cookie's kind.
  static const char* kindText(const Cookie& cookie);

  /// Takes up an object whose file holds `bytes`; the caller holds it.
  EditFile* takeUp(const Cookie& cookie, OtioDocument document, std::string_view bytes);

  /// The cookie that a file of the project's folder is called after; null for files of other
  /// parts.
  static Cookie cookieOfFile(const std::string& name);

 private:
  void enterUnread(const OpenProject& project, const std::vector<std::string>& names);
  void put(const Cookie& cookie, EditSummary summary) const;
  void tellReplaced(const Cookie& cookie, const EditSummary& before) const;
  static void tellOwner(const Cookie& cookie, const std::string& owner);
  void enterOne(const Cookie& cookie, Result<EditSummary> summary);
  Result<EditFile*> load(const Cookie& cookie);
  void indexFile(const Cookie& cookie) const;
  void indexStale() const;
  void setAside(const Cookie& cookie, const std::string& problem) const;
  void unload(const Cookie& cookie);
  void readLate(const Cookie& cookie);
  bool catchUpOne(const Cookie& cookie, const FoundFile& file);
  bool catchUpLoaded(EditFile& edit, const FoundFile& file);
  bool catchUpListed(const Cookie& cookie, const FoundFile& file);
  bool catchUpGone(const Cookie& cookie, const FoundFile& file);
  bool forgetIfGone(const Cookie& cookie);
  bool takeDeletion(const Cookie& cookie);
  [[nodiscard]] JsonValue line(const Cookie& cookie, const EditSummary& summary) const;

  iUnsavedObserver* observer_ = nullptr;
  std::vector<iEditObserver*> observers_;
  MissingFrom missing_;
  std::string folder_;
  std::shared_ptr<NewlyShown> shown_;
  mutable EditIndex index_;
  std::map<Cookie, std::unique_ptr<EditFile>> loaded_;
  std::vector<std::unique_ptr<EditFile>> gone_;  ///< unloaded while something still held them
  const HostEntry<Edits> entry_{&HostParts::edits, *this};
};

/// The one object; it must exist.
inline Edits& openEdits() { return *hostParts().edits; }

}  // namespace korvel
