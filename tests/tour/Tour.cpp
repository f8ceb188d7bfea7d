#include "tests/tour/Tour.h"

#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <utility>

#include "station/base/Json.h"
#include "tests/tour/ExampleEdit.h"
#include "tests/tour/TourTable.h"

namespace korvel {

namespace {

constexpr StationProcess::Seconds kArrival{10};

/// With windows: between two steps, and the size of each.
constexpr std::chrono::milliseconds kPause{1500};
constexpr int kWindowWidth = 640;
constexpr int kWindowHeight = 720;

bool onTerminal() {
  static const bool terminal = ::isatty(STDOUT_FILENO) == 1;
  return terminal;
}

void print(const std::string& who, const char* colour, const std::string& text) {
  const char* const begin = onTerminal() ? colour : "";
  const char* const end = onTerminal() ? "\x1b[0m" : "";
  std::printf("  %-6s %s%s%s\n", who.c_str(), begin, text.c_str(), end);
  std::fflush(stdout);
}

/// A reply as the console would show it, under the command.
void printReply(const JsonValue& result) {
  std::istringstream lines(renderForPeople(result));
  for (std::string line; std::getline(lines, line);) print("", "", line);
}

/// A cookie as people compare it: its kind letter and first digits.
std::string shortCookie(const std::string& cookie) {
  return cookie.size() > 9 ? cookie.substr(0, 9) : cookie;
}

std::string describeMessage(const JsonValue& event) {
  std::string text = event["type_name"].asString();
  const std::string& object = event["cookie"].asString();
  if (!object.empty()) text += " " + shortCookie(object);
  const std::string& data = event["data"].asString();
  if (!data.empty()) text += " \"" + data + "\"";
  return text;
}

std::string describeChange(const JsonValue& event) {
  const std::string object = shortCookie(event["cookie"].asString());
  return event["what"].asString() + (object.empty() ? "" : " " + object) + " " +
         event["how"].asString();
}

}  // namespace

Tour::Tour(std::string station, std::string folder, Windows windows)
    : program_(std::move(station)),
      folder_(std::move(folder)),
      projects_(folder_ + "/projects"),
      windows_(windows),
      port_(freeUdpPort()) {}

bool Tour::play() {
  if (startStations()) {
    for (const auto part : {&Tour::playProject, &Tour::playEdit, &Tour::playBin,
                            &Tour::playOwnership, &Tour::playMessages, &Tour::playLock}) {
      if (isWindowClosed()) return endEarly();
      (this->*part)();
    }
  }
  if (isWindowClosed()) return endEarly();
  TourTable table;
  for (const std::string& name : names_) table.addStation(name, *stations_[name]);
  const bool ended = stopStations();
  std::fputs(table.text().c_str(), stdout);
  for (const std::string& lost : table.missing()) fail(lost);
  for (const std::string& failure : failures_) std::printf("FAILED: %s\n", failure.c_str());
  const bool whole = failures_.empty() && ended;
  std::puts(whole ? "\nEverything that was sent arrived, once, at every other station."
                  : "\nNot everything arrived; see above.");
  return whole;
}

bool Tour::startStations() {
  std::filesystem::create_directory(projects_);
  std::printf("Three stations share %s on UDP port %d.\n", projects_.c_str(), port_);
  int number = 0;
  std::ofstream userList(projects_ + "/userlist.dat");
  for (const std::string& name : names_) userList << name << '\n';
  userList.close();
  for (const std::string& name : names_) {
    ++number;
    StationProcess::Options options;
    options.program = program_;
    options.projects = projects_;
    options.user = name;
    options.host = name;
    options.machine = number;
    options.port = port_;
    options.more = windowOptions(number);
    stations_[name] = std::make_unique<StationProcess>(std::move(options));
  }
  for (const std::string& name : names_) {
    if (!stations_[name]->waitUntilReady()) {
      fail(name + "'s station did not start: " + stations_[name]->errorText());
      return false;
    }
    print(name, "", "is up, machine " + std::to_string(stations_[name]->options().machine));
  }
  return true;
}

void Tour::playProject() {
  heading("A project is made, and three stations open it");
  ask("ANNA", "project create \"Harbour\"");
  ask("ANNA", "project enter Harbour");
  act("BEN", "project enter Harbour", {{"ANNA", "received", {{"type_name", "RoomChange"}}}});
  act("CARLA", "project enter Harbour",
      {{"ANNA", "received", {{"type_name", "RoomChange"}}},
       {"BEN", "received", {{"type_name", "RoomChange"}}}});
}

void Tour::playEdit() {
  heading("An edit imported on one is listed on the others");
  const std::string file = folder_ + "/harbour.otio";
  std::ofstream(file) << kExampleEdit;
  expectOnOthers("ANNA", "edit import \"" + file + "\"", "changed",
                 {{"what", "edit"}, {"how", "created"}});
  ask("CARLA", "edit list");

  heading("A trim shows where the edit is open, before it is saved");
  ask("BEN", "edit open \"Harbour at dawn\"");
  ask("ANNA", "edit open \"Harbour at dawn\"");
  act("ANNA", "edit trim \"Harbour at dawn\" \"Crane\" 12 60",
      {{"BEN", "changed", {{"what", "edit"}, {"how", "modified"}, {"origin", "remote"}}},
       {"CARLA", "received", {{"type_name", "EditModification"}}}});
  ask("BEN", "edit show \"Harbour at dawn\"");
  act("ANNA", "edit save \"Harbour at dawn\"",
      {{"BEN", "changed", {{"what", "edit"}, {"how", "reloaded"}}},
       {"CARLA", "received", {{"type_name", "EditSaved"}}}});
}

void Tour::playBin() {
  heading("A bin rewritten on one reloads on the rest");
  const StationProcess::Keys arrived{{"what", "bin"}};
  expectOnOthers("CARLA", "bin create \"Selects\"", "changed", arrived);
  expectOnOthers("CARLA", "bin add Selects \"Harbour at dawn\"", "changed", arrived);
  ask("ANNA", "bin show Selects");
}

void Tour::playOwnership() {
  heading("An ownership given away takes effect everywhere");
  ask("ANNA", "user add BEN");
  expectOnOthers("ANNA", "edit give \"Harbour at dawn\" BEN", "changed", {{"what", "permissions"}});
  ask("BEN", "edit may \"Harbour at dawn\"");
  expectRefusal("ANNA", "edit trim \"Harbour at dawn\" \"Crane\" 0 24", "BEN");
}

void Tour::playMessages() {
  heading("A message between users, and a command for one machine");
  act("BEN", "say ANNA \"The crane shot is yours again in an hour.\"",
      {{"ANNA", "notification", {}}, {"CARLA", "received", {{"type_name", "UserMessage"}}}});
  act("ANNA", "request 3 identify",
      {{"CARLA", "command", {{"name", "identify"}}},
       {"BEN", "received", {{"type_name", "ActionRequest"}}}});
}

void Tour::playLock() {
  heading("A private project is held by one");
  ask("ANNA", "project create \"Trailer\" --private");
  ask("ANNA", "project enter Trailer");
  expectRefusal("BEN", "project enter Trailer", "ANNA");
  ask("BEN", "project list");
  ask("ANNA", "project leave");
  ask("BEN", "project enter Trailer");
  ask("BEN", "project leave");
}

// Three side by side on a screen of the usual width.
std::vector<std::string> Tour::windowOptions(int number) const {
  if (windows_ == Windows::eNone) return {};
  const std::string left = std::to_string((number - 1) * kWindowWidth);
  return {"--gui", "--set",
          "window=" + std::to_string(kWindowWidth - 10) + "x" + std::to_string(kWindowHeight) +
              "+" + left + "+40"};
}

void Tour::waitForEyes() {
  if (windows_ == Windows::eNone) return;
  const auto until = std::chrono::steady_clock::now() + kPause;
  while (!isWindowClosed() && std::chrono::steady_clock::now() < until) ::usleep(50'000);
}

/// With windows, a station whose window was closed has ended.
bool Tour::isWindowClosed() {
  if (windows_ == Windows::eNone) return false;
  for (const auto& [name, station] : stations_) {
    if (station->waitForExit(StationProcess::Seconds(0))) return true;
  }
  return false;
}

bool Tour::endEarly() {
  std::puts("\nA window was closed, so the tour ends here.");
  for (auto& [name, station] : stations_) station->quit();
  return true;
}

bool Tour::stopStations() {
  bool clean = true;
  for (auto& [name, station] : stations_) {
    const std::optional<int> status = station->quit();
    if (status == 0) continue;
    clean = false;
    fail(name + "'s station did not end cleanly: " +
         (status ? "exit status " + std::to_string(*status) : "it still ran after 20 s"));
  }
  return clean;
}

JsonValue Tour::type(const std::string& station, const std::string& line) {
  std::printf("\n");
  print(station, "\x1b[1m", "$ " + line);
  JsonValue reply = stations_[station]->command(line);
  if (reply.isNull()) fail(station + " gave no answer to: " + line);
  return reply;
}

void Tour::ask(const std::string& station, const std::string& line) { act(station, line, {}); }

void Tour::act(const std::string& station, const std::string& line,
               const std::vector<Expectation>& expectations) {
  if (isWindowClosed()) return;
  const JsonValue reply = type(station, line);
  if (!reply["ok"].asBool()) fail(station + ": " + line + ": " + reply["error"].asString());
  printReply(reply["result"]);
  for (const Expectation& expected : expectations) {
    if (stations_[expected.station]->waitFor(expected.event, expected.keys, kArrival)) continue;
    fail("after \"" + line + "\" " + expected.station + " saw no event " + expected.event);
  }
  showNews();
  waitForEyes();
}

void Tour::expectOnOthers(const std::string& station, const std::string& line,
                          const std::string& event, const StationProcess::Keys& keys) {
  std::vector<Expectation> expectations;
  for (const std::string& name : names_) {
    if (name != station) expectations.push_back({name, event, keys});
  }
  act(station, line, expectations);
}

void Tour::expectRefusal(const std::string& station, const std::string& line,
                         const std::string& text) {
  if (isWindowClosed()) return;
  const JsonValue reply = type(station, line);
  const std::string& error = reply["error"].asString();
  print(station, "\x1b[33m", "refused: " + error);
  if (reply["ok"].asBool() || error.find(text) == std::string::npos)
    fail(station + ": " + line + ": was to be refused, naming " + text);
  showNews();
  waitForEyes();
}

/// Waits until everything sent has arrived and was dealt with, so that news stand under the command
/// that caused them. What never arrives is told at the end.
void Tour::settle() {
  const auto deadline = std::chrono::steady_clock::now() + kArrival;
  for (std::size_t sent = 0, before = 1; sent != before;) {
    before = sent;
    TourTable table;
    do {
      if (isWindowClosed() || std::chrono::steady_clock::now() > deadline) return;
      ::usleep(1000);
      table = TourTable();
      for (const std::string& name : names_) table.addStation(name, *stations_[name]);
    } while (!table.missing().empty());
    sent = 0;
    // A command's reply comes after all that its station did before.
    for (const std::string& name : names_) stations_[name]->command("whoami");
    for (const std::string& name : names_) sent += stations_[name]->events("sent").size();
  }
}

void Tour::showNews() {
  settle();
  for (const std::string& name : names_) {
    const std::vector<JsonValue> all = stations_[name]->events();
    for (std::size_t& index = shown_[name]; index < all.size(); ++index)
      showEvent(name, all[index]);
  }
}

void Tour::showEvent(const std::string& station, const JsonValue& event) {
  const std::string& name = event["event"].asString();
  if (name == "sent") print(station, "\x1b[36m", "-> " + describeMessage(event));
  if (name == "received") print(station, "\x1b[32m", "<- " + describeMessage(event));
  if (name == "changed" && event["origin"].asString() == "remote")
    print(station, "\x1b[32m", "   " + describeChange(event));
  if (name == "notification")
    print(station, "\x1b[35m", "   notification: " + event["text"].asString());
  if (name == "command") print(station, "\x1b[35m", "   ran " + event["name"].asString());
  if (name == "network") fail(station + ": " + event["problem"].asString());
}

void Tour::heading(const std::string& text) {
  std::printf("\n%s%s%s\n", onTerminal() ? "\x1b[1;4m" : "== ", text.c_str(),
              onTerminal() ? "\x1b[0m" : " ==");
}

void Tour::fail(const std::string& text) {
  failures_.push_back(text);
  print("", "\x1b[31m", "!! " + text);
}

}  // namespace korvel
