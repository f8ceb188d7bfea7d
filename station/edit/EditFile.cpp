#include "station/edit/EditFile.h"

#include <algorithm>

#include "host/base/Log.h"
#include "host/project/iPermissionsManager.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditHistory.h"
#include "station/edit/Edits.h"
#include "station/edit/OtioDocument.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

/// Stands for a file that is gone, where a content is noted.
constexpr std::size_t kNoFile = 0;

/// How often a save begins again because another station saved at the same moment.
constexpr int kSaveTries = 5;

Result<OtioDocument> parsed(const Result<std::string>& bytes) {
  if (!bytes) return bytes.error();
  return OtioDocument::parse(*bytes);
}

/// A hash of a document without its owner and stamp: another station may change the owner without
/// touching what the user works on.
std::size_t bodyOf(OtioDocument document) {
  document.setSetting(EditFile::kOwnerKey, {});
  document.setStamp({});
  return std::hash<std::string>()(document.text());
}

}  // namespace

EditFile::EditFile(const Cookie& cookie, const std::string& path, OtioDocument document)
    : cookie_(cookie), saved_(path), document_(std::move(document)) {}

int EditFile::getLogType() const {
  if (cookie_.getType() == CookieTypeEdit) return kEditLogType;
  const int stored = document_.logType(kShotLogType);
  return stored == kEditLogType ? kShotLogType : stored;
}

LightweightString<wchar_t> EditFile::getOwner() const {
  return wideText(isEdit() ? document_.setting(kOwnerKey) : logOwner_);
}

void EditFile::setChangeDescription(EditModificationType type, bool announce) {
  description_ = announce ? type : eModNone;
}

bool EditFile::reOpen(const LightweightString<wchar_t>& path) {
  if (isInStock_) hostParts().edits->lookLater(cookie_);
  return replaceBy(readFresh(utf8Text(path)));
}

bool EditFile::replaceBy(const Result<std::string>& bytes) {
  auto document = parsed(bytes);
  if (!document) {
    LogBoth("The %s \"%s\" was saved elsewhere but cannot be read again; it stays as it was: %s\n",
            kindText(), shownText(document_.name()), document.error().message);
    return false;
  }
  if (hasLocalChanges_ && currentOrigin() != Origin::eLocal) {
    keepUnsaved(*document, *bytes);
  } else {
    if (hasLocalChanges_) {
      LogBoth("The %s \"%s\" was read again; your unsaved changes to it are dropped.\n", kindText(),
              shownText(document_.name()));
      if (auto* const observer = unsavedObserver()) observer->dropping(*this);
    }
    takeDocument(std::move(*document), *bytes);
  }
  if (isInStock_) hostParts().edits->noteLoaded(*this);
  return true;
}

const EditExtent& EditFile::extent() const {
  if (!extent_) extent_ = extentOf(document_.json());
  return *extent_;
}

void EditFile::takeDocument(OtioDocument document, std::string_view bytes) {
  extent_.reset();
  document_ = std::move(document);
  noteContent(bytes);
  configuration_.unwritten.clear();
  pending_.clear();
  holdsChangesOf.clear();
  dirty_ = hasLocalChanges_ = celCuesOn_ = false;
  changedElsewhere_.reset();
}

EditFile::FileState EditFile::fileState() const {
  if (!changedElsewhere_) return FileState::eOurs;
  return *changedElsewhere_ == kNoFile ? FileState::eGone : FileState::eReplaced;
}

std::string EditFile::changedText(const char* how) const {
  return "The " + std::string(kindText()) + " " + inQuotes(document_.name()) + " was " + how +
         " by another station while you have unsaved changes to it. They are kept.";
}

// A message that the object was saved may be forged, or another station may have changed the owner
// alone. Then the file still has the content that the unsaved changes were made to.
bool EditFile::keepUnsaved(const OtioDocument& stored, const std::string& bytes) {
  takeOwner(stored);
  const bool isSame =
      isContent(bytes) || bodyOf(stored) == (dirty_ ? savedBody_ : bodyOf(document_));
  const AuthorScope author(stored.stamp().by);
  if (!isSame) return noteElsewhere(contentHash(bytes), changedText("saved"));
  saved_.note(bytes, stored.stamp().number);
  changedElsewhere_.reset();
  return false;
}

