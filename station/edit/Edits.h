#pragma once

#include <cstdint>
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

/// What is known of one edit or log of the open project.
struct KnownEdit {
  EditSummary summary;                 ///< what the lists show
  std::unique_ptr<EditFile> loaded{};  ///< its document, or null
  bool isStale = false;                ///< its file has changed since it was looked at
  std::int64_t enteredAs = 0;  ///< when its file had changed last as the project was entered,
                               ///< in nanoseconds since 1970; 0 where it was not listed then
};

/// The open project's edits and logs by cookie and by name, and the documents of those that are
/// loaded. All that is known of one is found in one search, and asking again for the one that was
/// asked for last takes none. Host thread.
class EditIndex {
 public:
  using Known = std::map<Cookie, KnownEdit>;

  /// Adds an object, or replaces what the lists show of it, which is not stale afterwards. A loaded
  /// document stays.
  KnownEdit& put(const Cookie& cookie, EditSummary&& summary);

  /// Forgets an object that is not loaded; an unknown one is ignored.
  void remove(const Cookie& cookie);

  /// Forgets all objects and their documents.
  void clear();

  /// Gives a known object its document, in place of one that it had.
  void setLoaded(KnownEdit& known, std::unique_ptr<EditFile> edit);

  /// Takes an object's document out again; null when it has none.
  std::unique_ptr<EditFile> takeLoaded(KnownEdit& known);

  /// The loaded documents in the order of their cookies; valid until one is added or taken out.
  [[nodiscard]] const std::vector<EditFile*>& loaded() const { return loaded_; }

  /// Notes that an object was forgotten whose owner others may remember.
  void markForgotten(const Cookie& cookie) { forgotten_.insert(cookie); }

  /// Notes that it is known again; whether it was so noted.
  bool clearForgotten(const Cookie& cookie) { return forgotten_.erase(cookie) > 0; }

  /// What is known of an object, or null; valid until it is removed.
  [[nodiscard]] KnownEdit* find(const Cookie& cookie);

  /// Appends every readable object of exactly this name.
  void findByName(const std::string& name, std::vector<NamedObject>& found) const;

  [[nodiscard]] const Known& all() const { return edits_; }

  /// Notes that a known object's file has changed since it was looked at.
  void markStale(const Cookie& cookie);

  [[nodiscard]] bool isStale(const Cookie& cookie);

  /// Notes that it was looked at again; whether it was so noted.
  bool clearStale(const Cookie& cookie);

  /// The objects so noted, which are no longer noted afterwards.
  std::set<Cookie> takeStale();

 private:
  using Names = std::unordered_multimap<std::string, Cookie>;

  void addName(const Cookie& cookie, const EditSummary& summary) const;
  void removeName(const Cookie& cookie, const std::string& name);
  Names& names() const;
  std::vector<EditFile*>::iterator placeOf(const EditFile& edit);

  Known edits_;
  Known::value_type* found_ = nullptr;  ///< what was asked for last
  std::vector<EditFile*> loaded_;
  mutable std::optional<Names> byName_;  ///< made when it is first asked for
  std::set<Cookie> stale_;               ///< those of edits_ that are marked so
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
    const KnownEdit* const known = index_.find(cookie);
    return known ? &known->summary : nullptr;
  }

  /// How long an object is, and from which media, with unsaved changes.
  [[nodiscard]] EditExtent extent(const Cookie& cookie) const;

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

  /// What is known of all objects; valid until one is added or removed.
  [[nodiscard]] const EditIndex::Known& all() const { return index_.all(); }

  /// "edit" or "log" after the cookie's kind.
  static const char* kindText(const Cookie& cookie);

  /// Takes up an object whose file holds `bytes`; the caller holds it.
  EditFile* takeUp(const Cookie& cookie, OtioDocument document, std::string_view bytes);

  /// The cookie that a file of the project's folder is called after; null for files of other
  /// parts.
  static Cookie cookieOfFile(std::string_view name);

 private:
  void enterUnread(const OpenProject& project, const std::vector<std::string>& names);
  void put(const Cookie& cookie, EditSummary summary,
           std::unique_ptr<EditFile> loaded = nullptr) const;
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
  [[nodiscard]] JsonValue line(const Cookie& cookie, const KnownEdit& known) const;

  iUnsavedObserver* observer_ = nullptr;
  std::vector<iEditObserver*> observers_;
  MissingFrom missing_;
  std::string folder_;
  std::shared_ptr<NewlyShown> shown_;
  mutable EditIndex index_;
  std::vector<std::unique_ptr<EditFile>> gone_;  ///< unloaded while something still held them
  const HostEntry<Edits> entry_{&HostParts::edits, *this};
};

/// The one object; it must exist.
inline Edits& openEdits() { return *hostParts().edits; }

}  // namespace korvel
