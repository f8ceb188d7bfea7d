#include "tests/fault/FaultSession.h"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>

#include "station/base/Json.h"
#include "station/edit/OtioDocument.h"

namespace korvel {

namespace {

namespace fs = std::filesystem;

constexpr auto kLimit = StationProcess::Seconds(60);
constexpr auto kPause = StationProcess::Seconds(0.01);
constexpr int kKilled = 128 + SIGKILL;

const std::vector<std::string>& session() {
  static const std::vector<std::string> lines{
      "project create Film",
      "project create Mine --private",
      "project list",
      "project enter Mine",
      "project enter Film",
      "edit import FOLDER/cut.otio",
      "edit open cut",
      "edit trim cut 0/0 0 2",
      "edit save cut",
      "edit create Reel",
      "edit rename Reel Roll",
      "edit save Roll",
      "log create Shot",
      "edit delete Shot",
      "trash list",
      "trash restore Shot",
      "edit delete Shot",
      "log create Other",
      "edit delete Other",
      "trash empty",
      "bin create Dailies",
      "bin add Dailies Roll cut",
      "bin remove Dailies cut",
      "rack create Shelf",
      "rack add Shelf Dailies",
      "filter create Day day",
      "filter change Day night",
      "media add FOLDER/cut.otio",
      "room create Sound",
      "room create Colour",
      "room enter Sound",
      "room list",
      "room enter Colour",
      "room leave",
      "edit give Roll BEN --force",
      "edit export cut FOLDER/out.otio",
      "users",
      "active",
  };
  return lines;
}

/// How a message may name what the operating system said.
const std::vector<std::string>& wordsFor(int number) {
  static const std::map<int, std::vector<std::string>> words{
      {ENOSPC, {"No space left on device", "full"}},
      {EACCES,
       {"Permission denied", "rights", "may not be opened", "may not use it", "held by", "using it",
        "is changing this"}},
      {EIO, {"Input/output error"}},
      {EINTR, {"Interrupted system call"}},
      {ESTALE, {"Stale file handle", "the share has lost it", "lost the folder"}}};
  return words.at(number);
}

bool namesOneOf(const std::string& text, const std::vector<std::string>& words) {
  return std::ranges::any_of(words, [&](const auto& word) { return text.find(word) != text.npos; });
}

std::string bytesOf(const std::string& path) {
  std::ifstream file(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
}

bool isCookie(const std::string& text) {
  return text.size() > 8 && text.find_first_not_of("0123456789abcdef", 1) == text.npos;
}

/// Whether a file is one that a station's write left behind when it could not end it.
bool isTemporary(const std::string& name) { return name.front() == '.'; }

JsonValue answer(StationProcess& station, const std::string& line) {
  station.type(line);
  const auto deadline = std::chrono::steady_clock::now() + kLimit;
  while (std::chrono::steady_clock::now() < deadline) {
    if (auto reply = station.waitFor("reply", {}, kPause)) return *reply;
    if (station.waitForExit(StationProcess::Seconds(0))) break;
  }
  const auto reply = station.waitFor("reply", {}, StationProcess::Seconds(0));
  return reply ? *reply : JsonValue();
}

std::string withFolder(std::string line, const std::string& folder) {
  const std::size_t at = line.find("FOLDER");
  return at == line.npos ? line : line.replace(at, 6, folder);
}

/// The sample edit under the name by which the session calls it.
void copySample(const std::string& path) {
  std::string text = bytesOf(KV_SAMPLES "/simple_cut.otio");
  const std::string name = "Figure 1 - Simple Cut List";
  text.replace(text.find(name), name.size(), "cut");
  std::ofstream(path, std::ios::binary) << text;
}

}  // namespace

FaultSession::FaultSession() {
  const FaultOutcome plain = run({});
  expected_ = state_;
  operations_ = plain.operations;
  if (plain.problems.empty()) return;
  std::fprintf(stderr, "without a fault: %s\n", plain.problems.front().c_str());
  std::abort();
}

FaultSession::~FaultSession() = default;

FaultOutcome FaultSession::run(const Fault& fault) {
  outcome_ = {};
  fault_ = fault;
  folder_ = std::make_unique<ScratchFolder>("/dev/shm");
  ::setenv("XDG_STATE_HOME", stateFolder_.path().c_str(), 1);  // not where faults are met
  fs::create_directory(*folder_ / "projects");
  copySample(*folder_ / "cut.otio");
  std::memset(control_.operation, 0, sizeof control_.operation);
  std::memset(control_.path, 0, sizeof control_.path);
  control_.count = 0;
  control_.isMet = false;
  control_.action = fault.action;
  control_.number = fault.number;
  fault.operation.copy(control_.operation, sizeof control_.operation - 1);
  fault.path.copy(control_.path, sizeof control_.path - 1);
  control_.chosen = fault.at;
  lead();
  outcome_.isMet = control_.isMet;
  outcome_.operations = control_.count;
  if (outcome_.isMet) outcome_.what = control_.what;
  station_.reset();
  checkFiles();
  lookAgain();
  return outcome_;
}

std::unique_ptr<StationProcess> FaultSession::startStation() const {
  Station::Options options;
  options.program = KV_STATION;
  options.projects = *folder_ / "projects";
  options.user = options.host = "ANNA";
  options.machine = 11;
  options.port = port_;
  return std::make_unique<Station>(std::move(options));
}

/// Starts the station that the fault meets; again when the start itself failed.
bool FaultSession::startFaulty() {
  ::setenv(kFaultFolderVariable, folder_->path().c_str(), 1);
  ::setenv("LD_PRELOAD", KV_FAILING_FILES, 1);
  for (int tries = 0; tries < 2; ++tries) {
    station_ = startStation();
    while (!station_->waitUntilReady(kPause) && !station_->waitForExit(Station::Seconds(0))) {
    }
    if (!station_->waitForExit(Station::Seconds(0))) break;
    if (*station_->waitForExit() == kKilled && control_.isMet) break;
    checkComplaint("start", station_->errorText());
  }
  ::unsetenv("LD_PRELOAD");
  if (control_.isMet) outcome_.command = "start";
  return !station_->waitForExit(Station::Seconds(0));
}

void FaultSession::lead() {
  if (!startFaulty()) {
    if (*station_->waitForExit() != kKilled)
      complain("it does not start: " + station_->errorText());
    return;
  }
  for (const std::string& line : session()) {
    if (!give(withFolder(line, folder_->path()))) return;
  }
  JsonValue shown = answer(*station_, "state");
  if (control_.isMet && outcome_.command.empty()) {
    outcome_.command = "state";
    shown = answer(*station_, "state");
  }
  state_ = normal(whatIsShown(shown["result"]));
  if (!give("project leave") || !give("project enter Mine")) return;
  const auto status = station_->quit();
  if (control_.isMet && outcome_.command.empty()) outcome_.command = "quit";
  if (status == kKilled && control_.isMet) return;
  if (status != 0) complain("quit: " + (status ? std::to_string(*status) : "it hangs"));
  for (const JsonValue& event : station_->events("log")) {
    if (event["to"].asString() == "console") outcome_.told.push_back(event["text"].asString());
  }
}

/// A state without how often each station has asked the share.
JsonValue FaultSession::whatIsShown(JsonValue state) {
  state.remove("watch");
  return state;
}

/// Gives a command, and again if it failed; false when the station is gone.
bool FaultSession::give(const std::string& line) {
  const bool wasMet = control_.isMet;
  JsonValue reply = answer(*station_, line);
  const bool isMetNow = !wasMet && control_.isMet;
  if (isMetNow) outcome_.command = line;
  if (reply.isObject() && !reply["ok"].asBool()) {
    checkComplaint(line, reply["error"].asString());
    reply = answer(*station_, line);
    if (reply.isObject() && !reply["ok"].asBool()) {
      complain(line + ": fails again: " + reply["error"].asString());
    }
  }
  if (reply.isObject()) return true;
  const auto status = station_->waitForExit(Station::Seconds(0));
  if (!status) complain(line + ": no answer");
  if (status && (*status != kKilled || !control_.isMet)) {
    complain(line + ": ended with " + std::to_string(*status) + ": " + station_->errorText());
  }
  return false;
}

/// A message must name the cause, and what it is about.
void FaultSession::checkComplaint(const std::string& line, const std::string& said) {
  outcome_.said = said;
  if (!control_.isMet || fault_.action != FaultAction::eFail) {
    return complain(line + ": fails without a cause: " + said);
  }
  if (!namesOneOf(said, wordsFor(fault_.number))) {
    complain(line + ": does not name " + std::strerror(fault_.number) + ": " + said);
  }
  const std::string object = line.substr(line.rfind(' ') + 1);
  if (!namesOneOf(said,
                  {folder_->path(), "\"" + object + "\"", "\"cut\"", "\"Roll\"", "\"Dailies\""})) {
    complain(line + ": does not name its object: " + said);
  }
}

void FaultSession::checkFiles() {
  for (const auto& entry : fs::recursive_directory_iterator(folder_->path())) {
    if (entry.is_directory()) continue;
    const std::string name = entry.path().filename();
    const std::string ending = entry.path().extension();
    if (isTemporary(name)) outcome_.leftOver.push_back(name.substr(0, 4) + ending);
    if (!entry.is_regular_file() || isTemporary(name)) continue;
    const std::string bytes = bytesOf(entry.path());
    if (ending == ".json" && !parseJson(bytes)) complain(name + " is no whole file: " + bytes);
    if (ending == ".otio" && !OtioDocument::parse(bytes)) complain(name + " is no whole edit");
  }
}

/// A station that meets no fault sees what the other left, and works with it.
void FaultSession::lookAgain() {
  const auto next = startStation();
  if (!next->waitUntilReady(kLimit)) return complain("no other starts: " + next->errorText());
  const JsonValue projects = mustWork(*next, "project list");
  for (const JsonValue& project : projects.elements()) {
    if (!project["problem"].asString().empty()) complain(writeJson(project));
    if (project["lock"].asString() == "held") complain("a lock stays: " + writeJson(project));
    enterAndWork(*next, project);
  }
  if (next->quit() != 0) complain("the other does not end: " + next->errorText());
  for (const JsonValue& event : next->events("log")) {
    const std::string& text = event["text"].asString();
    if (text.find("left as it is") != text.npos) complain("the other cannot read: " + text);
  }
}

void FaultSession::enterAndWork(Station& station, const JsonValue& project) {
  mustWork(station, "project enter " + project["cookie"].asString());
  const JsonValue state = mustWork(station, "state");
  const bool isFilm = project["name"].asString() == "Film";
  const bool isWhole = fault_.action == FaultAction::eFail ||
                       fault_.action == FaultAction::eShort || fault_.action == FaultAction::eNone;
  const std::string seen = normal(whatIsShown(state));
  if (isFilm && isWhole && seen != state_) complain("the other sees " + seen + ", not " + state_);
  if (isFilm && isWhole && !expected_.empty() && state_ != expected_) {
    complain("it shows " + state_ + ", not " + expected_);
  }
  for (const JsonValue& edit : state["edits"].elements()) {
    mustWork(station, "edit show " + edit["cookie"].asString());
  }
  for (const JsonValue& room : state["rooms"].elements()) {
    mustWork(station, "room enter \"" + room["name"].asString() + "\"");
  }
  mustWork(station, "edit create Again");
  mustWork(station, "bin create Anew");
  mustWork(station, "bin add Anew Again");
  mustWork(station, "project leave");
}

JsonValue FaultSession::mustWork(Station& station, const std::string& line) {
  const JsonValue reply = answer(station, line);
  if (!reply["ok"].asBool()) complain("the other: " + line + ": " + writeJson(reply));
  return reply["result"];
}

/// A state as text, without what differs from one session, and one station, to the next.
std::string FaultSession::normal(const JsonValue& value) const {
  if (value.isString()) {
    const std::string& text = value.asString();
    const std::size_t at = text.find(folder_->path());
    if (at != text.npos) return "FOLDER" + text.substr(at + folder_->path().size());
    return isCookie(text) ? text.substr(0, 1) : text;
  }
  std::vector<std::string> parts;
  for (const JsonValue& element : value.elements()) parts.push_back(normal(element));
  for (const auto& [key, member] : value.members()) {
    if (key == "open" || key == "dirty" || key == "clips" || key == "steps") continue;
    parts.push_back(key + "=" + normal(member));
  }
  if (value.isArray()) std::ranges::sort(parts);
  if (!value.isArray() && !value.isObject()) return writeJson(value);
  std::string text = value.isArray() ? "[" : "{";
  for (const std::string& part : parts) text += part + " ";
  return text + (value.isArray() ? "]" : "}");
}

}  // namespace korvel