void EditFile::takeOwner(const OtioDocument& stored) {
  if (!isEdit() || configuration_.unwritten.contains(kOwnerKey)) return;
  const std::string owner = stored.setting(kOwnerKey);
  if (owner != document_.setting(kOwnerKey)) document_.setSetting(kOwnerKey, owner);
  if (auto* const permissions = iPermissionsManager::instance()) {
    permissions->setOwner(cookie_, getOwner(), iPermissionsManager::eEdit, false);
  }
}

void EditFile::takeStoredOwner() {
  if (!isEdit()) return;
  const auto bytes = readFresh(path());
  auto stored = parsed(bytes);
  if (!stored) return;
  takeOwner(*stored);
  if (!isContent(*bytes) && bodyOf(*stored) == (dirty_ ? savedBody_ : bodyOf(document_))) {
    saved_.note(*bytes, stored->stamp().number);
  }
  if (isInStock_) hostParts().edits->noteLoaded(*this);
}

Result<std::shared_ptr<ObjectLock>> EditFile::lockFile() {
  auto held = lock_.lock();
  if (held) return held;
  held = std::make_shared<ObjectLock>(path());
  const Result<void>& taken = held->taken();
  // On a share without locks nothing could ever be saved otherwise; replace() still notices a file
  // that another station changed before.
  if (!taken && taken.error().code != ErrorCode::eNoLockService) return taken.error();
  lock_ = held;
  return held;
}

Result<void> EditFile::revert() {
  const auto bytes = readFresh(path());
  auto document = parsed(bytes);
  if (!document) return document.error();
  takeDocument(std::move(*document), *bytes);
  tellObserver();
  return {};
}

void EditFile::takeUnsaved(OtioDocument document, std::size_t hash, long number) {
  const SaveStamp stamp = document.stamp();
  const bool isOfThisFile = saved_.hash() == hash;
  putContent(std::move(document));
  document_.setStamp(stamp);
  saved_.noteHash(hash, number);
  if (!isOfThisFile) savedBody_ = 0;  // the file holds another station's content by now
  isAsSaved_.reset();
}

void EditFile::takeSettings(const OtioDocument& stored, std::string_view bytes) {
  document_.setSetting(kOwnerKey, stored.setting(kOwnerKey));
  saved_.note(bytes, stored.stamp().number);
}

void EditFile::putContent(OtioDocument document) {
  noteSavedBody();
  extent_.reset();
  if (isEdit()) document.setSetting(kOwnerKey, document_.setting(kOwnerKey));
  document.setStamp(document_.stamp());
  document_ = std::move(document);
  setDirty(true);
}

void EditFile::readLate() {
  const auto bytes = readFresh(path());
  if (!bytes || isContent(*bytes)) return;
  const bool cuesWereShown = celCuesOn_;
  if (!reOpen(wideText(path()))) return;
  celCuesOn_ = cuesWereShown;
  tellReplaced();
}

bool EditFile::catchUp(const std::string& bytes) {
  if (isContent(bytes)) {
    const bool wasGone = fileState() == FileState::eGone;
    changedElsewhere_.reset();
    if (wasGone) tellChanged(kindText(), cookie_, "refreshed");
    return wasGone;
  }
  if (holdsUnsaved()) {
    const auto stored = OtioDocument::parse(bytes);
    return stored ? keepUnsaved(*stored, bytes)
                  : noteElsewhere(contentHash(bytes), changedText("damaged"));
  }
  const bool cuesWereShown = celCuesOn_;
  if (!replaceBy(bytes)) return false;
  celCuesOn_ = cuesWereShown;
  tellReplaced();
  return true;
}

bool EditFile::keepWithoutFile(const std::string& who) {
  const AuthorScope author(who);
  const std::string name = inQuotes(document_.name());
  const std::string deleted = (who.empty() ? "Another station" : shownText(who)) + " deleted the " +
                              kindText() + " " + name;
  const std::string beside = "\"edit save-copy\" makes a new edit of ";
  if (holdsUnsaved()) {
    return noteElsewhere(
        kNoFile, deleted + " while you have unsaved changes to it. They are kept: " + beside +
                     "them, \"edit revert\" drops them.");
  }
  return noteElsewhere(kNoFile, deleted + ", which you have open. What it holds is kept: " +
                                    beside + "it, \"edit close\" drops it.");
}

