#include "tests/fault/KillSession.h"

#include <signal.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <thread>
#include <utility>

namespace korvel {

namespace {

namespace fs = std::filesystem;

using namespace std::chrono_literals;

constexpr std::size_t kEdits = 4;
constexpr int kLongest = 1600;  ///< milliseconds until a kill

/// By then a change is in the recovery files.
constexpr auto kUntilKept = 1200ms;

std::string bytesOf(const fs::path& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

/// The names in all edits, versions and recovery files below a folder.
std::set<std::string> namesBelow(const std::string& folder) {
  std::set<std::string> names;
  std::error_code gone;
  for (fs::recursive_directory_iterator each(folder, gone), end; each != end;
       each.increment(gone)) {
    if (!each->is_regular_file(gone) || each->path().filename().string().front() == '.') continue;
    const auto json = parseJson(bytesOf(each->path()));
    if (!json) continue;
    names.insert((*json)["name"].asString());
  }
  return names;
}

}  // namespace

KillSession::KillSession(unsigned seed) : random_(seed) {
  fs::create_directory(folder_ / "projects");
  ::setenv("XDG_STATE_HOME", (folder_ / "state").c_str(), 1);
}

void KillSession::complain(const std::string& what) {
  outcome_.lost.push_back("round " + std::to_string(outcome_.rounds) + ": " + what);
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
  return true;
}

KillOutcome KillSession::run(int rounds, Moments moments) {
  moments_ = moments;
  for (outcome_.rounds = 0; outcome_.rounds < rounds; ++outcome_.rounds) {
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
  if (!give("trash list", ok)) return false;
  if (!ok) complain("trash: " + answer_["error"].asString());
  trashed_.clear();
  for (const JsonValue& each : answer_["result"].elements()) {
    trashed_.push_back(each["cookie"].asString());
    if (!each["problem"].asString().empty()) complain(each["problem"].asString());
  }
  if (!give("edit list", ok)) return false;
  edits_.clear();
  for (const JsonValue& edit : answer_["result"].elements()) {
    const bool isDirty = edit["dirty"].asBool();
    made_.insert(edit["cookie"].asString());
    edits_.push_back({edit["cookie"].asString(), isDirty ? edit["name"].asString() : std::string(),
                      Clock::now()});
    if (!edit["problem"].asString().empty()) complain(edit["problem"].asString());
  }
  return true;
}

void KillSession::work() {
  const bool isLeftUnsaved =
      moments_ == Moments::eThirdAtRest && outcome_.rounds % 3 == 1 && !edits_.empty();
  if (isLeftUnsaved && !rename(edits_.front())) return;
  const auto delay = isLeftUnsaved ? kUntilKept : std::chrono::milliseconds(random(kLongest));
  const std::jthread killer([this, delay, process = station_->pid()] {
    // The moment of the kill is to be random, so nothing is waited for.
    std::this_thread::sleep_for(delay);
    killed_ = Clock::now();
    ::kill(process, SIGKILL);
  });
  while (!isLeftUnsaved && step()) {
  }
}

bool KillSession::step() {
  if (edits_.size() < kEdits) {
    const bool isTakenBack = !trashed_.empty() && random(4) > 0;
    return isTakenBack ? takeBack(random(trashed_.size())) : create();
  }
  Known& edit = edits_[random(edits_.size())];
  switch (random(13)) {
    case 0:
    case 12:
      return remove(random(edits_.size()));
    case 1:
      return restore(edit);
    case 2:
      return give(edit);
    case 3:
    case 4:
      return trim(edit);
    case 5:
    case 6:
    case 7:
    case 8:
      return save(edit);
    default:
      return rename(edit);
  }
}

bool KillSession::create() {
  bool ok = false;
  const std::string name = nextName();
  std::ofstream(folder_ / (name + ".otio")) << bytesOf(KV_SAMPLES "/simple_cut.otio");
  if (!give("edit import " + (folder_ / (name + ".otio")), ok)) return false;
  if (!ok) complain("import: " + answer_["error"].asString());
  if (ok) edits_.push_back({answer_["result"].asString(), {}, {}});
  if (ok) made_.insert(answer_["result"].asString());
  return true;
}

bool KillSession::rename(Known& edit) {
  bool ok = false;
  const std::string name = nextName();
  if (!give("edit rename " + edit.cookie + " " + name, ok)) return false;
  if (!ok) complain("rename: " + answer_["error"].asString());
  edit.unsaved = name;
  edit.changed = Clock::now();
  return true;
}

bool KillSession::trim(Known& edit) {
  bool ok = false;
  if (!give("edit trim " + edit.cookie + " 0/0 0 " + std::to_string(1 + random(3)), ok))
    return false;
  if (!ok) complain("trim: " + answer_["error"].asString());
  return true;
}

bool KillSession::save(Known& edit) {
  bool ok = false;
  if (!give("edit save " + edit.cookie, ok)) return false;
  if (!ok && !give("edit save " + edit.cookie + " --over", ok)) return false;
  if (!ok) complain("save: " + answer_["error"].asString());
  if (ok && !edit.unsaved.empty()) saved_.insert(std::exchange(edit.unsaved, {}));
  return true;
}

bool KillSession::restore(Known& edit) {
  bool ok = false;
  if (!save(edit) || !give("edit history " + edit.cookie, ok)) return false;
  const JsonValue versions = answer_["result"];
  if (!ok || versions.elements().empty()) {
    complain("history: " + answer_["error"].asString());
    return true;
  }
  const JsonValue& chosen = versions.elements()[random(versions.elements().size())];
  if (!give("edit restore " + edit.cookie + " " + chosen["version"].asString(), ok)) return false;
  if (!ok) complain("restore: " + answer_["error"].asString());
  return true;
}

bool KillSession::give(Known& edit) {
  bool ok = false;
  if (!save(edit) || !give("edit give " + edit.cookie + " ANNA", ok)) return false;
  if (!ok) complain("give: " + answer_["error"].asString());
  return true;
}

bool KillSession::remove(std::size_t which) {
  bool ok = false;
  Known& edit = edits_[which];
  if (!save(edit) || !give("edit delete " + edit.cookie, ok)) return false;
  if (!ok) complain("delete: " + answer_["error"].asString());
  if (!ok) return true;
  ++outcome_.deleted;
  trashed_.push_back(edit.cookie);
  edits_.erase(edits_.begin() + static_cast<std::ptrdiff_t>(which));
  return true;
}

bool KillSession::takeBack(std::size_t which) {
  bool ok = false;
  const std::string cookie = trashed_[which];
  if (!give("trash restore " + cookie, ok)) return false;
  if (!ok) complain("trash restore: " + answer_["error"].asString());
  outcome_.restored += ok;
  if (ok) edits_.push_back({cookie, {}, {}});
  trashed_.erase(trashed_.begin() + static_cast<std::ptrdiff_t>(which));
  return true;
}

/// Each edit is in the project or in its trash, in one of both.
void KillSession::lookForFiles() {
  const std::string folder = folder_ / ("projects/" + project_);
  std::multiset<std::string> trashed;
  std::error_code none;
  for (const auto& each : fs::directory_iterator(folder + "/.trash", none)) {
    const std::string name = each.path().filename();
    trashed.insert(name.substr(0, name.find('~')));
  }
  for (const std::string& cookie : made_) {
    const std::size_t count = trashed.count(cookie) + fs::exists(folder + "/" + cookie + ".otio");
    if (count != 1) complain(cookie + " is there " + std::to_string(count) + " times");
  }
}

void KillSession::look() {
  station_.reset();
  lookForFiles();
  const std::set<std::string> kept = namesBelow(folder_ / "projects");
  const std::set<std::string> left = namesBelow(folder_ / "state");
  for (const std::string& name : saved_) {
    if (!kept.count(name)) complain("saved and nowhere: " + name);
  }
  outcome_.saved = static_cast<int>(saved_.size());
  for (const Known& edit : edits_) {
    if (edit.unsaved.empty() || killed_ - edit.changed < 1s) continue;
    ++outcome_.unsaved;
    if (!left.count(edit.unsaved) && !kept.count(edit.unsaved)) {
      complain("not saved, a second old, and nowhere: " + edit.unsaved);
    }
  }
}

}  // namespace korvel
