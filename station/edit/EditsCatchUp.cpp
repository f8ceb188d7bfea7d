// How the list of edits and the open edits follow what is found in the folder.

#include "host/project/iPermissionsManager.h"
#include "station/base/Events.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"

namespace korvel {

namespace {

/// Permissions are decided by the owner that the rules were told of last.
void tellOwner(const Cookie& cookie, const std::string& owner) {
  auto* const permissions = iPermissionsManager::instance();
  if (!permissions || cookie.getType() != CookieTypeEdit) return;
  permissions->setOwner(cookie, wideText(owner), iPermissionsManager::eEdit, false);
}

}  // namespace

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
  const EditSummary* const known = index_.find(cookie);
  const bool isSame = known && file.bytes && known->content == contentHash(*file.bytes);
  if (isSame || !file.isCurrent()) return false;
  auto summary =
      file.bytes ? readEditSummary(*file.bytes) : Result<EditSummary>(file.bytes.error());
  if (!summary) {
    const bool isNews = !known || known->problem != summary.error().message;
    setAside(cookie, summary.error().message);
    if (isNews) events().changed(kindText(cookie), cookie, "refreshed", currentOrigin());
    return isNews;
  }
  const bool isNew = !known;
  const bool hasNewOwner = known && known->owner != summary->owner;
  const std::string owner = summary->owner;
  // The owner of a log is kept in memory alone.
  if (known && cookie.getType() != CookieTypeEdit) summary->owner = known->owner;
  const bool wasTold = index_.clearStale(cookie);
  index_.put(cookie, std::move(*summary));
  if (hasNewOwner) tellOwner(cookie, owner);
  if (wasTold) return false;
  events().changed(kindText(cookie), cookie, isNew ? "created" : "refreshed", currentOrigin());
  return true;
}

bool Edits::catchUpGone(const Cookie& cookie, const FoundFile& file) {
  if (!holds(cookie) || !file.isCurrent()) return false;
  return takeDeletion(cookie);
}

}  // namespace korvel