void EditFile::takeFileAgain() {
  if (const auto bytes = readFresh(path())) catchUp(*bytes);
}

/// `what` is the sentence that the user is told.
bool EditFile::noteElsewhere(std::size_t content, const std::string& what) {
  if (changedElsewhere_ == content) return false;
  changedElsewhere_ = content;
  LogBoth("%s\n", what);
  tellChanged(kindText(), cookie_, "refreshed");
  return true;
}

void EditFile::tellReplaced() {
  auto* const permissions = iPermissionsManager::instance();
  if (permissions && isEdit()) {
    permissions->setOwner(cookie_, getOwner(), iPermissionsManager::eEdit, false);
  }
  issueChangeNotification(EditModification(eModContentsChanged));
}

void EditFile::issueChangeNotification(const EditModification& modification) {
  const bool isWhole = modification.type_ == eModContentsChanged;
  const AuthorScope author(isWhole ? document_.stamp().by : std::string());
  tellChanged(kindText(), cookie_, isWhole ? "reloaded" : "modified");
}

void EditFile::setDirty(bool dirty) {
  // A message that another station saved must not make this user's changes count as saved.
  if (!dirty && currentOrigin() != Origin::eLocal) return;
  const bool becameDirty = dirty && !dirty_;
  dirty_ = dirty;
  hasLocalChanges_ = dirty;
  tellObserver();
  if (becameDirty) {
    ProjectListeners::instance().tell([this](auto& each) { each.handleLogDirtied(cookie_); });
  }
}

iUnsavedObserver* EditFile::unsavedObserver() const {
  return isInStock_ && hostParts().edits ? hostParts().edits->unsavedObserver() : nullptr;
}

void EditFile::tellObserver() const {
  auto* const observer = unsavedObserver();
  if (!observer) return;
  hasLocalChanges_ ? observer->changed(*this) : observer->settled(cookie_);
}

Result<void> EditFile::change(const EditModification& modification) {
  noteSavedBody();
  const Deed deed = deedOf(modification, document_);
  if (auto applied = apply(modification); !applied) return applied;
  setDirty(true);
  tellModified(deed);
  pending_.push_back(modification);
  return {};
}

Result<void> EditFile::changeRemotely(const EditModification& modification) {
  noteSavedBody();
  const Deed deed = deedOf(modification, document_);
  if (auto applied = apply(modification); !applied) return applied;
  // Without setDirty(): the listeners would announce another station's change as this one's.
  dirty_ = true;
  tellModified(deed);
  return {};
}

void EditFile::tellModified(const Deed& deed) const {
  if (!isInStock_ || !hostParts().edits) return;
  hostParts().edits->tellObservers([&](iEditObserver& each) { each.modified(cookie_, deed); });
}

void EditFile::noteSavedBody() {
  if (!dirty_) savedBody_ = bodyOf(document_);
  isAsSaved_.reset();
}

bool EditFile::isAsSaved() const {
  if (!dirty_) return true;
  if (!isAsSaved_) isAsSaved_ = bodyOf(document_) == savedBody_;
  return *isAsSaved_;
}

void EditFile::noteUndone() {
  // What another saved meanwhile is not in the document: taking it for saved would hide that.
  if (!hasLocalChanges_ || changedElsewhere_ || !isAsSaved()) return;
  hasLocalChanges_ = false;
  tellObserver();
}

Result<void> EditFile::apply(const EditModification& modification) {
  if (modification.type_ == eModTrim) {
    extent_.reset();
    return trimClip(document_.json(), modification.subject_.str(),
                    {modification.range_.start, modification.range_.end});
  }
  if (modification.type_ != eModRename) {
    return Error{ErrorCode::eUsage, "It is no change that this station understands.", {}};
  }
  if (auto checked = checkName(kindText(), modification.value_.str()); !checked) return checked;
  document_.rename(modification.value_.str());
  return {};
}

void EditFile::announce() {
  std::vector<EditModification> recorded;
  // Taken first: a listener may record another modification.
  recorded.swap(pending_);
  for (const EditModification& modification : recorded) tell(modification);
  announceDescription();
}

void EditFile::announceDescription() {
  if (description_ == eModNone) return;
  const EditModification described(description_);
  description_ = eModNone;
  tell(described);
}

