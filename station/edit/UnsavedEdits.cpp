#include "station/edit/UnsavedEdits.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <utility>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

/// How long changes are gathered: a burst of changes is written once. A crash loses no more than
/// this.
constexpr std::chrono::milliseconds kGathering(300);

/// How long changes that could not be kept wait for another try.
constexpr std::chrono::milliseconds kTryAgain(2000);

/// A record's time on the clock of the wall: "12:04", with the date unless it is of today.
std::string wallTime(const std::string& record) {
  std::tm parts{};
  if (!::strptime(record.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts)) return shownText(record);
  return wallText(::timegm(&parts));
}

std::string counted(std::size_t count) {
  return std::to_string(count) + (count == 1 ? " edit" : " edits");
}

Cookie cookieOf(const NamedObject& object) { return object.cookie; }
Cookie cookieOf(const UnsavedState& state) { return Cookie(state.object.c_str(), false); }

/// The names in quotes, with commas between them; what has a namesake with its cookie.
template <typename Named>
std::string namesOf(const std::vector<Named>& all, const Edits& edits) {
  std::set<std::string> names;
  for (const Named& each : all) {
    names.insert(inQuotes(each.name) + edits.namesakeMark(cookieOf(each), each.name));
  }
  return joined({names.begin(), names.end()}, ", ");
}

}  // namespace

UnsavedEdits::UnsavedEdits(HostThread& thread, Edits& edits)
    : thread_(thread),
      edits_(edits),
      folder_(settings().recovery),
      self_(std::make_shared<UnsavedEdits*>(this)) {
  edits_.observeUnsaved(this);
  folder_.onResult([this, self = self_] {
    // On the thread that writes, which ends before this object does.
    thread_.post([self] {
      if (*self) (*self)->noteKeeping();
    });
  });
}

UnsavedEdits::~UnsavedEdits() {
  edits_.observeUnsaved(nullptr);
  *self_ = nullptr;
}

void UnsavedEdits::enter(const OpenProject& project, const std::vector<std::string>&) {
  isDiscarding_ = false;
  folder_.enter(settings().projectsDirectory, project.cookie.asString().str(), settings().user);
  refreshLeft();
  dropWhatWasSaved();
  tellOfLeft();
}

// A station that ended right after a save may have left its copy: nothing of it is unsaved.
void UnsavedEdits::dropWhatWasSaved() {
  const auto isSaved = [this](const UnsavedState& state) {
    const Cookie cookie(state.object.c_str(), false);
    if (!state.problem.empty() || !edits_.holds(cookie)) return false;
    const auto bytes = readFresh(edits_.pathFor(cookie));
    const auto stored = bytes ? OtioDocument::parse(*bytes) : Result<OtioDocument>(bytes.error());
    const auto left = OtioDocument::parse(writeJson(RecoveryFolder::read(state.path).content));
    return stored && left && left->hasContentOf(*stored) && RecoveryFolder::remove(state);
  };
  std::erase_if(left_, isSaved);
}

void UnsavedEdits::tellOfLeft() const {
  std::vector<UnsavedState> readable;
  for (const UnsavedState& state : left_) {
    if (state.problem.empty()) {
      readable.push_back(state);
    } else {
      LogBoth("Unsaved changes cannot be read and are left as they are: %s\n", state.problem);
    }
  }
  if (readable.empty()) return;
  std::set<std::string> objects;
  for (const UnsavedState& state : readable) objects.insert(state.object);
  LogBoth(
      "There are unsaved changes of %s in %s: %s. \"edit recover E\" takes them up, \"edit recover "
      "E "
      "--discard\" throws them away.\n",
      wallTime(readable.front().changed), counted(objects.size()), namesOf(readable, edits_));
}

void UnsavedEdits::leave() {
  const auto unsaved = list();
  if (isDiscarding_) {
    for (const NamedObject& each : unsaved) folder_.forget(each.cookie.asString().str());
  } else if (!unsaved.empty()) {
    for (const NamedObject& each : unsaved) waiting_.insert(each.cookie);
    flush();
    folder_.finish();
    const std::string problem = folder_.problem();
    if (!folder_.isKeeping() || !problem.empty()) {
      LogBoth("Unsaved changes in %s are lost: %s. %s\n", counted(unsaved.size()),
              namesOf(unsaved, edits_), problem);
    } else {
      LogBoth(
          "Unsaved changes in %s are kept on this machine: %s. Enter the project again, and \"edit "
          "recover E\" takes them up.\n",
          counted(unsaved.size()), namesOf(unsaved, edits_));
    }
  }
  waiting_.clear();
  left_.clear();
  folder_.leave();
}

