#include "app/program/ChangeTeller.h"

#include <algorithm>
#include <array>

#include "station/base/Events.h"
#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

/// How much of a cookie stands for a name that is not known.
constexpr std::size_t kShortCookie = 9;

/// What people call a change, and how much it matters beside others of the same object.
struct Verb {
  const char* how;
  int weight;
  const char* said;
};

constexpr std::array kVerbs{Verb{"modified", 0, "changed"}, Verb{"refreshed", 1, "changed"},
                            Verb{"reloaded", 1, "changed"}, Verb{"added", 2, "added"},
                            Verb{"created", 2, "made"},     Verb{"removed", 2, "took out"},
                            Verb{"destroyed", 2, "deleted"}};

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
  const bool hasEntered = event.name == "reply" && value["command"].asString() == "project enter";
  if (event.name != "changed" && !hasEntered) return;
  const std::string origin = value["origin"].asString();
  if (!hasEntered && origin != originText(Origin::eLocal)) {
    std::string who = textOf(value, "by");
    if (who.empty()) who = origin == originText(Origin::eFolder) ? "Somebody" : "Another station";
    note({value["what"].asString(), value["cookie"].asString(), value["how"].asString(), who});
  }
  tellSoon();
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

void ChangeTeller::tellSoon() {
  {
    const std::lock_guard lock(mutex_);
    if (std::exchange(isPosted_, true)) return;
  }
  hostThread_.postAfter(kTogether, [this, alive = std::weak_ptr<int>(alive_)] {
    if (!alive.expired()) tell();
  });
}

void ChangeTeller::tell() {
  std::vector<Change> changes;
  {
    const std::lock_guard lock(mutex_);
    changes.swap(pending_);
    isPosted_ = false;
  }
  if (!station_.projects().current()) return names_.clear();
  learnNames();
  const std::size_t shown = changes.size() > kMostLines ? kMostLines - 1 : changes.size();
  for (std::size_t each = 0; each < shown; ++each) text_.answer(lineOf(changes[each]));
  if (shown < changes.size()) {
    text_.answer("Others made " + std::to_string(changes.size() - shown) + " further changes.");
  }
}

/// Of objects that are gone the names stay for as long as the project is open.
void ChangeTeller::learnNames() {
  for (const NamedObject& each : station_.projects().objects()) {
    names_[each.cookie.asString().str()] = shownText(each.name);
  }
}

std::string ChangeTeller::nameOf(const Change& change) const {
  const auto known = names_.find(change.cookie);
  const bool isNamed = known != names_.end() && !known->second.empty();
  return isNamed ? known->second : change.cookie.substr(0, kShortCookie);
}

std::string ChangeTeller::lineOf(const Change& change) const {
  const Verb& verb = verbOf(change.how);
  if (change.what == "room") return change.who + " came, left or went to another room.";
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
