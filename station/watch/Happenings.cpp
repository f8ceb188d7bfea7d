#include "station/watch/Happenings.h"

#include <algorithm>
#include <condition_variable>
#include <ctime>
#include <iterator>
#include <mutex>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "station/base/HostParts.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/edit/OtioDocument.h"
#include "station/keep/TrashFolder.h"
#include "station/keep/VersionFolder.h"
#include "station/os/SharedFiles.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

constexpr std::size_t kMostDeedsShown = 3;

/// Others can announce modifications without end.
constexpr std::size_t kMostTold = 200;

/// The time of a SaveStamp; nothing where it is none.
std::optional<std::int64_t> secondsIn(const std::string& stamp) {
  if (stamp.empty()) return std::nullopt;
  std::tm parts{};
  const char* const end = ::strptime(stamp.c_str(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  if (!end || *end != '\0') return std::nullopt;
  return ::timegm(&parts);
}

std::string objectText(const Happening& happening) {
  const std::string name = shownText(happening.name.empty() ? happening.cookie : happening.name);
  if (happening.what == "edit") return name;
  return "the " + (happening.what == "media" ? "media file" : happening.what) + " " + name;
}

/// What was done to the whole, with the object's name in its place; empty for another deed.
std::string wholeText(const Deed& deed, const std::string& object) {
  if (!deed.clip.empty()) return {};
  if (deed.did == "renamed") return "renamed " + shownText(deed.was) + " to " + shownText(deed.to);
  const std::string to = deed.to.empty() ? "nobody" : shownText(deed.to);
  if (deed.did == "given") return "gave " + object + " to " + to;
  return (deed.did == "restored" ? "brought back" : deed.did) + " " + object;
}

JsonValue shownDeed(const Deed& deed) {
  JsonValue shown = JsonValue::object({{"did", deed.did}});
  const std::pair<const char*, const std::string*> texts[] = {
      {"clip", &deed.clip}, {"path", &deed.path}, {"was", &deed.was}, {"to", &deed.to}};
  for (const auto& [key, text] : texts) {
    if (!text->empty()) shown.set(key, shownText(*text));
  }
  return shown;
}

bool isSame(const Deed& a, const Deed& b) {
  return a.did == b.did && a.clip == b.clip && a.path == b.path;
}

}  // namespace

std::string happeningText(const Happening& happening) {
  const std::string who = happening.by.empty() ? "Somebody" : shownText(happening.by);
  const std::string object = objectText(happening);
  const std::string later = happening.isUnsaved ? ", not saved yet" : "";
  const auto& deeds = happening.deeds;
  const std::string whole = deeds.size() == 1 ? wholeText(deeds.front(), object) : std::string();
  if (!whole.empty()) return who + " " + whole + later;
  std::vector<std::string> texts;
  for (std::size_t i = 0; i < std::min(deeds.size(), kMostDeedsShown); ++i) {
    texts.push_back(deedText(deeds[i]));
  }
  std::string text = joined(texts, ", ");
  if (const std::size_t more = deeds.size() + happening.further - texts.size(); more > 0) {
    text += " and " + std::to_string(more) + " more";
  }
  return who + " " + text + " in " + object + later;
}

JsonValue shownHappening(const Happening& happening) {
  JsonValue deeds = JsonValue::array();
  const std::size_t shown = std::min(happening.deeds.size(), kMostDeedsShown);
  for (std::size_t i = 0; i < shown; ++i) deeds.append(shownDeed(happening.deeds[i]));
  return JsonValue::object(
      {{"id", happening.id},
       {"when", happening.when},
       {"time", utcText(happening.when)},
       {"by", shownText(happening.by)},
       {"own", happening.by == settings().user},
       {"what", happening.what},
       {"cookie", happening.cookie},
       {"name", shownText(happening.name)},
       {"deeds", std::move(deeds)},
       {"more", static_cast<unsigned long>(happening.deeds.size() + happening.further - shown)},
       {"unsaved", happening.isUnsaved},
       {"words", happeningText(happening)}});
}

/// Finds things out on a thread that may wait for the share, one after another, and hands what it
/// found to the host thread. The thread is made for the first question.
class Happenings::Reader {
 public:
  /// Runs on the host thread.
  using Finding = std::function<void()>;

  /// Runs on the reader's thread.
  using Question = std::function<Finding()>;

  explicit Reader(HostThread& host) : state_(std::make_shared<State>()) { state_->host = &host; }
  Reader(const Reader&) = delete;
  Reader& operator=(const Reader&) = delete;

  /// A thread that the share holds up is left to end by itself.
  ~Reader() {
    if (!thread_.joinable()) return;
    std::unique_lock lock(state_->mutex);
    state_->isEnding = true;
    state_->changes.notify_all();
    const bool hasEnded = state_->changes.wait_for(lock, std::chrono::seconds(1),
                                                   [this] { return state_->hasEnded; });
    state_->host = nullptr;
    lock.unlock();
    hasEnded ? thread_.join() : thread_.detach();
  }

  /// False where too many questions wait already.
  bool ask(Question question) try {
    if (!thread_.joinable()) thread_ = watchThread([state = state_] { run(*state); });
    const std::lock_guard lock(state_->mutex);
    if (state_->questions.size() >= kMostQuestions) return false;
    state_->questions.push_back(std::move(question));
    state_->changes.notify_all();
    return true;
  } catch (const std::system_error&) {
    return false;  // no thread is to be had
  }

 private:
  static constexpr std::size_t kMostQuestions = 64;

  struct State {
    std::mutex mutex;
    std::condition_variable changes;
    std::deque<Question> questions;
    HostThread* host = nullptr;  ///< null once it may be gone
    bool isEnding = false;
    bool hasEnded = false;
  };

  static void run(State& state) {
    std::unique_lock lock(state.mutex);
    while (true) {
      state.changes.wait(lock, [&state] { return state.isEnding || !state.questions.empty(); });
      if (state.isEnding) break;
      const Question question = std::move(state.questions.front());
      state.questions.pop_front();
      lock.unlock();
      Finding finding = question();
      lock.lock();
      if (state.host) state.host->post(std::move(finding));
    }
    state.hasEnded = true;
    state.changes.notify_all();
  }

  std::shared_ptr<State> state_;
  std::thread thread_;
};

namespace {

using Deeds = std::vector<Deed>;

std::optional<OtioDocument> documentAt(const std::string& path) {
  const auto bytes = readListed(path);
  if (!bytes) return std::nullopt;
  auto document = OtioDocument::parse(*bytes);
  if (!document) return std::nullopt;
  return std::move(*document);
}

/// The kept version with this mark, else the end.
auto versionMarked(const std::vector<Version>& versions, std::size_t content) {
  return std::ranges::find(versions, VersionFolder::markOf(content), &Version::mark);
}

/// What two versions say of the change from one to the other.
struct Comparison {
  Deeds deeds;     ///< none where no more can be said than that it was saved
  std::string by;  ///< who saved the later one; empty where no station did
};

Comparison compared(const std::string& before, const std::string& now) {
  const auto earlier = documentAt(before);
  const auto later = documentAt(now);
  if (!earlier || !later) return {};
  // What another program wrote bears the stamp of the save that it was made of.
  const bool isSave = !(earlier->stamp() == later->stamp());
  Comparison found{deedsOf(*earlier, *later), isSave ? later->stamp().by : std::string()};
  if (found.deeds.size() == 1 && found.deeds.front().did == "changed") found.deeds.clear();
  return found;
}

/// The same from one content of an object's file to another, where both versions are kept.
Comparison comparedBetween(const std::string& path, std::size_t before, std::size_t now) {
  const auto versions = VersionFolder(path).list();
  if (!versions) return {};
  const auto from = versionMarked(*versions, before);
  const auto to = versionMarked(*versions, now);
  if (from == versions->end() || to == versions->end()) return {};
  return compared(from->path, to->path);
}

/// What the save did after which an object's file holds this.
Deeds deedsOfSave(const std::string& path, std::size_t content) {
  const auto versions = VersionFolder(path).list();
  if (!versions) return {};
  const auto to = versionMarked(*versions, content);
  if (to == versions->end() || to == versions->begin()) return {};
  return compared(std::prev(to)->path, to->path).deeds;
}

/// What the clip at a path is called in an object's file; the path where that cannot be told.
std::string clipIn(const std::string& file, const std::string& path) {
  const auto document = documentAt(file);
  const auto clip = document ? clipAt(document->json(), path) : Error();
  return clip && !clip->name.empty() ? clip->name : path;
}

}  // namespace

Happenings::Happenings(HostThread& host, Edits& edits)
    : host_(host), edits_(edits), reader_(std::make_unique<Reader>(host)) {
  edits_.addObserver(*this);
  observeChanges(this);
}

Happenings::~Happenings() {
  observeChanges(nullptr);
  edits_.removeObserver(*this);
}

namespace {

/// Nothing is found where there is no memory for it: what waits for it goes on without.
template <typename Found>
Found foundBy(const std::function<Found()>& find) try {
  return find();
} catch (const std::exception&) {
  return {};
}

}  // namespace

template <typename Found>
bool Happenings::findOut(std::function<Found()> find, std::function<void(Found)> take) {
  return reader_->ask([find = std::move(find), take = std::move(take),
                       visit = std::weak_ptr<int>(visit_)]() -> Reader::Finding {
    // The project was left meanwhile: nobody waits for what the share would be asked.
    if (visit.expired()) return [] {};
    return [found = foundBy(find), take, visit] {
      if (!visit.expired()) take(found);
    };
  });
}

JsonValue Happenings::list(const std::string& of) const {
  constexpr std::size_t kLeastOfCookie = 8;
  const std::string user = upperCased(of);
  JsonValue list = JsonValue::array();
  for (const Happening& each : all_) {
    const bool isObject = each.name == of || each.cookie == of ||
                          (of.size() >= kLeastOfCookie && each.cookie.starts_with(of));
    if (of.empty() || isObject || upperCased(each.by) == user) list.append(shownHappening(each));
  }
  return list;
}

Happening Happenings::begun(const std::string& what, const Cookie& cookie,
                            const std::string& name) const {
  Happening happening;
  happening.when = std::time(nullptr);
  happening.by = currentAuthor();
  happening.what = what;
  happening.cookie = cookie.asString().str();
  happening.name = name;
  return happening;
}

void Happenings::add(Happening happening) {
  happening.id = ++lastId_;
  all_.push_front(std::move(happening));
  if (all_.size() > kMost) all_.pop_back();
  events().happened(all_.front());
}

/// Makes it one with what the same user did to the same clip or object a moment ago.
bool Happenings::putTogether(const Happening& happening) {
  const auto before = std::ranges::find_if(all_, [&happening](const Happening& each) {
    return each.cookie == happening.cookie || happening.when - each.when > kTogether;
  });
  const bool isOne = before != all_.end() && before->cookie == happening.cookie &&
                     before->by == happening.by && before->isUnsaved == happening.isUnsaved &&
                     before->deeds.size() == 1 && happening.deeds.size() == 1 &&
                     happening.when - before->when <= kTogether &&
                     isSame(before->deeds.front(), happening.deeds.front());
  if (!isOne) return false;
  Happening one = happening;
  one.id = before->id;
  // Of two renamings the first name is the one that it had.
  one.deeds.front().was = before->deeds.front().was;
  all_.erase(before);
  all_.push_front(std::move(one));
  events().happened(all_.front());
  return true;
}

void Happenings::addUnlessTold(Happening happening) {
  if (!putTogether(happening)) add(std::move(happening));
}

void Happenings::changed(const std::string& what, const Cookie& cookie, const std::string& how,
                         const std::string& name) {
  if (!hostParts().projects || !hostParts().projects->current()) return;
  if (what == "edit" || what == "log") return documentChanged(what, cookie, how);
  if (what == "room" || what == "permissions") return;
  Happening happening = begun(what, cookie, name);
  const bool isBack = how == "created" && deleted_.erase(happening.cookie) > 0;
  if (how == "destroyed") deleted_.insert(happening.cookie);
  const std::string did = how == "created"                     ? (isBack ? "restored" : "made")
                          : how == "destroyed"                 ? "deleted"
                          : how == "added" || how == "removed" ? how
                                                               : "changed";
  happening.deeds = {{did}};
  addUnlessTold(std::move(happening));
}

// What becomes of an edit's content comes as modified() and replaced(): most calls are about a save
// and bring nothing here.
void Happenings::documentChanged(const std::string& what, const Cookie& cookie,
                                 const std::string& how) {
  const EditFile* const edit = edits_.loaded(cookie);
  const bool isGone = edit && edit->fileState() == EditFile::FileState::eGone;
  const bool wasDeleted = !deleted_.empty() && deleted_.contains(cookie.asString().str());
  if (how == "destroyed" || (how == "refreshed" && isGone)) {
    Happening last = begunLast(what, cookie);
    if (!wasDeleted) tellDeletion(std::move(last));
    return;
  }
  const bool isBack = wasDeleted && !isGone;
  if (how != "created" && !isBack) return;
  Happening happening = begun(what, cookie, edits_.nameOf(cookie));
  deleted_.erase(happening.cookie);
  const EditSummary* const known = edits_.summary(cookie);
  if (happening.by.empty() && known) happening.by = known->savedBy;
  happening.deeds = {{isBack ? "restored" : "made"}};
  add(std::move(happening));
}

/// The last of a document: under the name that it had, though its edit may be forgotten by now.
Happening Happenings::begunLast(const std::string& what, const Cookie& cookie) {
  Happening happening = begun(what, cookie, edits_.nameOf(cookie));
  if (auto last = lastNames_.extract(happening.cookie)) happening.name = std::move(last.mapped());
  deleted_.insert(happening.cookie);
  return happening;
}

void Happenings::tellDeletion(Happening happening) {
  happening.deeds = {{"deleted"}};
  if (!happening.by.empty()) return add(std::move(happening));
  const std::string folder = hostParts().projects->current()->folder;
  const bool isAsked = findOut<std::string>(
      [folder, cookie = happening.cookie] { return TrashFolder(folder).whoDeleted(cookie); },
      [this, happening](const std::string& who) {
        Happening told = happening;
        told.by = who;
        add(std::move(told));
      });
  if (!isAsked) add(std::move(happening));
}

void Happenings::forgetting(const Cookie& cookie, const EditSummary& last) {
  lastNames_[cookie.asString().str()] = last.name;
}

void Happenings::modified(const Cookie& cookie, const Deed& deed) {
  Happening happening = begun(Edits::kindText(cookie), cookie, edits_.nameOf(cookie));
  if (deed.did == "renamed") happening.name = deed.was;
  happening.isUnsaved = true;
  happening.deeds = {deed};
  Deeds& told = told_[{happening.cookie, happening.by}];
  std::erase_if(told, [&deed](const Deed& each) { return isSame(each, deed); });
  if (told.size() < kMostTold) told.push_back(deed);
  const bool isNameless = !deed.path.empty() && deed.clip == deed.path && !edits_.loaded(cookie);
  const bool isAsked =
      isNameless && findOut<std::string>([file = edits_.pathFor(cookie),
                                          path = deed.path] { return clipIn(file, path); },
                                         [this, happening](const std::string& clip) {
                                           Happening named = happening;
                                           named.deeds.front().clip = clip;
                                           addUnlessTold(std::move(named));
                                         });
  if (!isAsked) addUnlessTold(std::move(happening));
}

namespace {

/// Of what was announced one part is saved by now: the rest is news.
Deeds withoutTold(Deeds deeds, const Deeds& told) {
  std::erase_if(deeds, [&told](const Deed& deed) {
    return std::ranges::any_of(told, [&deed](const Deed& each) {
      return each.did == deed.did && each.path == deed.path && each.to == deed.to;
    });
  });
  return deeds;
}

/// What lists tell of the two without reading either.
Deeds listedDeeds(const EditSummary& before, const EditSummary& now) {
  Deeds deeds;
  if (before.name != now.name) deeds.push_back({"renamed", {}, {}, before.name, now.name});
  if (before.owner != now.owner) deeds.push_back({"given", {}, {}, {}, now.owner});
  return deeds;
}

}  // namespace

void Happenings::replaced(const Cookie& cookie, const EditSummary& before, const EditSummary& now) {
  Happening happening = begun(Edits::kindText(cookie), cookie, now.name);
  const bool isSave = before.savedBy != now.savedBy || before.savedAt != now.savedAt;
  // What is found in the file and was not saved was written by another program: nobody is named who
  // only saved before it.
  if (isSave && !now.savedBy.empty()) happening.by = now.savedBy;
  const bool isFound = currentOrigin() == Origin::eFolder ||
                       (currentOrigin() == Origin::eLocal && now.savedBy != happening.by);
  if (!isSave && isFound) happening.by.clear();
  // By the clock of the station that saved, which may be ahead.
  const auto saved = isSave ? secondsIn(now.savedAt) : std::nullopt;
  if (saved && currentOrigin() == Origin::eFolder)
    happening.when = std::min(*saved, happening.when);
  const Deeds told = takeTold(happening.cookie, happening.by);
  happening.deeds = withoutTold(listedDeeds(before, now), told);
  if (happening.deeds.empty()) happening.deeds = {{isSave ? "saved" : "changed"}};
  add(std::move(happening));
  // What was done is told a moment later, where there is not too much to do.
  static_cast<void>(
      findOut<Comparison>([file = edits_.pathFor(cookie), was = before.content,
                           is = now.content] { return comparedBetween(file, was, is); },
                          [this, id = lastId_, told](const Comparison& found) {
                            complete(id, found.by, withoutTold(found.deeds, told));
                          }));
}

/// What this user announced of an object, which is saved by now. Where it is not known who
/// announced or who saved, it may have been the same.
Deeds Happenings::takeTold(const std::string& cookie, const std::string& user) {
  Deeds told;
  std::erase_if(told_, [&](auto& each) {
    const auto& [object, by] = each.first;
    const bool isMeant = object == cookie && (by == user || by.empty() || user.empty());
    if (isMeant) std::ranges::move(each.second, std::back_inserter(told));
    return isMeant;
  });
  return told;
}

/// Takes up what the versions say of a happening: who saved it, and what was done.
void Happenings::complete(long id, const std::string& by, const Deeds& deeds) {
  const auto known = std::ranges::find(all_, id, &Happening::id);
  if (known == all_.end()) return;
  const Happening before = *known;
  if (!by.empty()) known->by = by;
  // Two saves within a second differ in their number alone, which lists do not know.
  Deed& first = known->deeds.front();
  if (!by.empty() && first.did == "changed") first.did = "saved";
  if (!deeds.empty()) {
    const auto most = static_cast<std::ptrdiff_t>(std::min(deeds.size(), kMostDeeds));
    known->deeds.assign(deeds.begin(), deeds.begin() + most);
    known->further = deeds.size() - known->deeds.size();
  }
  const bool isNews = before.by != known->by || before.deeds != known->deeds;
  if (isNews) events().happened(*known);
}

void Happenings::handleProjectEntry() {
  handleProjectExit();
  listEarlier();
}

void Happenings::handleProjectExit() {
  visit_ = std::make_shared<int>(0);
  firstId_ = lastId_ + 1;
  all_.clear();
  told_.clear();
  lastNames_.clear();
  deleted_.clear();
}

/// Lists the latest saves that the files tell of, and looks up what the newest did.
void Happenings::listEarlier() {
  constexpr std::int64_t kNanosecondsASecond = 1'000'000'000;
  std::vector<std::pair<std::int64_t, Cookie>> saves;
  for (const auto& [cookie, known] : edits_.all()) {
    const EditSummary& summary = known.summary;
    auto when = secondsIn(summary.savedAt);
    if (!when && known.enteredAs > 0) when = known.enteredAs / kNanosecondsASecond;
    if (when && summary.problem.empty()) saves.emplace_back(*when, cookie);
  }
  const auto most = static_cast<std::ptrdiff_t>(std::min(saves.size(), kMostBefore));
  std::ranges::partial_sort(saves, saves.begin() + most, std::ranges::greater(),
                            &std::pair<std::int64_t, Cookie>::first);
  for (std::ptrdiff_t i = 0; i < most; ++i) {
    const auto& [when, cookie] = saves[static_cast<std::size_t>(i)];
    const EditSummary& summary = *edits_.summary(cookie);
    Happening happening = begun(Edits::kindText(cookie), cookie, summary.name);
    happening.id = ++lastId_;
    happening.when = when;
    happening.by = summary.savedBy;
    happening.deeds = {{summary.savedBy.empty() ? "changed" : "saved"}};
    all_.push_back(std::move(happening));
    if (static_cast<std::size_t>(i) >= kMostLookedUp) continue;
    lookUpDeeds(lastId_, edits_.pathFor(cookie), summary.content);
  }
}

void Happenings::lookUpDeeds(long id, const std::string& path, std::size_t content) {
  // Where there is too much to do, it stays told that it was saved.
  static_cast<void>(findOut<Deeds>([path, content] { return deedsOfSave(path, content); },
                                   [this, id](const Deeds& deeds) { complete(id, {}, deeds); }));
}

}  // namespace korvel
