#include "station/talk/HeldObjects.h"

#include <algorithm>

#include "host/base/Text.h"
#include "host/project/iProjectShare.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/talk/AskWords.h"
#include "station/watch/Presence.h"

namespace korvel {

namespace {

/// A lock that cannot be looked at may be held.
bool isFreeNow(LockState state) {
  return state == LockState::eFree || state == LockState::eLeftBehind;
}

}  // namespace

Result<NotedAsk> HeldObjects::find(const std::string& object) const {
  std::vector<NotedAsk> found;
  bool isKnown = false;
  findCalled(object, found, isKnown);
  const auto [kind, name] = kindAndName(object);
  if (!isKnown && !kind.empty()) {
    findCalled(name, found, isKnown);
    std::erase_if(found, [&kind = kind](const NotedAsk& each) {
      return kind == AskWords::kEdit ? !AskWords::isDocument(each.kind) : each.kind != kind;
    });
  }
  if (found.size() == 1) {
    if (found.front().to.empty()) return holderUnknown(found.front());
    found.front().to = userOf(found.front().to);
    return found.front();
  }
  if (!found.empty()) return askedOfSeveral(object, found);
  if (!isKnown) return nothingHeld(object);
  return Error{ErrorCode::eUsage,
               "Nobody else holds " + inQuotes(object) + ": you can have it without asking.",
               {}};
}

void HeldObjects::findCalled(const std::string& object, std::vector<NotedAsk>& found,
                             bool& isKnown) const {
  findEdit(object, found, isKnown);
  // A cookie is no other's name, and to list rooms and projects asks the share.
  if (!found.empty() && found.front().object == object) return;
  findRoom(object, found, isKnown);
  findProject(object, found, isKnown);
}

void HeldObjects::findEdit(const std::string& object, std::vector<NotedAsk>& found,
                           bool& isKnown) const {
  const OpenProject* const open = parts_.projects.current();
  if (!open) return;
  const auto cookie = parts_.projects.resolve(object, Edits::kKinds);
  if (!cookie) return;
  isKnown = true;
  const std::string owner = parts_.edits.ownerOf(*cookie);
  if (owner.empty() || EditActions::isAllowed(*cookie)) return;
  found.push_back({{},
                   owner,
                   Edits::kindText(*cookie),
                   cookie->asString().str(),
                   shortName(parts_.edits.nameOf(*cookie)),
                   open->cookie.asString().str(),
                   {},
                   0});
}

void HeldObjects::findRoom(const std::string& object, std::vector<NotedAsk>& found,
                           bool& isKnown) const {
  const OpenProject* const open = parts_.projects.current();
  if (!open || open->isPrivate) return;
  const auto rooms = parts_.rooms.list();
  if (!rooms) return;
  const auto room = std::ranges::find(*rooms, object, &RoomInfo::name);
  if (room == rooms->end()) return;
  isKnown = true;
  if (room->isHere || room->state != LockState::eHeld) return;
  found.push_back({{},
                   room->holder,
                   AskWords::kRoom,
                   hexText(object),
                   shortName(object),
                   open->cookie.asString().str(),
                   {},
                   0});
}

void HeldObjects::findProject(const std::string& object, std::vector<NotedAsk>& found,
                              bool& isKnown) const {
  const auto projects = parts_.projects.list();
  if (!projects) return;
  for (const ProjectInfo& each : *projects) {
    const std::string cookie = each.cookie.asString().str();
    if (object != each.name && object != cookie) continue;
    isKnown = true;
    const OpenProject* const open = parts_.projects.current();
    const bool isOpen = open && open->cookie.asString().str() == cookie;
    if (isOpen || each.lock != LockState::eHeld) continue;
    found.push_back(
        {{}, each.lockOwner, AskWords::kProject, cookie, shortName(each.name), cookie, {}, 0});
  }
}

std::string HeldObjects::userOf(const std::string& holder) const {
  for (const FoundStation& each : parts_.presence.known()) {
    const StationNote& note = each.note;
    if (note.user == holder || upperCased(note.host) == holder) return note.user;
  }
  return holder;
}

void HeldObjects::nameAsHere(NotedAsk& object) const {
  const Cookie cookie(object.object.c_str(), false);
  const OpenProject* const open = parts_.projects.current();
  if (AskWords::isDocument(object.kind) && parts_.edits.holds(cookie)) {
    object.name = shortName(parts_.edits.nameOf(cookie));
  } else if (object.kind == AskWords::kRoom && !roomOf(object).empty()) {
    object.name = shortName(roomOf(object));
  } else if (object.kind == AskWords::kProject && open && open->cookie.compare(cookie) == 0) {
    object.name = shortName(open->name);
  }
}

bool HeldObjects::isGone(const NotedAsk& object) const {
  const OpenProject* const open = parts_.projects.current();
  if (!open || open->cookie.asString().str() != object.project) return false;
  if (AskWords::isDocument(object.kind))
    return !parts_.edits.holds(Cookie(object.object.c_str(), false));
  if (object.kind != AskWords::kRoom) return false;
  const auto& rooms = parts_.rooms.known();
  return std::ranges::find(rooms, roomOf(object), &RoomInfo::name) == rooms.end();
}

bool HeldObjects::isFree(const NotedAsk& object) const {
  if (object.kind == AskWords::kProject) {
    iProjectShare* const share = iProjectShare::instance();
    if (!share) return false;
    const Cookie project(object.object.c_str(), false);
    return isFreeNow(lookAtLock(share->getProjectLockFile(project)));
  }
  const OpenProject* const open = parts_.projects.current();
  if (!open || open->cookie.asString().str() != object.project) return false;
  if (AskWords::isDocument(object.kind)) {
    const Cookie cookie(object.object.c_str(), false);
    return parts_.edits.summary(cookie) && EditActions::isAllowed(cookie);
  }
  const auto& rooms = parts_.rooms.known();
  const auto room = std::ranges::find(rooms, roomOf(object), &RoomInfo::name);
  return room != rooms.end() && isFreeNow(room->state);
}

}  // namespace korvel
