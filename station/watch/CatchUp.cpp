#include "station/watch/CatchUp.h"

#include <algorithm>
#include <system_error>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditSummary.h"
#include "station/edit/Edits.h"
#include "station/os/SharedFiles.h"
#include "station/project/Projects.h"
#include "station/project/Records.h"
#include "station/watch/Presence.h"

namespace korvel {

namespace {

using std::chrono::milliseconds;

/// Seconds between two questions, where the configuration's "watch_seconds" names no other pace.
constexpr int kUsualPeriod = 2;
/// The longest pace that can be set.
constexpr int kSlowestPace = 3600;

/// Rooms change less often than edits, and their lists ask the share by themselves.
constexpr int kRoomsFactor = 2;

/// When the cache of what was read is written: once soon after the entry, when files that changed
/// just before it are at rest, and then regularly.
constexpr milliseconds kFirstSave(5000);
constexpr milliseconds kSavePeriod(60'000);

constexpr const char* kRecord = "project.json";

bool isRoomFile(std::string_view name) { return !name.starts_with('.'); }

/// 0 where folders are not watched: what messages tell is all that is known then.
milliseconds configuredPeriod() {
  return std::chrono::seconds(
      std::clamp(config_int("watch_seconds", kUsualPeriod), 0, kSlowestPace));
}

std::vector<WatchedFolder> foldersOf(const OpenProject& project, milliseconds period) {
  WatchedFolder folder;
  folder.path = project.folder;
  folder.isWanted = isProjectFile;
  folder.largest = kLargestFile;
  folder.period = period;
  // Under a mount that is away lies an empty folder. Without this every object would count as
  // removed.
  folder.proof = kRecord;
  folder.known = project.listing;
  folder.cache = project.cache;
  folder.shown = project.shown;
  WatchedFolder rooms;
  rooms.path = project.folder + "/rooms";
  rooms.prefix = "rooms/";
  rooms.isWanted = isRoomFile;
  rooms.period = period * kRoomsFactor;
  rooms.mayBeMissing = true;
  return {std::move(folder), std::move(rooms)};
}

/// Keeps what was read of a file for later sessions, in the form in which the edits and the records
/// look for it.
void keep(ReadCache& cache, const FoundFile& file) {
  if (!Edits::cookieOfFile(file.name).isNull()) {
    if (const auto summary = readEditSummary(*file.bytes)) {
      cache.put(file.name, file.stamp, keptText(*summary));
    }
  } else if (file.name.ends_with(".json") && file.bytes->size() <= kLongestKept) {
    cache.put(file.name, file.stamp, *file.bytes);
  }
}

}  // namespace

void CatchUp::handleProjectEntry() try {
  found_ = 0;
  cache_ = hostParts().projects->current()->cache;
  postSave(kFirstSave);
  const milliseconds period = configuredPeriod();
  if (period == period.zero()) return;
  watch_ = std::make_unique<FolderWatch>(host_, foldersOf(*hostParts().projects->current(), period),
                                         [this](const FoundFiles& files) { take(files); });
} catch (const std::system_error& problem) {
  LogBoth(
      "Changes that no message tells of are not found, since no thread can be made for it: %s. "
      "Enter the project again when the machine has room.\n",
      problem.what());
}

void CatchUp::handleProjectExit() {
  watch_.reset();
  cache_.reset();
}

/// Regularly, and not only at the end: a station may be killed.
void CatchUp::postSave(std::chrono::milliseconds delay) {
  host_.postAfter(delay, [this, kept = std::weak_ptr(cache_)] {
    const auto cache = kept.lock();
    if (!cache) return;
    cache->save();
    postSave(kSavePeriod);
  });
}

std::optional<ShareAnswer> CatchUp::answer() const {
  if (!watch_) return {};
  return watch_->answer();
}

std::optional<WatchCounts> CatchUp::counts() const {
  if (!watch_) return {};
  return watch_->counts();
}

void CatchUp::take(const FoundFiles& files) {
  const FolderChangeScope scope;
  found_ += hostParts().projects->catchUp(files);
  for (const FoundFile& file : files) {
    if (cache_ && file.isAtRest && file.bytes) keep(*cache_, file);
  }
}

MissingChanges::MissingChanges(HostThread& host, Edits& edits, const Presence& presence)
    : host_(host), edits_(edits), presence_(presence) {
  edits_.addObserver(*this);
  edits_.askMissingBy([this](const Cookie& cookie) { return from(cookie); });
}

MissingChanges::~MissingChanges() {
  edits_.askMissingBy({});
  edits_.removeObserver(*this);
}

std::vector<std::string> MissingChanges::from(const Cookie& cookie) const {
  std::vector<std::string> users;
  const EditFile* const edit = edits_.loaded(cookie);
  for (auto at = unsaved_.lower_bound({cookie, {}});
       at != unsaved_.end() && at->first.first == cookie; ++at) {
    const std::string& user = at->first.second;
    const bool isHere = at->second.isSaved || (edit && edit->holdsChangesOf.contains(user));
    if (!isHere) users.push_back(user);
  }
  return users;
}

void MissingChanges::modified(const Cookie& cookie, const Deed&) {
  const std::string user = currentAuthor();
  if (currentOrigin() == Origin::eLocal || user.empty() || user == settings().user) return;
  const auto before = unsaved_.find({cookie, user});
  const bool isFirst = before == unsaved_.end() || before->second.isSaved;
  // Only what was heard from the first change on is whole.
  EditFile* const edit = edits_.loaded(cookie);
  if (edit && isFirst) edit->holdsChangesOf.insert(user);
  Unsaved& unsaved = unsaved_[{cookie, user}];
  unsaved = {Clock::now(), false, false};
  tellSoon();
  lookLater();
}

void MissingChanges::replaced(const Cookie& cookie, const EditSummary&, const EditSummary& now) {
  noteSaved(cookie, now.savedBy);
}

/// The save itself may have been found in the folder before its announced changes were told of.
void MissingChanges::savedElsewhere(const Cookie& cookie) { noteSaved(cookie, currentAuthor()); }

void MissingChanges::noteSaved(const Cookie& cookie, const std::string& user) {
  const auto saver = unsaved_.find({cookie, user});
  if (saver != unsaved_.end()) saver->second = {Clock::now(), saver->second.isNoted, true};
  tellSoon();
}

/// Not as a part of what is being told right now: it would count as another's change.
void MissingChanges::tellSoon() {
  host_.post([this, alive = std::weak_ptr<int>(alive_)] {
    if (!alive.expired()) tellChanges();
  });
}

void MissingChanges::forgetting(const Cookie& cookie, const EditSummary&) {
  std::erase_if(unsaved_, [&cookie](const auto& each) { return each.first.first == cookie; });
  told_.erase(cookie);
}

void MissingChanges::handleProjectEntry() {
  handleProjectExit();
  look();
}

void MissingChanges::handleProjectExit() {
  unsaved_.clear();
  told_.clear();
}

std::set<MissingChanges::Key> MissingChanges::notedKeys() const {
  std::set<Key> noted;
  const OpenProject* const project = hostParts().projects->current();
  for (const auto& [id, station] : presence_.alive()) {
    const StationNote& note = station.note;
    if (!project || !(note.project == project->cookie) || note.user == settings().user) continue;
    for (const Cookie& each : note.unsaved) noted.emplace(each, note.user);
  }
  return noted;
}

void MissingChanges::takeNotes(const std::set<Key>& noted) {
  const Clock::time_point now = Clock::now();
  for (const Key& each : noted) {
    if (!edits_.holds(each.first)) continue;
    Unsaved& unsaved = unsaved_[each];
    const bool isOfBefore = unsaved.isSaved && now - unsaved.since < kNoteLag;
    if (isOfBefore) continue;
    unsaved.isNoted = true;
    unsaved.isSaved = false;
  }
  std::erase_if(unsaved_, [&](const auto& each) {
    const Unsaved& unsaved = each.second;
    const bool isNewer = unsaved.isNoted || unsaved.isSaved || now - unsaved.since >= kNoteLag;
    return !noted.contains(each.first) && isNewer;
  });
}

void MissingChanges::look() {
  takeNotes(notedKeys());
  tellChanges();
  if (!unsaved_.empty()) lookLater();
}

/// Time alone may settle what a note says.
void MissingChanges::lookLater() {
  constexpr milliseconds kBetweenLooks(2000);
  if (std::exchange(isPosted_, true)) return;
  host_.postAfter(untilNextBeat(kBetweenLooks), [this, alive = std::weak_ptr<int>(alive_)] {
    if (alive.expired()) return;
    isPosted_ = false;
    look();
  });
}

void MissingChanges::tellChanges() {
  std::map<Cookie, std::vector<std::string>> missing;
  for (const auto& [key, unsaved] : unsaved_) {
    if (auto users = from(key.first); !users.empty()) missing[key.first] = std::move(users);
  }
  if (missing == told_) return;
  const auto before = std::exchange(told_, std::move(missing));
  std::set<Cookie> different;
  for (const auto& [cookie, users] : before) {
    if (!told_.contains(cookie) || told_.at(cookie) != users) different.insert(cookie);
  }
  for (const auto& [cookie, users] : told_) {
    if (!before.contains(cookie)) different.insert(cookie);
  }
  for (const Cookie& each : different) {
    const EditFile* const edit = edits_.loaded(each);
    const std::string text = edits_.missingText(each);
    if (edit && edit->isUserOpen && !text.empty()) {
      LogBoth("%s %s\n", inQuotes(edits_.nameOf(each)), text);
    }
    if (edits_.holds(each)) tellChanged(Edits::kindText(each), each, "refreshed");
  }
}

}  // namespace korvel