// A created object was told of when it was first loaded.
void EditFile::tell(const EditModification& modification) {
  if (modification.type_ == eModCreated) {
    if (fileState() == FileState::eGone) takeFileAgain();
  } else {
    const bool isOwner = modification.type_ == eModOwnerChanged;
    tellChanged(isOwner ? "permissions" : kindText(), cookie_, "modified");
  }
  ProjectListeners::instance().tell(
      [&](auto& each) { each.handleLogModification(cookie_, modification); });
}

Result<void> EditFile::save(Overwrite overwrite) {
  const auto lock = lockFile();
  if (!lock) return lock.error();
  using History = SavedFile::History;
  const SaveStamp before = document_.stamp();
  const SavedFile savedBefore = saved_;
  const bool isAccepted = overwrite == Overwrite::eAccept;
  const bool isOwn = before.by == settings().user;
  const History history = isOwn ? History::eIfPossible : History::eOfReplaced;
  auto written = writeStamped(isAccepted ? history : History::eRequired);
  for (int tries = 1; tries < kSaveTries && !written; ++tries) {
    if (!isAccepted || written.error().code != ErrorCode::eChanged) break;
    // The user chose to overwrite, so what another station saved meanwhile is taken for the file to
    // be replaced. Its version stays in the history.
    noteWhatIsThere();
    written = writeStamped(History::eOfReplaced);
  }
  if (!written) {
    // Not saved, so it is still the save that it was read from, and another station's is still one
    // that the user has to be asked about.
    document_.setStamp(before);
    saved_ = savedBefore;
    return written;
  }
  changedElsewhere_.reset();
  configuration_.unwritten.clear();
  dirty_ = hasLocalChanges_ = false;
  tellObserver();
  return {};
}

Result<void> EditFile::writeStamped(SavedFile::History history) {
  const long number = std::max(saved_.number(), document_.stamp().number) + 1;
  document_.setStamp({number, settings().user, timeForRecord()});
  return saved_.replace(document_.text(), number, history);
}

/// Notes the file that another station put in the place of this one as the file to be replaced.
void EditFile::noteWhatIsThere() {
  const auto bytes = readFresh(path());
  if (!bytes) return saved_.noteMissing();
  const auto document = OtioDocument::parse(*bytes);
  if (!document) return saved_.note(*bytes, 0);
  takeSettings(*document, *bytes);
}

Result<void> EditFile::flushConfiguration() {
  if (configuration_.unwritten.empty()) return {};
  const auto lock = lockFile();
  if (!lock) return lock.error();
  Result<void> written;
  for (int tries = 0; tries < kSaveTries; ++tries) {
    written = mergeConfiguration();
    if (written || written.error().code != ErrorCode::eChanged) break;
  }
  if (written) configuration_.unwritten.clear();
  return written;
}

Result<void> EditFile::mergeConfiguration() {
  const auto bytes = readFresh(path());
  auto stored = parsed(bytes);
  if (!stored) return stored.error();
  bool differs = false;
  for (const std::string& key : configuration_.unwritten) {
    const std::string value = document_.setting(key);
    if (stored->setting(key) == value) continue;
    stored->setSetting(key, value);
    differs = true;
  }
  if (!differs) return {};
  // A copy: where the write fails, what is known of the file must stay as it is.
  SavedFile file = saved_;
  const bool isOurs = saved_.isNoted(*bytes);
  if (!isOurs) file.note(*bytes, stored->stamp().number);
  stored->setStamp({file.number() + 1, settings().user, timeForRecord()});
  auto written = file.replace(stored->text(), file.number() + 1, SavedFile::History::eIfPossible);
  if (!written || !isOurs) return written;  // another station saved it, and it is yet to be read
  saved_ = file;
  document_.setStamp(stored->stamp());
  if (dirty_) savedBody_ = bodyOf(*stored);
  return {};
}

void EditFile::Configuration::set(const LightweightString<char>& key,
                                  const LightweightString<char>& value) {
  document_.setSetting(key.str(), value.str());
  unwritten.insert(key.str());
}

LightweightString<char> EditFile::Configuration::get(const LightweightString<char>& key) const {
  return hostText(document_.setting(key.str()));
}

}  // namespace korvel
