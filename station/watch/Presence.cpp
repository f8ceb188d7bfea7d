#include "station/watch/Presence.h"

#include <algorithm>
#include <ctime>
#include <system_error>
#include <tuple>
#include <utility>

#include "host/base/Log.h"
#include "station/base/Events.h"
#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/EditActions.h"
#include "station/edit/Edits.h"
#include "station/net/Interfaces.h"
#include "station/net/UdpBroadcaster.h"
#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"

namespace korvel {

namespace {

using std::chrono::milliseconds;

/// How often this station's note is compared with what it does.
constexpr milliseconds kRefresh(2000);

/// How many refreshes pass between two looks at the others' locks. A killed station changes no
/// file, so the folder watch cannot notice it.
constexpr int kRefreshesBetweenLooks = 10;

constexpr milliseconds kPeriod(5000);

/// A station that starts removes notes that are left behind and older than this many days.
constexpr std::int64_t kDaysKept = 7;

std::vector<std::string> ownAddresses() {
  std::vector<std::string> addresses;
  for (const NetworkInterface& each : readNetworkInterfaces()) {
    if (!each.isLoopback) addresses.push_back(textOf(each.address));
  }
  return addresses;
}

LightweightString<wchar_t> upperCase(const std::string& name) {
  LightweightString<wchar_t> text = wideText(name);
  Kv::toUpper(text);
  return text;
}

/// How long the user is warned at least, where nothing of the lost is known to be unsaved.
constexpr std::int64_t kShortestWarning = 60;
constexpr std::int64_t kBetweenTellings = 60;

std::string lossText(const std::string& user, const MissedMessages::Loss& loss) {
  const bool isOne = loss.count == 1;
  return std::to_string(loss.count) + (isOne ? " message of " : " messages of ") + shownText(user) +
         "'s station " + (isOne ? "was" : "were") + " lost at " + wallText(loss.when) +
         ": words may be missing, and changes until they are saved";
}

std::string placeOf(const StationNote& note) {
  return inQuotes(note.user) + " on host " + inQuotes(note.host) + ", there since " +
         shownText(note.since);
}

}  // namespace

Presence::Presence(HostThread& host, std::shared_ptr<const TrafficCounts> traffic,
                   std::shared_ptr<const Seals> seals)
    : host_(host), traffic_(std::move(traffic)), seals_(std::move(seals)) {}

Presence::~Presence() { stop(); }

void Presence::start(const std::string& version) try {
  own_.id = StationFile::newId();
  own_.user = settings().user;
  own_.host = settings().host;
  own_.machine = settings().machine;
  own_.addresses = ownAddresses();
  own_.port = traffic_->ownPort();
  own_.version = version;
  own_.since = timeForRecord();
  // Before its own note exists, so that this station is not among them.
  const auto stations = listStations(settings().projectsDirectory);
  if (stations) removeOld(*stations);
  const std::string folder = notesFolder(settings().projectsDirectory);
  file_ = std::make_unique<StationFile>(hostParts().projects->directory(), folder, noteOfThis());
  if (stations) file_->takeAlong(ownEarlier(*stations));
  WatchedFolder watched;
  watched.path = folder;
  watched.isWanted = isNoteFile;
  watched.largest = kLargestNote;
  watched.period = kPeriod;
  watched.mayBeMissing = true;
  // As long as its own note is not there, nobody else's counts as gone either.
  watched.proof = own_.id + std::string(kRecordEnding);
  watch_ = std::make_unique<FolderWatch>(host_, std::vector{std::move(watched)},
                                         [this](const FoundFiles& files) { take(files); });
  postRefresh();
} catch (const std::system_error& problem) {
  LogBoth("Other stations do not see this one, since no thread can be made for it: %s.\n",
          problem.what());
}

void Presence::stop() {
  alive_.reset();
  watch_.reset();
  file_.reset();
  others_.clear();
  gone_.clear();
}

Result<JsonValue> Presence::who(Which which) const {
  auto stations = listStations(settings().projectsDirectory);
  if (!stations) return stations.error();
  leaveOutReturned(*stations);
  // A folder without any note may be a share that is away: then nobody was looked for.
  const auto isOwn = [this](const FoundStation& each) { return each.note.id == own_.id; };
  if (std::ranges::none_of(*stations, isOwn)) {
    if (auto there = hostParts().projects->directory()->check(); !there) return there.error();
  }
  JsonValue list = JsonValue::array();
  FoundStation own{noteOfThis(), LockState::eHeld, {}};
  JsonValue first = shownStation(own);
  first.set("self", true);
  list.append(std::move(first));
  for (const FoundStation& each : *stations) {
    if (each.note.id == own_.id || (which == Which::eHere && !each.isAlive())) continue;
    JsonValue shown = shownStation(each);
    shown.set("self", false);
    list.append(std::move(shown));
  }
  return list;
}

std::vector<FoundStation> Presence::known() const {
  if (!file_) return {};
  std::vector<FoundStation> all{{noteOfThis(), LockState::eHeld, {}}};
  const auto addAll = [&all](const std::map<std::string, FoundStation>& stations) {
    const auto first = static_cast<std::ptrdiff_t>(all.size());
    for (const auto& [id, station] : stations) all.push_back(station);
    std::ranges::sort(all.begin() + first, all.end(), {}, [](const FoundStation& each) {
      return std::tie(each.note.user, each.note.host, each.note.id);
    });
  };
  addAll(others_);
  addAll(gone_);
  leaveOutReturned(all);
  return all;
}

/// Those that were killed when this user was at this host before.
std::vector<std::string> Presence::ownEarlier(const std::vector<FoundStation>& stations) const {
  std::vector<std::string> ids;
  for (const FoundStation& each : stations) {
    const bool isOwn = each.note.user == own_.user && each.note.host == own_.host;
    if (isOwn && each.isGone()) ids.push_back(each.note.id);
  }
  return ids;
}

std::vector<Presence::Opener> Presence::openersOf(const Cookie& object) const {
  std::vector<Opener> openers;
  for (const auto& [id, station] : others_) {
    const StationNote& note = station.note;
    const bool isUnsaved = std::ranges::find(note.unsaved, object) != note.unsaved.end();
    if (!isUnsaved && std::ranges::find(note.open, object) == note.open.end()) continue;
    openers.push_back({note.user, isUnsaved});
  }
  return openers;
}

bool Presence::sendsFrom(const StationNote& note, Ipv4 address, std::uint16_t port) const {
  if (port != 0) return note.port == port && note.addresses == own_.addresses;
  return std::ranges::find(note.addresses, textOf(address)) != note.addresses.end();
}

std::string Presence::userAt(Ipv4 address, std::uint16_t port) const {
  std::string user;
  for (const auto& [id, station] : others_) {
    if (!sendsFrom(station.note, address, port)) continue;
    if (!user.empty()) return {};
    user = station.note.user;
  }
  return user;
}

std::vector<std::string> Presence::namesOf(Ipv4 address, std::uint16_t port,
                                           std::uint64_t sender) const {
  std::vector<std::string> names;
  for (const auto& [id, station] : others_) {
    const StationNote& note = station.note;
    const bool isSender = sender == 0
                              ? sendsFrom(note, address, port)
                              : Seals::senderOf(note.user, note.host, note.machine) == sender;
    if (isSender) names.insert(names.end(), {note.user, note.host});
  }
  return names;
}

std::set<std::string> Presence::hosts() const {
  std::set<std::string> hosts;
  for (const auto& [id, station] : others_) hosts.insert(utf8Text(upperCase(station.note.host)));
  return hosts;
}

std::optional<StationNote> Presence::lookFor(const std::string& user) const {
  const auto stations = listStations(settings().projectsDirectory);
  if (!stations) return std::nullopt;
  const auto found = std::ranges::find_if(*stations, [&user](const FoundStation& each) {
    return each.isAlive() && each.note.user == user;
  });
  return found == stations->end() ? std::nullopt : std::optional(found->note);
}

StationNote Presence::noteOfThis() const {
  StationNote note = own_;
  note.sent = traffic_->sentCount();
  note.seal = sealPolicyText(settings().seal);
  note.keys = seals_->keyIds();
  if (talk_.addTo) talk_.addTo(note);
  const OpenProject* const project = hostParts().projects->current();
  if (!project) return note;
  note.project = project->cookie;
  note.projectName = project->name;
  note.room = hostParts().rooms->current();
  if (const Edits* const edits = hostParts().edits) edits->listOpen(note.open, note.unsaved);
  // Others would wait for what this user may not save.
  std::erase_if(note.unsaved, [](const Cookie& each) { return !EditActions::isAllowed(each); });
  return note;
}

void Presence::refresh() {
  if (file_) file_->show(noteOfThis());
}

void Presence::postRefresh() {
  host_.postAfter(untilNextBeat(kRefresh), [this, alive = std::weak_ptr<int>(alive_)] {
    if (alive.expired()) return;
    refresh();
    if (file_ && watch_ && !watch_->answer().result) file_->writeAgain();
    if (++refreshes_ % kRefreshesBetweenLooks == 0) lookForDead();
    lookForMissed();
    postRefresh();
  });
}

// Messages are addressed to user names, and owners are recorded with host names. Two stations with
// the same name cannot be told apart. Told on both: either may be the one that was started wrongly,
// and of two that start at once neither was first.
std::string Presence::namesakeText(const FoundStation& other) const {
  const bool isUser = upperCase(other.note.user) == upperCase(own_.user);
  const bool isHost = upperCase(other.note.host) == upperCase(own_.host);
  if (!isUser && !isHost) return {};
  const std::string same =
      isUser ? (isHost ? "same user and host name" : "same user name") : "same host name";
  return "Another station has the " + same + ": " + placeOf(other.note) +
         ". Messages and owners cannot tell the two apart. End one of them, or start it under "
         "another " +
         (isUser ? "user name (--user)." : "host name (--host).");
}

std::string Presence::namesake() const {
  for (const auto& [id, station] : others_) {
    if (std::string text = namesakeText(station); !text.empty()) return text;
  }
  return {};
}

/// Ages are told by the share's clock: the folder changed when the newest note was written.
void Presence::removeOld(const std::vector<FoundStation>& stations) const {
  constexpr std::int64_t kDay = std::int64_t{86'400} * 1'000'000'000;
  const std::string folder = notesFolder(settings().projectsDirectory);
  const auto listing = listStamped(folder, isNoteFile);
  if (!listing) return;
  for (const FoundStation& each : stations) {
    const std::string name = each.note.id + ".json";
    const FileStamp* const file = listing->files.find(name);
    if (each.isAlive() || each.state == LockState::eUnknown || !file) continue;
    if (listing->folder.modified - file->modified < kDaysKept * kDay) continue;
    // Failures are ignored: the next station that starts tries again.
    static_cast<void>(removeFileAt(noteLock(folder, each.note.id)));
    static_cast<void>(removeFileAt(folder + "/" + name));
  }
}

void Presence::take(const FoundFiles& files) {
  for (const FoundFile& file : files) takeOne(file);
  if (talk_.changed) talk_.changed();
}

void Presence::takeOne(const FoundFile& file) {
  const std::string id = noteId(file.name);
  const auto known = others_.find(id);
  if (id == own_.id) return;
  if (file.isGone) {
    gone_.erase(id);
    if (known == others_.end()) return;
    tell("went", known->second);
    others_.erase(known);
    return;
  }
  const auto note =
      file.bytes ? parseNote(*file.bytes, id) : Result<StationNote>(file.bytes.error());
  // A note that cannot be read now may be half-visible on this file system; its next change is read
  // again.
  if (!note) return;
  FoundStation found{*note, LockState::eHeld, {}};
  bool isBack = false;
  if (known == others_.end()) {
    const std::string folder = notesFolder(settings().projectsDirectory);
    // A killed station leaves its note: only the lock tells whether it lives.
    found.state = lookAtLock(wideText(noteLock(folder, id)));
    if (found.isGone()) gone_[id] = found;
    if (!found.isAlive()) return;
    gone_.erase(id);
    tell("came", found);
    if (const std::string text = namesakeText(found); !text.empty()) LogBoth("%s\n", text);
    isBack = hasSamePlace(found);
  } else if (known->second.note != *note) {
    tell("changed", found);
  }
  others_[id] = std::move(found);
  if (talk_.seen) talk_.seen(*note);
  // One that was killed and is started again: its first start is not to count for long.
  if (isBack) lookForDead();
}

bool Presence::hasSamePlace(const FoundStation& other) const {
  return std::ranges::any_of(others_, [&other](const auto& each) {
    const StationNote& note = each.second.note;
    return note.user == other.note.user && note.host == other.note.host;
  });
}

void Presence::lookForDead() {
  if (!watch_) return;
  const ShareAnswer share = watch_->answer();
  if (share.isAwaited) return;  // the share would hold up this thread, too
  if (!share.result) return;    // without the share every lock looks free
  const std::string folder = notesFolder(settings().projectsDirectory);
  for (auto each = others_.begin(); each != others_.end();) {
    FoundStation& station = each->second;
    station.state = lookAtLock(wideText(noteLock(folder, each->first)));
    if (!station.isGone()) {
      ++each;
      continue;
    }
    tell("went", station);
    gone_[each->first] = station;
    each = others_.erase(each);
  }
}

void Presence::lookForMissed() {
  for (const auto& [id, station] : others_) {
    const StationNote& note = station.note;
    if (note.port == 0) continue;
    noteMissed(station,
               missed_.look(id, note.sent, traffic_->takenFrom(note.addresses, note.port)));
  }
  missed_.keepOnly([this](const std::string& id) { return others_.contains(id); });
  std::erase_if(untold_, [this](const auto& each) { return !others_.contains(each.first); });
  std::erase_if(losses_, [this](const auto& each) {
    const auto station = others_.find(each.first);
    const bool hasSaved = station == others_.end() || station->second.note.unsaved.empty();
    return hasSaved && std::time(nullptr) - each.second.when >= kShortestWarning;
  });
}

// Told once a minute at most: on a bad network messages are lost all the time.
void Presence::noteMissed(const FoundStation& station, long lost) {
  const std::string& id = station.note.id;
  const std::int64_t now = std::time(nullptr);
  untold_[id] += lost;
  const auto told = losses_.find(id);
  if (untold_[id] == 0 || (told != losses_.end() && now - told->second.when < kBetweenTellings)) {
    return;
  }
  const long count = std::exchange(untold_[id], 0);
  losses_[id] = {count, now};
  tellNetworkProblem(lossText(station.note.user, losses_[id]), static_cast<std::uint64_t>(count));
}

std::string Presence::missing() const {
  std::string text;
  for (const auto& [id, loss] : losses_) {
    const auto station = others_.find(id);
    if (station == others_.end()) continue;
    text += (text.empty() ? "" : " ") + lossText(station->second.note.user, loss) + ".";
  }
  return text;
}

long MissedMessages::look(const std::string& id, long sent, long taken) {
  Counts& counts = stations_[id];
  const bool isAtRest = counts.sent == sent && counts.taken == taken;
  counts.atRest = isAtRest ? counts.atRest + 1 : 0;
  counts.sent = sent;
  counts.taken = taken;
  const long behind = sent - taken;
  if (!counts.behind) {
    if (counts.atRest >= kLooksAtRest) counts.behind = behind;
    return 0;
  }
  // A message may be on its way while the note is here already: what is lost still is at the next
  // look.
  const long suspected = std::max(0L, behind - *counts.behind);
  const long lost = std::min(suspected, std::exchange(counts.suspected, suspected));
  *counts.behind += lost;
  counts.suspected -= lost;
  return lost;
}

void Presence::tell(const char* how, const FoundStation& station) const {
  events().presence(how, shownStation(station));
}

}  // namespace korvel
