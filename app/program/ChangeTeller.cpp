#include "app/program/ChangeTeller.h"

#include <algorithm>
#include <array>
#include <utility>

#include "station/base/Events.h"
#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/watch/Presence.h"

namespace korvel {

namespace {

/// How much of a cookie stands for a name that is not known.
constexpr std::size_t kShortCookie = 9;

/// How what had been deleted is there again; the events have no word of their own for it.
constexpr const char* kRestored = "restored";

/// What people call a change, and how much it matters beside others of the same object.
struct Verb {
  const char* how;
  int weight;
  const char* said;
};

constexpr std::array kVerbs{Verb{"modified", 0, "changed"},  Verb{"refreshed", 1, "changed"},
                            Verb{"reloaded", 1, "changed"},  Verb{"added", 2, "added"},
                            Verb{"created", 2, "made"},      Verb{"removed", 2, "took out"},
                            Verb{"destroyed", 2, "deleted"}, Verb{kRestored, 2, "brought back"}};

const Verb& verbOf(const std::string& how) {
  const auto found = std::ranges::find(kVerbs, how, &Verb::how);
  return found == kVerbs.end() ? kVerbs.front() : *found;
}

bool isDocument(const std::string& what) { return what == "edit" || what == "log"; }

/// A text of the event, or what it says in hexadecimal where it is not UTF-8.
std::string textOf(const JsonValue& event, const std::string& key) {
  return event.find(key) ? shownText(event[key].asString()) : event[key + "_hex"].asString();
}

}  // namespace

ChangeTeller::ChangeTeller(Station& station, TextOutput& text)
    : station_(station), hostThread_(station.hostThread()), text_(text) {}

void ChangeTeller::take(const StationEvent& event) {
  const JsonValue& value = event.value;
  // What is in a project that was just entered may be deleted before anything else happens to it.
  const std::string command = event.name == "reply" ? value["command"].asString() : std::string();
  const bool hasEntered = command == "project enter";
  if (command == "room create") hasMadeRoom_ = true;
  if (event.name == "presence") return tellSoon(false);
  if (event.name != "changed" && !hasEntered) return;
  const std::string origin = value["origin"].asString();
  const bool isAgain = !hasEntered && isBack(value["cookie"].asString(), value["how"].asString());
  if (!hasEntered && origin != originText(Origin::eLocal)) {
    std::string who = textOf(value, "by");
    if (who.empty()) who = origin == originText(Origin::eFolder) ? "Somebody" : "Another station";
    note({value["what"].asString(), value["cookie"].asString(),
          isAgain ? kRestored : value["how"].asString(), who});
  }
  tellSoon(hasEntered);
}

/// Notes what was deleted, and says whether this is what brought it back.
bool ChangeTeller::isBack(const std::string& cookie, const std::string& how) {
  const std::lock_guard lock(mutex_);
  if (how == "destroyed") gone_.insert(cookie);
  return how == "created" && gone_.erase(cookie) > 0;
}

void ChangeTeller::note(Change change) {
  const std::lock_guard lock(mutex_);
  const auto known = std::ranges::find_if(pending_, [&change](const Change& each) {
    return each.what == change.what && each.cookie == change.cookie;
  });
  if (known == pending_.end()) {
    pending_.push_back(std::move(change));
  } else if (verbOf(change.how).weight >= verbOf(known->how).weight) {
    *known = std::move(change);
  }
}

void ChangeTeller::tellSoon(bool hasEntered) {
  {
    const std::lock_guard lock(mutex_);
    hasEntered_ = hasEntered_ || hasEntered;
    if (std::exchange(isPosted_, true)) return;
  }
  hostThread_.postAfter(kTogether, [this, alive = std::weak_ptr<int>(alive_)] {
    if (!alive.expired()) tell();
  });
}

void ChangeTeller::tell() {
  std::vector<Change> changes;
  bool hasEntered = false;
  {
    const std::lock_guard lock(mutex_);
    changes.swap(pending_);
    hasEntered = std::exchange(hasEntered_, false);
    isPosted_ = false;
  }
  if (!station_.projects().current()) return names_.clear();
  learnNames();
  std::vector<std::string> lines;
  lines.reserve(changes.size());
  // Which room it was no message says: what is shown of the rooms is compared.
  std::erase_if(changes, [](const Change& each) { return each.what == "room"; });
  for (const Change& each : changes) lines.push_back(lineOf(each));
  std::vector<std::string> ofPeople = newsOfPeople();
  newsOfRooms(ofPeople, hasMadeRoom_.exchange(false));
  // What was there when the project was entered is no news.
  if (!hasEntered) lines.insert(lines.end(), ofPeople.begin(), ofPeople.end());
  const std::size_t shown = lines.size() > kMostLines ? kMostLines - 1 : lines.size();
  for (std::size_t each = 0; each < shown; ++each) text_.answer(lines[each]);
  if (shown < lines.size()) {
    text_.answer("Others made " + std::to_string(lines.size() - shown) + " further changes.");
  }
}

namespace {

/// Who is seen in a room: empty for this station and for nobody.
std::string seenIn(const RoomInfo& room) {
  if (room.isHere || room.state != LockState::eHeld) return {};
  return room.holder.empty() ? "Another station" : room.holder;
}

std::string changeText(const RoomInfo& before, const RoomInfo& now) {
  const std::string was = seenIn(before);
  const std::string is = seenIn(now);
  const std::string room = "the room " + inQuotes(now.name) + ".";
  // Its user's name can be read some moments later than that it is taken.
  if (was == is || (before.holder.empty() && !was.empty() && !is.empty())) return {};
  if (!is.empty()) return is + " came into " + room;
  if (now.state == LockState::eLeftBehind) return was + " ended without leaving " + room;
  return was + " left " + room;
}

}  // namespace

/// Who opened and left the project since this was last called. Users, not stations: one that was
/// killed may be found dead after it was started again.
std::vector<std::string> ChangeTeller::newsOfPeople() {
  std::vector<std::string> lines;
  std::set<std::string> now;
  const Cookie project = station_.projects().current()->cookie;
  for (const FoundStation& each : station_.presence().known()) {
    const bool isOwn = each.note.id == station_.presence().ownId();
    if (isOwn || !each.isAlive() || !(each.note.project == project)) continue;
    now.insert(shownText(each.note.user));
  }
  for (const std::string& user : now) {
    if (!people_.contains(user)) lines.push_back(user + " opened this project.");
  }
  for (const std::string& user : people_) {
    if (!now.contains(user)) lines.push_back(user + " left this project.");
  }
  people_ = std::move(now);
  return lines;
}

/// Adds what became of the rooms since this was last called. `hasMade`: a new one is the user's
/// own, and was told in answer to the command.
void ChangeTeller::newsOfRooms(std::vector<std::string>& lines, bool hasMade) {
  std::map<std::string, RoomInfo> now;
  for (const RoomInfo& room : station_.rooms().known()) {
    now.emplace(room.name, room);
    const auto before = rooms_.find(room.name);
    const bool isNew = before == rooms_.end();
    const RoomInfo free{room.name, LockState::eFree, {}, room.isHere};
    if (isNew && !room.isHere && !hasMade) {
      lines.push_back("There is now a room " + inQuotes(room.name) + ".");
    }
    const std::string text = changeText(isNew ? free : before->second, room);
    if (!text.empty()) lines.push_back(text);
  }
  rooms_ = std::move(now);
}

/// Of objects that are gone the names stay for as long as the project is open.
void ChangeTeller::learnNames() {
  for (const NamedObject& each : station_.projects().objects()) {
    names_[each.cookie.asString().str()] = shownText(each.name);
  }
}

std::string ChangeTeller::nameOf(const Change& change) const {
  const auto known = names_.find(change.cookie);
  const std::string cookie = change.cookie.substr(0, kShortCookie);
  if (known == names_.end() || known->second.empty()) return cookie;
  const bool hasNamesake = std::ranges::any_of(names_, [&known](const auto& each) {
    return each.second == known->second && each.first != known->first;
  });
  return known->second + (hasNamesake ? " (" + cookie + ")" : "");
}

std::string ChangeTeller::lineOf(const Change& change) const {
  const Verb& verb = verbOf(change.how);
  if (change.what == "permissions") {
    const std::string owner = station_.edits().ownerOf(Cookie(change.cookie.c_str(), false));
    const std::string now = owner.empty() ? "nobody" : shownText(owner);
    return change.who + " made " + now + " the owner of " + nameOf(change) + ".";
  }
  if (!isDocument(change.what)) {
    return change.who + " " + verb.said + " the " + change.what + " " + nameOf(change) + ".";
  }
  const std::string kind = change.what == "log" ? "the log " : "";
  if (change.how == "modified") {
    return change.who + " changed " + kind + nameOf(change) + ", and has not saved it yet.";
  }
  const char* const said = verb.weight == 1 ? "saved" : verb.said;
  return change.who + " " + said + " " + kind + nameOf(change) + ".";
}

}  // namespace korvel
