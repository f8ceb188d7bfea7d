#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/Cookie.h"
#include "host/edit/Edit.h"
#include "station/edit/EditSummary.h"
#include "station/edit/OtioDocument.h"
#include "station/keep/VersionFolder.h"
#include "station/os/SharedFiles.h"

namespace korvel {

class EditFile;

/// Is told what becomes of the local user's unsaved changes. Host thread.
class iUnsavedObserver {
 public:
  virtual ~iUnsavedObserver() = default;

  /// An edit has one more unsaved change.
  virtual void changed(const EditFile& edit) = 0;

  /// An edit has no unsaved changes any more: they were saved, or the user dropped them.
  virtual void settled(const Cookie& cookie) = 0;

  /// An edit is about to lose its unsaved changes without the user's wish.
  virtual void dropping(const EditFile& edit) = 0;
};

struct Deed;

/// Is told what becomes of edits and logs of the open project, whoever does it. Host thread.
class iEditObserver {
 public:
  virtual ~iEditObserver() = default;

  /// An edit was modified and is not saved yet. Where it is not loaded here, the deed names its
  /// clip by the path alone.
  virtual void modified(const Cookie& cookie, const Deed& deed) = 0;

  /// The file of a known edit holds something else by now.
  virtual void replaced(const Cookie& cookie, const EditSummary& before,
                        const EditSummary& now) = 0;

  /// A message told that an edit was saved that is not open here; the file may show it later.
  virtual void savedElsewhere(const Cookie&) {}

  /// An edit is about to be forgotten.
  virtual void forgetting(const Cookie& cookie, const EditSummary& last) = 0;
};

/// One loaded edit or log: its document in memory and what this station knows besides. Host thread.
class EditFile : public Edit {
 public:
  /// The log type of the logs that this station makes.
  static constexpr int kShotLogType = 1;

  /// The setting of an edit that names its owner.
  static constexpr const char* kOwnerKey = "OWNER";

  EditFile(const Cookie& cookie, const std::string& path, OtioDocument document);
  EditFile(const EditFile&) = delete;
  EditFile& operator=(const EditFile&) = delete;

  [[nodiscard]] Cookie getCookie() const override { return cookie_; }
  [[nodiscard]] bool isEdit() const override { return getLogType() == kEditLogType; }
  [[nodiscard]] int getLogType() const override;
  [[nodiscard]] bool isImported() const override { return isInStock_; }
  [[nodiscard]] bool isScratch() const override { return false; }
  [[nodiscard]] LightweightString<wchar_t> getOwner() const override;
  configb& config() override { return configuration_; }
  void setChangeDescription(EditModificationType type, bool announce) override;
  bool reOpen(const LightweightString<wchar_t>& path) override;
  [[nodiscard]] bool areCelCuesOn() const override { return celCuesOn_; }
  void celCuesOn() override { celCuesOn_ = true; }
  void celCuesOff() override { celCuesOn_ = false; }
  void issueChangeNotification(const EditModification& modification) override;
  [[nodiscard]] bool isDirty() const override { return dirty_; }

  /// Tells the project's listeners when the edit becomes dirty. Because of a message nothing
  /// becomes clean: reOpen() alone decides what of the unsaved changes goes.
  void setDirty(bool dirty) override;
  void clearPendingModifications() override { pending_.clear(); }

  [[nodiscard]] const OtioDocument& document() const { return document_; }
  [[nodiscard]] const std::string& path() const { return saved_.path(); }

  /// The file as it was last read or written here.
  [[nodiscard]] const SavedFile& saved() const { return saved_; }

  /// "edit" or "log", as events and lists call it.
  [[nodiscard]] const char* kindText() const { return isEdit() ? "edit" : "log"; }

  /// Applies the local user's modification: the edit is dirty afterwards, and the modification is
  /// announced when its modifier is released. On failure nothing is changed.
  Result<void> change(const EditModification& modification);

  /// Whether modifications of this kind can concern an edit's content here: the known kinds, and
  /// the kind of a text that was not understood, whose application fails.
  static bool concerns(EditModificationType type) {
    return type == eModNone || type == eModTrim || type == eModRename;
  }

  /// Applies another station's modification as an unsaved change; no listener is told, so that
  /// nothing goes out again. On failure nothing is changed.
  Result<void> changeRemotely(const EditModification& modification);

  /// Announces what was recorded, and then what setChangeDescription asked for.
  void announce();
  void announceDescription();

  /// What another station did to the file while there are unsaved changes here.
  enum class FileState {
    eOurs,      ///< nothing: it is the file that the document was made of
    eReplaced,  ///< saved another content
    eGone,      ///< deleted it
  };
  [[nodiscard]] FileState fileState() const;

  /// Keeps other stations from saving the object and from changing its owner, for as long as the
  /// result lives. Taken again meanwhile, it is the same lock. A share without locks gives none,
  /// and success: there nothing could ever be saved otherwise.
  Result<std::shared_ptr<ObjectLock>> lockFile();

  /// Takes up the owner that the file names. Another station may have written it, and its message
  /// may have been lost. Nothing changes where the file cannot be read.
  void takeStoredOwner();

  /// What a save does where another saved since the edit was read, and where its versions cannot be
  /// kept. What another user saved is replaced only once it is kept.
  enum class Overwrite { eRefuse, eAccept };

  /// Writes the document to its file, under the object's lock, and keeps the version that it
  /// replaces. On failure the file is the old one and the edit stays dirty; eChanged when another
  /// station changed the file since.
  Result<void> save(Overwrite overwrite);

  /// Puts other content in the place of the document, as the local user's unsaved change. The
  /// stored owner stays.
  void putContent(OtioDocument document);

