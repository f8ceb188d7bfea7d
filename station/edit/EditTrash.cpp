// Deleting and taking back: all of EditActions that moves files to the trash and from it.

#include "host/base/Log.h"
#include "host/project/iPermissionsManager.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/EditSteps.h"
#include "station/edit/Edits.h"
#include "station/os/ObjectLock.h"
#include "station/os/Posix.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectListeners.h"

namespace korvel {

namespace {

/// Whether what a file's lock guards may be done: also on a share without locks, where nothing
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
    events().changed(Edits::kindText(cookie), cookie, "destroyed", currentOrigin());
  }
  if (cookies.empty()) return;
  ProjectListeners::instance().tell(
      [&](auto& each) { each.handleLogsDeletion(cookies, LightweightString<char>("user")); });
}

/// The rules may remember the owner that the object had before it was deleted.
void tellOwner(const Cookie& cookie) {
  auto* const permissions = iPermissionsManager::instance();
  if (!permissions || cookie.getType() != CookieTypeEdit) return;
  permissions->setOwner(cookie, wideText(openEdits().ownerOf(cookie)), iPermissionsManager::eEdit,
                        false);
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
  openEdits().takeUpFile(cookie);
  tellOwner(cookie);
  ProjectListeners::instance().tell([&](auto& each) { each.handleLogStorage(cookie, true); });
  return {};
}

}  // namespace korvel