JsonValue UnsavedEdits::state() const {
  JsonValue all = JsonValue::array();
  for (const UnsavedState& state : left_) {
    all.append(JsonValue::object({{"cookie", state.object},
                                  {"name", shownText(state.name)},
                                  {"changed", shownText(state.changed)},
                                  {"problem", shownText(state.problem)}}));
  }
  return all;
}

void UnsavedEdits::changed(const EditFile& edit) {
  waiting_.insert(edit.getCookie());
  if (isPosted_) return;
  const auto sinceLast = Clock::now() - lastKept_;
  if (sinceLast > kGathering) return flush();
  isPosted_ = true;
  thread_.postAfter(kGathering, [self = self_] {
    if (!*self) return;
    (*self)->isPosted_ = false;
    (*self)->flush();
  });
}

void UnsavedEdits::flush() {
  for (const Cookie& cookie : std::exchange(waiting_, {})) {
    const EditFile* const edit = edits_.loaded(cookie);
    if (edit && edit->hasLocalChanges()) keep(*edit);
  }
  lastKept_ = Clock::now();
}

void UnsavedEdits::keep(const EditFile& edit) {
  UnsavedState state;
  state.object = edit.getCookie().asString().str();
  state.name = edit.document().name();
  state.user = settings().user;
  state.changed = timeForRecord();
  state.hash = edit.saved().hash().value_or(0);
  state.number = edit.saved().number();
  folder_.keep(state, edit.document().text());
}

/// Told once where changes are not kept, and once where they are again.
void UnsavedEdits::noteKeeping() {
  const std::string problem = folder_.problem();
  if (!problem.empty()) tryAgainLater();
  if (problem.empty() != isUnkeptTold_) return;
  isUnkeptTold_ = !problem.empty();
  if (isUnkeptTold_) {
    LogBoth(
        "Unsaved changes are not being kept on this machine: %s Until that is mended they are lost "
        "if this station ends; save them (\"edit save\").\n",
        problem);
  } else {
    LogBoth("Unsaved changes are kept on this machine again.\n");
  }
}

void UnsavedEdits::tryAgainLater() {
  if (std::exchange(isTryPosted_, true)) return;
  thread_.postAfter(kTryAgain, [self = self_] {
    if (!*self) return;
    (*self)->isTryPosted_ = false;
    (*self)->tryAgain();
  });
}

void UnsavedEdits::tryAgain() {
  for (const std::string& object : folder_.unkept()) {
    const Cookie cookie(object.c_str(), false);
    const EditFile* const edit = edits_.loaded(cookie);
    if (edit && edit->hasLocalChanges()) {
      waiting_.insert(cookie);
    } else {
      folder_.forget(object);
    }
  }
  flush();
}

void UnsavedEdits::settled(const Cookie& cookie) {
  waiting_.erase(cookie);
  folder_.forget(cookie.asString().str());
}

void UnsavedEdits::dropping(const EditFile& edit) {
  if (!folder_.isEntered()) return;  // what was unsaved was kept when the project was left
  waiting_.erase(edit.getCookie());
  keep(edit);
  const std::string object = edit.getCookie().asString().str();
  folder_.finish();
  if (std::ranges::count(folder_.unkept(), object) > 0) {
    // They are gone from memory next, so a later try has nothing to keep.
    folder_.forget(object);
    return LogBoth("Your unsaved changes are lost, since they cannot be kept: %s\n",
                   folder_.problem());
  }
  folder_.setAside(object);
  refreshLeft();
  const std::string& name = edit.document().name();
  const bool hasNamesake = !edits_.namesakeMark(edit.getCookie(), name).empty();
  LogBoth("Your unsaved changes are kept: \"edit recover %s\" takes them up.\n",
          hasNamesake ? object : inQuotes(name));
}

std::vector<NamedObject> UnsavedEdits::list() const { return edits_.unsaved(); }

Result<void> UnsavedEdits::saveAll() {
  for (const NamedObject& each : list()) {
    if (auto saved = EditActions::save(each.cookie); !saved) return saved;
  }
  return {};
}

Result<void> UnsavedEdits::discardAll() {
  for (const NamedObject& each : list()) {
    if (EditActions::revert(each.cookie)) continue;
    // The file cannot be read again, but the user wants the changes dropped.
    if (EditFile* const edit = edits_.loaded(each.cookie)) edit->setDirty(false);
  }
  return {};
}

Result<void> UnsavedEdits::prepareToLeave(Leaving leaving) {
  isDiscarding_ = false;
  const auto unsaved = list();
  if (unsaved.empty()) return {};
  if (leaving == Leaving::eSave) return saveAll();
  if (leaving == Leaving::eRefuse) {
    return Error{ErrorCode::eUnsaved,
                 "There are unsaved changes in " + counted(unsaved.size()) + ": " +
                     namesOf(unsaved, edits_) +
                     ". Add --save to save them, or --discard to drop them.",
                 {}};
  }
  // Dropped in leave(): until the project is really left the user may still stay.
  isDiscarding_ = true;
  return {};
}