  /// Takes up unsaved content that was made of the file with this hash and number.
  void takeUnsaved(OtioDocument document, std::size_t hash, long number);

  /// Takes the settings of a document that now stands in the file with these bytes; unsaved changes
  /// stay.
  void takeSettings(const OtioDocument& stored, std::string_view bytes);

  /// Drops unsaved changes: reads the file again. On failure nothing is changed.
  Result<void> revert();

  /// Merges the configuration values set since they were last written into the file as it stands
  /// there; writes nothing when it holds them already.
  Result<void> flushConfiguration();

  /// Notes that these bytes, which its file held, are what the document was made of.
  void noteContent(std::string_view bytes) { saved_.note(bytes, document_.stamp().number); }

  /// How long it is as it is shown, and from which media. Worked out when it is asked for: of a
  /// long edit that takes longer than a change.
  [[nodiscard]] const EditExtent& extent() const;

  /// The same where it was worked out since the last change, else nothing.
  [[nodiscard]] const std::optional<EditExtent>& knownExtent() const { return extent_; }

  /// The contentHash of what its file held when it was last read or written here.
  [[nodiscard]] std::size_t content() const { return saved_.hash().value_or(0); }

  /// Its file was found to hold these bytes. They are shown, unless that would drop what the user
  /// changed here: then the edit is marked as changed elsewhere. Whether that is news.
  bool catchUp(const std::string& bytes);

  /// Its file was found to be gone, while the user has it open or has something unsaved: the edit
  /// stays, marked, and the user is told who (empty when unknown) deleted it and what can be done.
  /// Whether that is news.
  bool keepWithoutFile(const std::string& who);

  /// Its file is there again: what it holds is shown, unless there is something unsaved.
  void takeFileAgain();

  /// Whether its file holds something else than what the user's unsaved changes were made to.
  [[nodiscard]] bool isChangedElsewhere() const { return changedElsewhere_.has_value(); }

  /// Whether the user loses something when the file is read again.
  [[nodiscard]] bool holdsUnsaved() const {
    return hasLocalChanges_ || !configuration_.unwritten.empty();
  }

  /// Reads the file again if it holds something else than what was last read or written here, as a
  /// message that it was saved does.
  void readLate();

  /// Gives a log an owner, which is kept in memory alone.
  void setLogOwner(const std::string& owner) { logOwner_ = owner; }

  /// The object is gone from the project's stock.
  void markRemoved() { isInStock_ = false; }

  /// Whether there are unsaved changes of the local user's, rather than other stations' alone.
  [[nodiscard]] bool hasLocalChanges() const { return hasLocalChanges_; }

  /// Whether a dirty edit holds what it held when it was last read or saved here, as after undoing.
  /// For the plug-in it stays dirty: it tells the others of each edit that becomes so.
  [[nodiscard]] bool isAsSaved() const;

  /// A change was undone. Where that brought back what is saved, nothing of the local user's is
  /// unsaved any more.
  void noteUndone();

  /// Whether anything is lost when the edit is forgotten now.
  [[nodiscard]] bool holdsUnwritten() const {
    return dirty_ || description_ != eModNone || !configuration_.unwritten.empty();
  }

  /// The users whose announced changes, from the first to the last, are in the document although
  /// they are not saved. Gone with them when the file is read again.
  std::set<std::string> holdsChangesOf;

  int holders = 0;          ///< how many EditPtr and EditModifier hold it
  bool isUserOpen = false;  ///< whether the user has it open

 private:
  class Configuration : public configb {
   public:
    explicit Configuration(OtioDocument& document) : document_(document) {}
    void set(const LightweightString<char>& key, const LightweightString<char>& value) override;
    [[nodiscard]] LightweightString<char> get(const LightweightString<char>& key) const override;

    std::set<std::string> unwritten;  ///< the keys set since the last write

   private:
    OtioDocument& document_;
  };

  bool replaceBy(const Result<std::string>& bytes);
  void tellReplaced();
  void tellModified(const Deed& deed) const;
  bool noteElsewhere(std::size_t content, const std::string& what);
  [[nodiscard]] std::string changedText(const char* how) const;
  Result<void> apply(const EditModification& modification);
  void noteSavedBody();
  void takeOwner(const OtioDocument& stored);
  void takeDocument(OtioDocument document, std::string_view bytes);
  bool keepUnsaved(const OtioDocument& stored, const std::string& bytes);
  void tell(const EditModification& modification);
  [[nodiscard]] bool isContent(std::string_view bytes) const { return saved_.isNoted(bytes); }
  Result<void> writeStamped(SavedFile::History history);
  Result<void> mergeConfiguration();
  void noteWhatIsThere();
  [[nodiscard]] iUnsavedObserver* unsavedObserver() const;
  void tellObserver() const;

  Cookie cookie_;
  SavedFile saved_;
  OtioDocument document_;
  Configuration configuration_{document_};
  std::vector<EditModification> pending_;
  EditModificationType description_ = eModNone;
  std::string logOwner_;
  std::optional<std::size_t> changedElsewhere_;  ///< what its file was found to hold, or kNoFile
  std::size_t savedBody_ = 0;  ///< of a dirty edit: a hash of that document without its owner
  mutable std::optional<bool> isAsSaved_;  ///< where it was looked at since the last change
  mutable std::optional<EditExtent> extent_;
  std::weak_ptr<ObjectLock> lock_;
  bool isInStock_ = true;
  bool dirty_ = false;
  bool hasLocalChanges_ = false;
  bool celCuesOn_ = false;
};

}  // namespace korvel
