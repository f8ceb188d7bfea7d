#include "host/base/Log.h"
#include "host/edit/Edit.h"
#include "host/edit/EditManager.h"
#include "host/project/ProjectSpacesManager.h"
#include "host/project/iPermissionsManager.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/Strings.h"
#include "station/edit/EditHistory.h"
#include "station/edit/Edits.h"
#include "station/keep/TrashFolder.h"
#include "station/os/SharedFiles.h"
#include "station/project/DelayedReread.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"
#include "station/wire/MessageTable.h"

// The host's edit operations, in front of the one Edits object.

using namespace korvel;

namespace korvel {

namespace {

EditFile* fileOf(Edit* edit) { return static_cast<EditFile*>(edit); }

void giveBack(Edit*& edit) {
  if (edit && hostParts().edits) hostParts().edits->release(fileOf(edit));
  edit = nullptr;
}

/// An edit with unsaved changes counts as open, so that a save elsewhere reaches it.
bool isOpenHere(const EditFile* edit) { return edit && (edit->isUserOpen || edit->isDirty()); }

std::string fileNameOf(const Cookie& cookie) { return cookie.asString().str() + ".otio"; }

std::string pathIn(const Cookie& project, const Cookie& cookie) {
  return projectFolder(project) + "/" + fileNameOf(cookie);
}

/// Where an object is: in the open project, else in the project that the message being delivered
/// names. No other is searched: a stranger must not make this station read every project.
std::string findFile(const Cookie& cookie, const Cookie& open) {
  std::string here = open.isNull() ? std::string() : pathIn(open, cookie);
  if (hostParts().edits->holds(cookie) || existsFresh(here)) return here;
  const std::string there = pathInNamedProject(fileNameOf(cookie));
  return there.empty() ? here : there;
}

/// The fields of a message. The one that is being delivered was read already.
MessageFields fieldsOf(const LightweightString<char>& wireText) {
  const ReceivedMessage* const current = currentMessage();
  const bool isCurrent = current && wireText.view() == current->wireText;
  return isCurrent ? current->fields : readMessage(wireText.view());
}

/// What another changed in an edit that is not open here is not applied: it is read when the edit
/// is opened, once it is saved.
void tellOfUnopened(const Cookie& cookie, const EditModification& modification) {
  Edits& edits = *hostParts().edits;
  const EditSummary* const known = edits.summary(cookie);
  if (!known || modification.type_ == eModNone) return;
  const std::string path = modification.subject_.str();
  const bool isTrim = modification.type_ == eModTrim;
  const std::string name = modification.value_.str();
  const Deed deed =
      isTrim ? Deed{"trimmed", path, path} : Deed{"renamed", {}, {}, known->name, name};
  edits.tellObservers([&](iEditObserver& each) { each.modified(cookie, deed); });
}

}  // namespace

}  // namespace korvel

EditPtr::~EditPtr() { i_close(); }

void EditPtr::i_open(const Cookie& cookie, int) {
  i_close();
  if (!hostParts().edits) return;
  if (const auto edit = hostParts().edits->hold(cookie)) edit_ = *edit;
}

void EditPtr::i_close() {
  if (edit_) fileOf(edit_)->announceDescription();
  giveBack(edit_);
}

// The description is for the host's undo list. This station's list makes its own texts (EditSteps).
EditModifier::EditModifier(EditPtr& edit, const LightweightString<char>&) : edit_(edit.get()) {
  if (edit_) Edits::holdAgain(*fileOf(edit_));
}

EditModifier::~EditModifier() {
  if (edit_) fileOf(edit_)->announce();
  giveBack(edit_);
}

void EditModifier::clearModifications() {
  if (edit_) edit_->clearPendingModifications();
}