Result<std::vector<UnsavedState>> UnsavedEdits::findLeft(const std::string& nameOrCookie) const {
  std::vector<UnsavedState> found;
  std::vector<NamedObject> objects;
  const auto find = [&](const auto& isMeant) {
    for (const UnsavedState& state : left_) {
      if (!isMeant(state)) continue;
      found.push_back(state);
      const Cookie cookie = cookieOf(state);
      if (std::ranges::find(objects, cookie, &NamedObject::cookie) == objects.end()) {
        objects.push_back({cookie, state.name});
      }
    }
  };
  find([&](const auto& state) {
    return state.object == nameOrCookie || state.name == nameOrCookie;
  });
  // A beginning of the cookie, as everywhere, where nothing is called so.
  if (found.empty() && nameOrCookie.size() > 1) {
    find([begun = upperCased(nameOrCookie)](const auto& state) {
      return upperCased(state.object).starts_with(begun);
    });
  }
  if (objects.size() == 1) return found;
  if (!objects.empty()) return severalMeant("edits with unsaved changes", nameOrCookie, objects);
  return Error{ErrorCode::eNotFound,
               "Nothing unsaved was left of " + inQuotes(nameOrCookie) + " on this machine.",
               {}};
}

Result<Cookie> UnsavedEdits::recover(const std::string& nameOrCookie) {
  const auto found = findLeft(nameOrCookie);
  if (!found) return found.error();
  const UnsavedState state = RecoveryFolder::read(found->front().path);
  if (!state.problem.empty()) return Error{ErrorCode::eBadContent, state.problem, state.path};
  auto document = OtioDocument::parse(writeJson(state.content));
  if (!document) {
    return Error{ErrorCode::eBadContent,
                 state.path + " cannot be taken up: " + document.error().message, state.path};
  }
  const auto cookie = takeUp(state, std::move(*document));
  if (!cookie) return cookie;
  flush();
  folder_.finish();
  // Where the disk has no room for another, this copy is the only one.
  if (std::ranges::count(folder_.unkept(), cookie->asString().str()) > 0) return cookie;
  // Last: the changes are on the disk again, as this session's own, before the old copy goes.
  if (auto removed = RecoveryFolder::remove(state); !removed)
    LogBoth("%s\n", removed.error().message);
  refreshLeft();
  if (!EditActions::isAllowed(*cookie)) {
    LogBoth("You may not change the %s any more: \"edit save-copy\" keeps your changes.\n",
            EditActions::titleOf(*cookie));
  }
  return cookie;
}

Result<void> UnsavedEdits::requireNothingLeft(const Cookie& cookie) const {
  const auto left = std::ranges::find(
      left_, cookie.asString().str(),
      [](const UnsavedState& state) -> auto& { return state.object; });
  if (left == left_.end()) return {};
  return Error{ErrorCode::eUnsaved,
               "Unsaved changes in " + inQuotes(left->name) +
                   " were left when a station ended, and would stay behind. Take them up or drop "
                   "them first (\"edit recover\").",
               left->path};
}

Result<Cookie> UnsavedEdits::takeUp(const UnsavedState& state, OtioDocument document) {
  const Cookie cookie(state.object.c_str(), false);
  const auto edit = edits_.hold(cookie);
  if (!edit && edit.error().code != ErrorCode::eNotFound) return edit.error();
  if (!edit) {
    LogBoth("The %s %s is no longer in the project; its unsaved changes become a new one.\n",
            Edits::kindText(cookie), inQuotes(state.name));
    return EditActions::store(std::move(document), cookie.getType());
  }
  if ((*edit)->hasLocalChanges()) {
    edits_.release(*edit);
    return Error{ErrorCode::eUnsaved,
                 "The " + EditActions::titleOf(cookie) +
                     " has other unsaved changes; \"edit save\" or \"edit revert\" it first.",
                 {}};
  }
  (*edit)->takeUnsaved(std::move(document), state.hash, state.number);
  // Open, so that it stays loaded, and a save elsewhere reaches it.
  (*edit)->isUserOpen = true;
  edits_.noteLoaded(**edit);
  edits_.release(*edit);
  waiting_.insert(cookie);
  tellChanged(Edits::kindText(cookie), cookie, "modified");
  return cookie;
}

Result<int> UnsavedEdits::discardLeft(const std::string& nameOrCookie) {
  const auto found = findLeft(nameOrCookie);
  if (!found) return found.error();
  for (const UnsavedState& state : *found) {
    if (auto removed = RecoveryFolder::remove(state); !removed) return removed.error();
  }
  refreshLeft();
  return static_cast<int>(found->size());
}

}  // namespace korvel
