#include "host/base/Log.h"
#include "host/project/iPermissionsManager.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditHistory.h"
#include "station/edit/Edits.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/Names.h"
#include "station/project/Projects.h"

// Saving, and what depends on versions: all of EditActions that writes existing objects.

namespace korvel {

namespace {

/// Writes a loaded object and announces it. Its lock keeps other stations from changing the owner
/// meanwhile. The owner that the file names decides, so the rules are asked again under the lock.
Result<void> saveLoaded(EditFile& edit, EditFile::Overwrite overwrite) {
  const Cookie cookie = edit.getCookie();
  if (auto allowed = EditActions::requireAllowed(cookie, eModContentsChanged); !allowed) {
    return allowed;
  }
  const auto lock = edit.lockFile();
  if (!lock) {
    return Error{lock.error().code,
                 "The " + EditActions::titleOf(cookie) + " was not saved: " + lock.error().message,
                 lock.error().path};
  }
  edit.takeStoredOwner();
  if (auto allowed = EditActions::requireAllowed(cookie, eModContentsChanged); !allowed) {
    return allowed;
  }
  auto saved = edit.save(overwrite);
  const bool isChanged = !saved && saved.error().code == ErrorCode::eChanged;
  // Another station changed settings alone, such as the owner: the user need not be asked.
  if (isChanged && EditHistory::takeChangedSettings(edit)) saved = edit.save(overwrite);
  if (!saved) {
    const Error& why = saved.error();
    if (why.code == ErrorCode::eChanged) return EditHistory::refusalOf(edit);
    return Error{why.code, "The " + EditActions::titleOf(cookie) + " was not saved: " + why.message,
                 why.path};
  }
  openEdits().noteLoaded(edit);
  tellChanged(edit.kindText(), cookie, "refreshed");
  ProjectListeners::instance().tell([&](auto& each) { each.handleLogStorage(cookie, false); });
  return {};
}

/// Does something with the loaded object; it stays loaded meanwhile.
template <typename Action>
Result<void> withLoaded(const Cookie& cookie, const Action& action) {
  const auto edit = openEdits().hold(cookie);
  if (!edit) return edit.error();
  Result<void> done = action(**edit);
  openEdits().release(*edit);
  return done;
}

/// Whether another station deleted the object, noticed by now or not.
bool hasNoFile(const EditFile& edit) {
  return edit.fileState() == EditFile::FileState::eGone || openEdits().isFileGone(edit.getCookie());
}

}  // namespace

Result<void> EditActions::save(const Cookie& cookie, EditFile::Overwrite overwrite) {
  return withLoaded(cookie, [&](EditFile& edit) { return saveLoaded(edit, overwrite); });
}

Result<Cookie> EditActions::saveCopy(const Cookie& cookie, const std::string& name) {
  if (auto checked = checkName(Edits::kindText(cookie), name); !checked) return checked.error();
  const auto edit = openEdits().hold(cookie);
  if (!edit) return edit.error();
  OtioDocument copy = (*edit)->document();
  const bool isGone = hasNoFile(**edit);
  openEdits().release(*edit);
  copy.rename(name);
  auto stored = store(std::move(copy), cookie.getType());
  // Only once the copy is on the share: until then the loaded object is the only one.
  if (stored && isGone) openEdits().letGo(cookie);
  return stored;
}

Result<void> EditActions::revert(const Cookie& cookie) {
  EditFile* const edit = openEdits().loaded(cookie);
  if (!edit || !edit->isDirty()) return {};
  if (hasNoFile(*edit)) {
    openEdits().letGo(cookie);
    return {};
  }
  if (auto reverted = edit->revert(); !reverted) {
    const Error& why = reverted.error();
    return Error{why.code, "The changes of the " + titleOf(cookie) + " were kept: " + why.message,
                 why.path};
  }
  openEdits().noteLoaded(*edit);
  tellChanged(edit->kindText(), cookie, "reloaded");
  return withLoaded(cookie, [](EditFile&) { return Result<void>(); });  // unloads it if not open
}

Result<void> EditActions::restore(const Cookie& cookie, const std::string& version,
                                  Unsaved unsaved) {
  const auto document = EditHistory::read(cookie, version);
  if (!document) return document.error();
  const auto bytes = readFresh(openEdits().pathFor(cookie));
  const auto before = bytes ? OtioDocument::parse(*bytes) : Result<OtioDocument>(bytes.error());
  const auto saved = saveAsNewest(cookie, *document, unsaved);
  // Of a file that could not be read nothing can be brought back.
  if (saved) {
    events().audit("version", {{"cookie", cookie.asString().str()},
                               textMember("name", openEdits().nameOf(cookie)),
                               {"version", version}});
  }
  if (saved && before) EditSteps::noteRestore(cookie, *before, *document, version);
  return saved;
}

namespace {

/// Puts content in the place of unsaved changes and saves it. Where that fails, they are there
/// again. What another saved meanwhile is replaced, and stays in the history, as it would be if the
/// changes were dropped first.
Result<void> saveInstead(EditFile& edit, const OtioDocument& document) {
  const OtioDocument unsaved = edit.document();
  edit.putContent(document);
  auto saved = saveLoaded(edit, EditFile::Overwrite::eRefuse);
  const bool isChanged = !saved && saved.error().code == ErrorCode::eChanged;
  if (isChanged && !hasNoFile(edit)) saved = saveLoaded(edit, EditFile::Overwrite::eAccept);
  if (saved) {
    edit.holdsChangesOf.clear();
  } else {
    edit.putContent(unsaved);
  }
  return saved;
}

Result<void> saveOver(EditFile& edit, const OtioDocument& document) {
  edit.putContent(document);
  auto saved = saveLoaded(edit, EditFile::Overwrite::eRefuse);
  // The refusal of the save is what the user has to know; where this fails too, the edit stays
  // dirty.
  if (!saved) (void)edit.revert();
  return saved;
}

}  // namespace

Result<void> EditActions::saveAsNewest(const Cookie& cookie, const OtioDocument& document,
                                       Unsaved unsaved) {
  return withLoaded(cookie, [&](EditFile& edit) -> Result<void> {
    if (auto allowed = requireAllowed(cookie, eModContentsChanged); !allowed) return allowed;
    const bool hasUnsaved = edit.hasLocalChanges();
    if (hasUnsaved && unsaved == Unsaved::eRefuse) {
      return Error{ErrorCode::eUnsaved,
                   "The " + titleOf(cookie) +
                       " has unsaved changes; \"edit save\" or \"edit revert\" it first.",
                   {}};
    }
    auto saved = hasUnsaved ? saveInstead(edit, document) : saveOver(edit, document);
    if (saved) {
      tellChanged(edit.kindText(), cookie, "reloaded");
    } else {
      openEdits().noteLoaded(edit);  // the list has the older version's name by now
    }
    return saved;
  });
}

}  // namespace korvel