void EditManager::addNetMessage(const Cookie& cookie, const LightweightString<char>& wireText) {
  EditFile* edit = hostParts().edits->loaded(cookie);
  const EditModification modification{hostText(fieldsOf(wireText).modification)};
  if (!EditFile::concerns(modification.type_)) return;
  if (!isOpenHere(edit)) return tellOfUnopened(cookie, modification);
  if (auto changed = edit->changeRemotely(modification); !changed) {
    LogBoth("Another station's change of the %s \"%s\" cannot be applied: %s\n", edit->kindText(),
            shownText(edit->document().name()), changed.error().message);
    edit->holdsChangesOf.erase(currentAuthor());  // one of them is missing here from now on
    return;
  }
  hostParts().edits->noteLoaded(*edit);
  edit->issueChangeNotification(modification);
}

void EditManager::handleNetDelete(const Cookie& cookie) {
  hostParts().edits->noteDeletedElsewhere(cookie);
}

void EditManager::updateProjdbRec(const Cookie& cookie) { hostParts().edits->refresh(cookie); }

// An edit's owner is stored in its file, by the station that gave it away. So a message alone does
// not change it, forged or not: the file is read. A log's owner is kept in memory only, so there
// the message counts.
void EditManager::updateLocalPermissions(const Cookie& cookie,
                                         const LightweightString<char>& owner) {
  Edits& edits = *hostParts().edits;
  const bool isEdit = cookie.getType() == CookieTypeEdit;
  if (isEdit) return edits.takeStoredOwner(cookie);
  if (auto* permissions = iPermissionsManager::instance()) {
    permissions->setOwner(cookie, fromUTF8(owner), iPermissionsManager::eShot, false);
  }
  edits.noteOwner(cookie, owner.str());
  tellChanged("permissions", cookie, "modified");
}

bool EditManager::isOpen(const Cookie& cookie) {
  return isOpenHere(hostParts().edits->loaded(cookie));
}

Cookie EditManager::getCurrentProjectID() { return get_project_cookie(); }

void EditManager::flushChanges(const Cookie& cookie) {
  EditFile* edit = hostParts().edits->loaded(cookie);
  if (!edit || currentOrigin() != Origin::eLocal) return;  // a message writes no file
  if (auto flushed = edit->flushConfiguration(); !flushed) {
    LogBoth("The settings of the %s \"%s\" could not be written: %s\n", edit->kindText(),
            shownText(edit->document().name()), flushed.error().message);
  }
  hostParts().edits->noteLoaded(*edit);
}

LightweightString<wchar_t> getFilenameForCookie(const Cookie& cookie, const Cookie& project) {
  if (!project.isNull()) return wideText(pathIn(project, cookie));
  return wideText(findFile(cookie, get_project_cookie()));
}

// How the list of edits and the open edits follow what others tell and what is found in the folder.

