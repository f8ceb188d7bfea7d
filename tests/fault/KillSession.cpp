#include "tests/fault/KillSession.h"

#include <signal.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <utility>

#include "station/os/FolderListing.h"

namespace korvel {

namespace {

namespace fs = std::filesystem;

using namespace std::chrono_literals;

constexpr std::size_t kEdits = 4;
constexpr int kLongest = 1600;           ///< milliseconds until a kill
constexpr int kLongestPause = 60;        ///< milliseconds between two changes by a person
constexpr int kLongestTrouble = 500;     ///< milliseconds
constexpr std::size_t kMostChanges = 8;  ///< in a row

/// Changes that were unsaved for less may be missing.
constexpr auto kMayBeMissing = 1s;

constexpr int kFrames = 24;  ///< a second, in the sample

std::string bytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

void replaceFirst(std::string& text, const std::string& old, const std::string& by) {
  text.replace(text.find(old), old.size(), by);
}

/// An edit of this name, the material of whose first clip is longer than all that is made of it.
std::string editNamed(const std::string& name) {
  std::string text = bytesOf(KV_SAMPLES "/simple_cut.otio");
  replaceFirst(text, "Figure 1 - Simple Cut List", name);
  replaceFirst(text, "\"value\": 8", "\"value\": 100000000");
  return text;
}

const JsonValue& firstOf(const JsonValue& parent) {
  static const JsonValue kNone;
  const auto& children = parent["children"].elements();
  return children.empty() ? kNone : children.front();
}

/// The cookie of the edit that a file, a version or a file in the trash is of.
std::string cookieOf(const fs::path& path) {
  const bool isVersion = path.parent_path().parent_path().filename() == ".history";
  const std::string name = isVersion ? path.parent_path().filename() : path.filename();
  return name.substr(0, name.find_first_of(".~"));
}

std::string keyOf(const FileStamp& stamp) {
  return std::to_string(stamp.device) + "/" + std::to_string(stamp.inode) + "/" +
         std::to_string(stamp.modified) + "/" + std::to_string(stamp.size);
}

}  // namespace

KillSession::KillSession(unsigned seed, Trouble trouble)
    : share_(trouble, folder_ / "projects"), random_(seed), trouble_(trouble) {
  ::setenv("XDG_STATE_HOME", (folder_ / "state").c_str(), 1);
}

void KillSession::complain(const std::string& what) {
  outcome_.lost.push_back("round " + std::to_string(outcome_.rounds) + ": " + what);
}

void KillSession::expect(bool ok, const std::string& what) {
  if (ok) return;
  if (isTroubled_) {
    ++outcome_.refused;
  } else {
    complain(what + ": " + answer_["error"].asString());
  }
}

void KillSession::start() {
  StationProcess::Options options;
  options.program = KV_STATION;
  options.projects = folder_ / "projects";
  options.user = options.host = "ANNA";
  options.machine = 11;
  options.port = port_;
  options.more = {"--set", "history_versions=100000"};
  station_ = std::make_unique<StationProcess>(std::move(options));
  if (!station_->waitUntilReady(StationProcess::Seconds(120))) {
    complain("it does not start: " + station_->errorText());
  }
}

bool KillSession::give(const std::string& line, bool& ok) {
  constexpr auto kPause = StationProcess::Seconds(0.02);
  constexpr auto kNow = StationProcess::Seconds(0);
  const int troubles = troubles_;
  station_->type(line);
  const auto deadline = Clock::now() + 2min;
  auto reply = station_->waitFor("reply", {}, kPause);
  while (!reply && Clock::now() < deadline && !station_->waitForExit(kNow)) {
    reply = station_->waitFor("reply", {}, kPause);
  }
  if (!reply) reply = station_->waitFor("reply", {}, kNow);
  if (!reply) return false;
  answer_ = *reply;
  ++outcome_.commands;
  ok = answer_["ok"].asBool();
  isTroubled_ = troubles_ != troubles || troubles % 2 == 1;
  return true;
}

KillOutcome KillSession::run(int rounds) {
  // On a slow machine a kill may come before anything was saved, deleted or refused.
  const auto hasMet = [this, rounds] {
    const bool isTroubleMet = outcome_.inTrouble > 0 && outcome_.refused > 0;
    return outcome_.saved > rounds && outcome_.deleted + outcome_.restored > 0 &&
           outcome_.needed > rounds / 3 && (trouble_ == Trouble::eNone || isTroubleMet);
  };
  const int most = 8 * rounds;
  for (outcome_.rounds = 0; outcome_.rounds < rounds || (!hasMet() && outcome_.rounds < most);
       ++outcome_.rounds) {
    start();
    if (!takeUp()) break;
    work();
    look();
  }
  return outcome_;
}

/// Enters the project, and makes of what was left unsaved changes again.
bool KillSession::takeUp() {
  bool ok = true;
  if (outcome_.rounds == 0 && !give("project create Film", ok)) return false;
  if (!give("project enter Film", ok) || !ok || !give("state", ok)) {
    complain("the project cannot be entered: " + answer_["error"].asString());
    return false;
  }
  const JsonValue state = answer_["result"];
  project_ = state["project"]["cookie"].asString();
  for (const JsonValue& left : state["recovery"].elements()) {
    if (!give("edit recover " + left["cookie"].asString(), ok)) return false;
    outcome_.recovered += ok;
    const std::string& said = answer_["error"].asString();
    if (!ok && said.find("other unsaved changes") == std::string::npos) complain(said);
  }
  return learnTrash() && learnEdits();
}

bool KillSession::learnTrash() {
  bool ok = true;
  if (!give("trash list", ok)) return false;
  expect(ok, "trash");
  trashed_.clear();
  for (const JsonValue& each : answer_["result"].elements()) {
    trashed_.push_back(each["cookie"].asString());
    if (!each["problem"].asString().empty()) complain(each["problem"].asString());
  }
  return true;
}

bool KillSession::learnEdits() {
  bool ok = true;
  if (!give("edit list", ok)) return false;
  edits_.clear();
  const JsonValue all = answer_["result"];
  for (const JsonValue& each : all.elements()) {
    if (!each["problem"].asString().empty()) complain(each["problem"].asString());
    Known edit;
    edit.cookie = each["cookie"].asString();
    made_.insert(edit.cookie);
    if (!learn(edit)) return false;
    if (each["dirty"].asBool()) noteChanged(edit);
    const auto left = left_.find(edit.cookie);
    if (left != left_.end() && edit.state != left->second) {
      complain("taken up as " + edit.state.name + " instead of " + left->second.name);
    }
    edits_.push_back(std::move(edit));
  }
  return true;
}

/// Asks how an edit is shown, until the share's trouble lets it be told.
bool KillSession::learn(Known& edit) {
  bool ok = false;
  while (!ok) {
    if (!give("edit show " + edit.cookie, ok)) return false;
    expect(ok, "show");
    if (!ok && !isTroubled_) return true;
  }
  const JsonValue& shown = answer_["result"];
  const auto& clips = shown["clips"].elements();
  edit.state.name = shown["name"].asString();
  if (!clips.empty()) edit.state.end = std::lround(clips.front()["end"].asDouble() * kFrames);
  return true;
}

void KillSession::noteSaved(Known& edit) {
  edit.unsaved.clear();
  saved_[edit.cookie].insert(edit.state);
}

void KillSession::noteChanged(Known& edit) { edit.unsaved.push_back({edit.state, Clock::now()}); }

void KillSession::work() {
  const std::jthread killer = arrangeKill();
  while (step()) {
  }
}

/// Kills the station at a random moment; until then the share's trouble comes and goes.
std::jthread KillSession::arrangeKill() {
  const auto begin = Clock::now();
  const auto moment = begin + std::chrono::milliseconds(random(kLongest));
  std::vector<Clock::time_point> turns;
  for (auto at = begin; trouble_ != Trouble::eNone && at < moment;) {
    at += std::chrono::milliseconds(random(kLongestTrouble));
    if (at < moment) turns.push_back(at);
  }
  return std::jthread([this, turns, moment, process = station_->pid()] {
    // The moments are to be random, so nothing is waited for.
    for (const auto turn : turns) {
      std::this_thread::sleep_until(turn);
      const bool isBeginning = troubles_ % 2 == 0;
      if (isBeginning) ++troubles_;
      isBeginning ? share_.begin() : share_.end();
      if (!isBeginning) ++troubles_;
    }
    std::this_thread::sleep_until(moment);
    killed_ = Clock::now();
    ::kill(process, SIGKILL);
  });
}

bool KillSession::step() {
  if (edits_.size() < kEdits) {
    const bool isTakenBack = !trashed_.empty() && random(4) > 0;
    return isTakenBack ? takeBack(random(trashed_.size())) : create();
  }
  Known& edit = edits_[random(edits_.size())];
  switch (random(isByPerson() ? 40 : 12)) {
    case 0:
      return remove(random(edits_.size()));
    case 1:
      return restore(edit);
    case 2:
      return give(edit);
    case 3:
    case 4:
      return save(edit);
    default:
      return change(edit);
  }
}

/// Several changes in a row.
bool KillSession::change(Known& edit) {
  for (std::size_t count = 1 + random(kMostChanges); count > 0; --count) {
    if (random(3) > 0 ? !trim(edit) : !rename(edit)) return false;
    // The pace of a person.
    if (isByPerson()) std::this_thread::sleep_for(std::chrono::milliseconds(random(kLongestPause)));
  }
  return true;
}

bool KillSession::create() {
  bool ok = false;
  const std::string name = nextName();
  const std::string file = folder_ / (name + ".otio");
  std::ofstream(file) << editNamed(name);
  if (!give("edit import " + file, ok)) return false;
  expect(ok, "import");
  fs::remove(file);
  if (!ok) return true;
  Known edit;
  edit.cookie = answer_["result"].asString();
  made_.insert(edit.cookie);
  if (!learn(edit)) return false;
  noteSaved(edit);
  edits_.push_back(std::move(edit));
  return true;
}

bool KillSession::rename(Known& edit) {
  bool ok = false;
  const std::string name = nextName();
  if (!give("edit rename " + edit.cookie + " " + name, ok)) return false;
  expect(ok, "rename");
  if (!ok) return true;
  edit.state.name = name;
  noteChanged(edit);
  return true;
}

bool KillSession::trim(Known& edit) {
  bool ok = false;
  const long end = 100 + ++changes_;
  if (!give("edit trim " + edit.cookie + " 0/0 0 " + std::to_string(end), ok)) return false;
  expect(ok, "trim");
  if (!ok) return true;
  edit.state.end = end;
  noteChanged(edit);
  return true;
}

bool KillSession::save(Known& edit) {
  bool ok = false;
  if (!give("edit save " + edit.cookie, ok)) return false;
  if (!ok && !isTroubled_ && !give("edit save " + edit.cookie + " --over", ok)) return false;
  expect(ok, "save");
  if (ok) noteSaved(edit);
  return true;
}

bool KillSession::restore(Known& edit) {
  bool ok = false;
  if (!save(edit)) return false;
  if (!edit.unsaved.empty()) return true;
  if (!give("edit history " + edit.cookie, ok)) return false;
  const JsonValue versions = answer_["result"];
  if (!ok || versions.elements().empty()) {
    expect(false, "history");
    return true;
  }
  const JsonValue& chosen = versions.elements()[random(versions.elements().size())];
  if (!give("edit restore " + edit.cookie + " " + chosen["version"].asString(), ok)) return false;
  expect(ok, "restore");
  const State before = edit.state;
  if (!learn(edit)) return false;
  if (ok) noteSaved(edit);
  if (!ok && edit.state != before) noteChanged(edit);
  return true;
}

bool KillSession::give(Known& edit) {
  bool ok = false;
  if (!save(edit)) return false;
  if (!edit.unsaved.empty()) return true;
  if (!give("edit give " + edit.cookie + " ANNA", ok)) return false;
  expect(ok, "give");
  return true;
}

bool KillSession::remove(std::size_t which) {
  bool ok = false;
  Known& edit = edits_[which];
  if (!save(edit)) return false;
  if (!edit.unsaved.empty()) return true;
  if (!give("edit delete " + edit.cookie, ok)) return false;
  expect(ok, "delete");
  if (!ok) return true;
  ++outcome_.deleted;
  trashed_.push_back(edit.cookie);
  edits_.erase(edits_.begin() + static_cast<std::ptrdiff_t>(which));
  return true;
}

bool KillSession::takeBack(std::size_t which) {
  bool ok = false;
  Known edit;
  edit.cookie = trashed_[which];
  if (!give("trash restore " + edit.cookie, ok)) return false;
  expect(ok, "trash restore");
  outcome_.restored += ok;
  if (!ok) return true;
  trashed_.erase(trashed_.begin() + static_cast<std::ptrdiff_t>(which));
  if (!learn(edit)) return false;
  edits_.push_back(std::move(edit));
  return true;
}

/// Each edit is in the project or in its trash, in one of both.
void KillSession::lookForFiles() {
  const std::string folder = folder_ / ("projects/" + project_);
  std::multiset<std::string> trashed;
  std::error_code none;
  for (const auto& each : fs::directory_iterator(folder + "/.trash", none)) {
    trashed.insert(cookieOf(each.path()));
  }
  for (const std::string& cookie : made_) {
    const std::size_t count = trashed.count(cookie) + fs::exists(folder + "/" + cookie + ".otio");
    if (count != 1) complain(cookie + " is there " + std::to_string(count) + " times");
  }
}

/// What a file of an edit, a version or a recovery file holds.
KillSession::State KillSession::read(const std::string& path) {
  const auto json = parseJson(bytesOf(path));
  if (!json) {
    complain(path + ": " + json.error().message);
    return {};
  }
  const JsonValue* const kept = json->find("content");
  const JsonValue& edit = kept ? *kept : *json;
  const JsonValue& range = firstOf(firstOf(edit["tracks"]))["source_range"];
  return {edit["name"].asString(), std::lround(range["start_time"]["value"].asDouble() +
                                               range["duration"]["value"].asDouble())};
}

/// What all edits, versions and recovery files below a folder hold. What was read once is not read
/// again while its file is the same.
void KillSession::findBelow(const std::string& folder, std::map<std::string, States>& found) {
  std::error_code gone;
  for (fs::recursive_directory_iterator each(folder, gone), end; each != end;
       each.increment(gone)) {
    const fs::path& path = each->path();
    const std::string cookie = cookieOf(path);
    const bool isTemporary = path.filename().string().front() == '.';
    const auto stamp = stampOfFile(path);
    if (!stamp || isTemporary || !cookie.starts_with('E')) continue;
    const auto [known, isNew] = read_.try_emplace(keyOf(*stamp));
    if (isNew) known->second = read(path);
    found[cookie].insert(known->second);
  }
}

KillSession::Found KillSession::find() {
  Found found;
  findBelow(folder_ / "projects", found.stored);
  findBelow(folder_ / "state", found.unsaved);
  return found;
}

void KillSession::look() {
  station_.reset();
  outcome_.inTrouble += share_.isInTrouble();
  if (share_.isInTrouble()) ++troubles_;
  share_.end();
  if (!share_.strays().empty()) complain("written beside the share:" + share_.strays());
  lookForFiles();
  Found found = find();
  outcome_.saved = 0;
  for (const auto& [cookie, states] : saved_) {
    for (const State& state : states) {
      if (!found.stored[cookie].contains(state)) complain("saved and nowhere: " + state.name);
    }
    outcome_.saved += static_cast<int>(states.size());
  }
  left_.clear();
  bool isNeeded = false;
  for (const Known& edit : edits_) isNeeded |= lookForChanges(edit, found);
  outcome_.needed += isNeeded;
}

/// Counts the unsaved changes of an edit, and those that are nowhere. Whether one was in the
/// recovery files alone.
bool KillSession::lookForChanges(const Known& edit, Found& found) {
  const States& stored = found.stored[edit.cookie];
  const States& kept = found.unsaved[edit.cookie];
  outcome_.unsaved += static_cast<int>(edit.unsaved.size());
  for (auto each = edit.unsaved.rbegin(); each != edit.unsaved.rend(); ++each) {
    if (stored.contains(each->state)) return false;  // by a save that was not answered any more
    if (kept.contains(each->state)) {
      left_[edit.cookie] = each->state;
      return true;
    }
    noteMissing(edit, *each);
  }
  return false;
}

void KillSession::noteMissing(const Known& edit, const Change& change) {
  const auto since = std::max(killed_ - change.answered, Clock::duration::zero());
  const auto age = std::chrono::duration_cast<KillOutcome::Milliseconds>(since);
  outcome_.oldest = std::max(outcome_.oldest, age);
  outcome_.youngest = outcome_.missing == 0 ? age : std::min(outcome_.youngest, age);
  ++outcome_.missing;
  if (age < kMayBeMissing) return;
  complain("not saved, " + std::to_string(age.count()) + " ms old, and nowhere: " + edit.cookie +
           " as " + change.state.name + " with its first clip until " +
           std::to_string(change.state.end));
}

}  // namespace korvel