// Deleting and taking back: all of EditActions that moves files to the trash and from it.

namespace korvel {

namespace {

/// Whether the work that the lock guards may go on: also on a share without locks, where nothing
/// could ever be deleted otherwise.
Result<void> requireLock(const ObjectLock& lock) {
  const Result<void>& taken = lock.taken();
  if (taken || taken.error().code == ErrorCode::eNoLockService) return {};
  return taken;
}

/// An object whose file is gone already is deleted all the same.
Result<void> moveOne(const Cookie& cookie, std::vector<Trashed>& trashed) {
  const std::string path = openEdits().pathFor(cookie);
  const ObjectLock lock(path);
  if (auto taken = requireLock(lock); !taken) return taken;
  const std::string folder = folderOf(path);
  auto moved = TrashFolder(folder).take(path, settings().user);
  if (moved) {
    trashed.push_back(std::move(*moved));
  } else if (!isGoneFrom(folder, path)) {
    return moved.error();
  }
  return {};
}

void tellDeleted(const CookieVec& cookies) {
  for (const Cookie& cookie : cookies) {
    openEdits().forget(cookie);
    tellChanged(Edits::kindText(cookie), cookie, "destroyed");
  }
  ProjectListeners::instance().tellDeleted(cookies, "user");
}

}  // namespace

Result<void> EditActions::remove(const std::vector<Cookie>& cookies) {
  for (const Cookie& cookie : cookies) {
    if (auto allowed = requireAllowed(cookie, eModContentsChanged); !allowed) return allowed;
  }
  const std::string name = cookies.empty() ? std::string() : openEdits().nameOf(cookies.front());
  std::vector<Trashed> trashed;
  auto moved = moveToTrash(cookies, trashed);
  if (!trashed.empty()) EditSteps::noteDeletion(trashed, name);
  return moved;
}

Result<void> EditActions::moveToTrash(const std::vector<Cookie>& cookies,
                                      std::vector<Trashed>& trashed) {
  CookieVec deleted;
  Result<void> result;
  trashed.clear();
  for (const Cookie& cookie : cookies) {
    if (auto moved = moveOne(cookie, trashed); moved) {
      deleted.push_back(cookie);
      events().audit("deleted",
                     auditedObject(Edits::kindText(cookie), cookie, openEdits().nameOf(cookie)));
    } else {
      const Error& why = moved.error();
      result =
          Error{why.code, "The " + titleOf(cookie) + " was not deleted: " + why.message, why.path};
      break;
    }
  }
  tellDeleted(deleted);
  return result;
}

Result<void> EditActions::takeBack(const Trashed& trashed) {
  const Cookie cookie(trashed.object.c_str(), false);
  const std::string path = openEdits().pathFor(cookie);
  {
    const ObjectLock lock(path);
    if (auto taken = requireLock(lock); !taken) return taken;
    if (auto moved = TrashFolder::giveBack(trashed, path); !moved) return moved;
  }
  // After the lock was given up: telling of it may lead to reading and saving.
  openEdits().takeUpFile(cookie);
  events().audit("restored",
                 auditedObject(Edits::kindText(cookie), cookie, openEdits().nameOf(cookie)));
  ProjectListeners::instance().tell([&](auto& each) { each.handleLogStorage(cookie, true); });
  return {};
}

}  // namespace korvel