namespace korvel {

/// The permission rules decide by the owner that they were told of last.
void Edits::tellOwner(const Cookie& cookie, const std::string& owner) {
  auto* const permissions = iPermissionsManager::instance();
  if (!permissions || cookie.getType() != CookieTypeEdit) return;
  permissions->setOwner(cookie, wideText(owner), iPermissionsManager::eEdit, false);
}

void Edits::noteSavedElsewhere(const Cookie& cookie) {
  if (!holds(cookie)) return;
  index_.markStale(cookie);
  lookLater(cookie);
  tellObservers([&](iEditObserver& each) { each.savedElsewhere(cookie); });
  tellChanged(kindText(cookie), cookie, "refreshed");
}

void Edits::noteDeletedElsewhere(const Cookie& cookie) {
  if (!holds(cookie) || forgetIfGone(cookie)) return;
  DelayedReread::arrange("deleted " + cookie.asString().str(),
                         [this, cookie] { forgetIfGone(cookie); });
}

// A message alone deletes nothing: it may be forged, or arrive before the share shows the deletion.
bool Edits::forgetIfGone(const Cookie& cookie) {
  if (!isProjectOpen() || !holds(cookie) || !isGoneFrom(folder_, pathFor(cookie))) return false;
  takeDeletion(cookie);
  return true;
}

bool Edits::isFileGone(const Cookie& cookie) const {
  return isProjectOpen() && isGoneFrom(folder_, pathFor(cookie));
}

bool Edits::takeDeletion(const Cookie& cookie) {
  EditFile* const edit = loaded(cookie);
  if (edit && (edit->isUserOpen || edit->holdsUnsaved())) {
    return edit->keepWithoutFile(TrashFolder(folder_).whoDeleted(cookie.asString().str()));
  }
  forget(cookie);
  tellChanged(kindText(cookie), cookie, "destroyed");
  return true;
}

void Edits::takeStoredOwner(const Cookie& cookie) {
  if (!isProjectOpen()) return;
  lookLater(cookie);
  const auto held = hold(cookie);
  if (!held) return;
  (*held)->takeStoredOwner();
  release(*held);
  tellChanged("permissions", cookie, "modified");
}

void Edits::lookLater(const Cookie& cookie) {
  DelayedReread::arrange(cookie.asString().str(), [this, cookie] { readLate(cookie); });
}

// An object whose file is gone is not handled here: the message of its deletion, or the watch, does
// that.
void Edits::readLate(const Cookie& cookie) {
  if (!isProjectOpen() || !holds(cookie)) return;
  if (EditFile* const edit = loaded(cookie)) return edit->readLate();
  if (index_.isStale(cookie) || !existsFresh(pathFor(cookie))) return;
  const EditSummary before = *summary(cookie);
  indexFile(cookie);
  const EditSummary* const now = summary(cookie);
  if (!now || *now == before) return;
  const AuthorScope author(now->savedBy);
  tellChanged(kindText(cookie), cookie, "refreshed");
  if (now->owner != before.owner) takeStoredOwner(cookie);
}

std::size_t Edits::catchUp(const FoundFiles& files) {
  std::size_t told = 0;
  for (const FoundFile& file : files) {
    const Cookie cookie = cookieOfFile(file.name);
    if (!cookie.isNull() && catchUpOne(cookie, file)) ++told;
  }
  return told;
}

bool Edits::catchUpOne(const Cookie& cookie, const FoundFile& file) {
  if (file.isGone) return catchUpGone(cookie, file);
  if (EditFile* const edit = loaded(cookie)) return catchUpLoaded(*edit, file);
  return catchUpListed(cookie, file);
}

bool Edits::catchUpLoaded(EditFile& edit, const FoundFile& file) {
  if (!file.bytes || (contentHash(*file.bytes) != edit.content() && !file.isCurrent())) {
    return false;
  }
  return edit.catchUp(*file.bytes);
}

bool Edits::catchUpListed(const Cookie& cookie, const FoundFile& file) {
  const EditSummary* const known = this->summary(cookie);
  const bool isSame = known && file.bytes && known->content == contentHash(*file.bytes);
  if (isSame || !file.isCurrent()) return false;
  auto summary =
      file.bytes ? readEditSummary(*file.bytes) : Result<EditSummary>(file.bytes.error());
  if (!summary) {
    const bool isNews = !known || known->problem != summary.error().message;
    setAside(cookie, summary.error().message);
    if (isNews) tellChanged(kindText(cookie), cookie, "refreshed");
    return isNews;
  }
  const bool isNew = !known;
  const bool hasNewOwner = known && known->owner != summary->owner;
  const std::string owner = summary->owner;
  // The owner of a log is kept in memory alone.
  if (known && cookie.getType() != CookieTypeEdit) summary->owner = known->owner;
  // A message told of this save already: the lists were told to read it again.
  const bool wasTold = index_.clearStale(cookie);
  const AuthorScope author(summary->savedBy);
  put(cookie, std::move(*summary));
  if (hasNewOwner) tellOwner(cookie, owner);
  if (wasTold) return false;
  tellChanged(kindText(cookie), cookie, isNew ? "created" : "refreshed");
  return true;
}

bool Edits::catchUpGone(const Cookie& cookie, const FoundFile& file) {
  if (!holds(cookie) || !file.isCurrent()) return false;
  return takeDeletion(cookie);
}

}  // namespace korvel
