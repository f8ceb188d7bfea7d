#include "app/program/StationProgram.h"

#include <unistd.h>

#include <chrono>
#include <clocale>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <thread>
#include <utility>

#include "app/commands/Commands.h"
#include "app/program/Console.h"
#include "app/program/LineReader.h"
#include "host/base/Config.h"
#include "host/base/Log.h"
#include "host/project/iPermissionsManager.h"
#include "station/Trash.h"
#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/HostOS.h"
#include "station/project/ProjectFolder.h"
#include "station/project/Projects.h"
#include "station/project/Rooms.h"
#include "station/watch/Presence.h"

namespace korvel {

namespace {

constexpr int kStartFailed = 2;

/// In the environment of a process whose options a person answered in the window: a person who
/// answered wrongly is asked again.
constexpr const char* kAnswered = "KV_STATION_ANSWERED";

/// Tab and `wait` give the host thread so long to answer.
constexpr auto kPatience = std::chrono::seconds(2);

/// Saving before the end may take so long: a share can be slow.
constexpr auto kSavingPatience = std::chrono::seconds(600);

/// Asks the host thread a question; `otherwise` when it does not answer in time. The answer is
/// shared: a late one must still have a place.
template <typename Answer>
Answer ask(HostThread& hostThread, Waiter& waiter, std::function<Answer()> question,
           Answer otherwise, std::chrono::seconds patience = kPatience) {
  struct Pending {
    bool isDone = false;
    Answer answer;
  };
  const auto pending = std::make_shared<Pending>();
  hostThread.post([pending, &waiter, question = std::move(question)] {
    Answer answer = question();
    waiter.change([&] {
      pending->answer = std::move(answer);
      pending->isDone = true;
    });
  });
  const auto isDone = [&pending] { return pending->isDone; };
  return waiter.await(Waiter::Clock::now() + patience, isDone) ? pending->answer : otherwise;
}

/// The names and cookies of all projects.
std::vector<std::string> projectNames(const Projects& projects) {
  std::vector<std::string> words;
  const auto take = [&words](const Cookie& project, const Result<ProjectRecord>& record) {
    if (record) words.push_back(record->name);
    words.push_back(project.asString().str());
  };
  // Without the directory there is nothing to complete.
  static_cast<void>(projects.records().forEach(take));
  return words;
}

std::vector<std::string> roomNames(const Rooms& rooms) {
  std::vector<std::string> names;
  if (const auto listed = rooms.list()) {
    for (const RoomInfo& room : *listed) names.push_back(room.name);
  }
  return names;
}

/// What colleagues can be asked for.
std::vector<std::string> askables(Station& station) {
  std::vector<std::string> words = projectNames(station.projects());
  for (const std::string& room : roomNames(station.rooms())) words.push_back(room);
  for (const NamedObject& each : station.projects().objects()) {
    const char kind = each.cookie.getType();
    if (kind == CookieTypeEdit || kind == CookieTypeShot) words.push_back(each.name);
  }
  return words;
}

/// The users to whom messages can be sent: those of the user list and those who are here; and
/// everybody.
std::vector<std::string> userNames(const Presence& presence) {
  std::vector<std::string> words{"<All>"};
  for (const std::string& host : presence.hosts()) words.push_back(host);
  auto* const permissions = iPermissionsManager::instance();
  if (!permissions) return words;
  for (const auto& user : permissions->getUserList()) words.push_back(utf8Text(user));
  return words;
}

/// Who may have done something, and to what.
std::vector<std::string> doersAndEdits(Station& station) {
  std::vector<std::string> words = userNames(station.presence());
  std::erase(words, "<All>");
  for (const NamedObject& each : station.projects().objects()) words.push_back(each.name);
  return words;
}

/// The file of the console's history, in a folder that is made if missing; empty without a home
/// folder.
std::string consoleHistory() {
  const std::string folder = stateFolder();
  std::error_code problem;
  if (folder.empty()) return {};
  std::filesystem::create_directories(folder, problem);
  return problem ? std::string() : folder + "/console-history";
}

}  // namespace

StationProgram::StationProgram(Options options, WindowMaker makeWindow)
    : options_(std::move(options)),
      text_(options_.events == "-" ? stderr : stdout, stderr),
      file_([this](const std::string& problem) { text_.problem(problem); }),
      audit_([this](const std::string& problem) { text_.problem(problem); }),
      history_(waiter_),
      makeWindow_(std::move(makeWindow)) {}

StationProgram::~StationProgram() {
  station_.reset();
  flushLog();
  installEvents(nullptr);
  teller_.reset();
  setDiagnosticWriter(nullptr);
}

int StationProgram::run() {
  // Before any other thread is started: threads inherit the blocked signals.
  const Signals signals(
      [this] {
        exitType_ = Shutdown::eSignalledExit;
        waiter_.end();
        if (iStationWindow* const asking = asking_) asking->hostEnded();
      },
      [this] { return takeInterrupt(); });
  if (options_.station.projectsDirectory.empty() && !askForStart({})) return status_;
  if (auto prepared = prepare(); !prepared) {
    startProblem_ = prepared.error().message;
    fail(prepared.error());
  } else if (window_) {
    runBesideWindow();
  } else {
    runStation();
  }
  askAfterFailure();
  return status_;
}

/// What was remembered may be gone, as a share that is not mounted, and somebody who started this
/// from a menu reads no console.
void StationProgram::askAfterFailure() {
  const auto given = options_.given.find("projects");
  const bool isAnswer = ::getenv(kAnswered) != nullptr;
  const bool isTyped =
      !isAnswer && (given == options_.given.end() || given->second.back().where.starts_with("--"));
  if (startProblem_.empty() || !window_ || isTyped || !options_.script.empty()) return;
  isToStartAgain_ = askForStart(startProblem_);
}

/// An interrupt at the prompt clears the line; one while a command runs ends the program.
bool StationProgram::takeInterrupt() {
  TerminalReader* const terminal = terminal_;
  return terminal && terminal->interrupt();
}

void StationProgram::fail(const Error& problem) {
  text_.problem("kv-station: " + problem.message);
  status_ = kStartFailed;
}

Result<void> StationProgram::start() {
  const ActivityScope activity("the start of the station");
  return station_->start();
}

void StationProgram::runStation() {
  if (auto started = start(); !started) {
    startProblem_ = started.error().message;
    return fail(started.error());
  }
  useStation();
  const ActivityScope activity("the end of the station");
  station_->stop(exitType_);
  events_.emit("closed", {});
}

void StationProgram::runBesideWindow() {
  // Qt wants the window in the main thread, so the host thread is a new one.
  std::thread host([this] {
    runStation();
    window_->hostEnded();
  });
  window_->run({*station_, commands_, [this] { waiter_.end(); }, options_});
  host.join();
}

/// Whether the station is to be started now; where it is not, because of an error or since the
/// person changed their mind, the status says which.
bool StationProgram::askForStart(const std::string& problem) {
  if (auto opened = openWindow(); !opened) {
    fail(opened.error());
    return false;
  }
  asking_ = window_.get();
  const bool isWanted = window_->askForStart(options_, problem);
  asking_ = nullptr;
  return isWanted;
}

Result<void> StationProgram::openWindow() {
  if (window_) return {};
  if (!makeWindow_) {
    return Error{ErrorCode::eUsage,
                 "--gui: this build has no window; leave the option out to use the terminal.",
                 {}};
  }
  auto made = makeWindow_();
  if (!made) return made.error();
  window_ = std::move(*made);
  events_.addSink(window_->eventSink());
  return {};
}

Result<void> StationProgram::prepare() {
  installSettings(options_.station);
  setDiagnosticWriter([this](const std::string& text) {
    text_.answer(text.ends_with('\n') ? text.substr(0, text.size() - 1) : text);
  });
  // First of all, so that it can show what goes wrong.
  if (options_.hasWindow) {
    if (auto opened = openWindow(); !opened) return opened;
  }
  if (!options_.events.empty()) {
    if (auto opened = file_.open(options_.events); !opened) return opened;
    events_.addSink(file_);
  }
  if (!options_.audit.empty()) {
    if (auto opened = audit_.open(options_.audit); !opened) return opened;
    events_.addSink(audit_);
  }
  // Without commands there is no "wait", and nobody asks for what has happened.
  if (readsCommands()) events_.addSink(history_);
  events_.addSink(text_);
  installEvents(&events_);
  addCommands(commands_,
              {waiter_, history_, [this](const std::string& name) { return cookieOf(name); },
               [this](Leaving leaving) { return prepareToEnd(leaving); }});
  if (auto opened = openInput(); !opened) return opened;
  station_ = std::make_unique<Station>();
  // A person who watches a script is spared them, too; a script's pipe or file has them.
  const bool isWatched = terminal_ || ::isatty(STDERR_FILENO) == 1;
  if (isWatched && !options_.isVerbose) text_.hideMessageBlocks();
  if (terminal_) tellPerson();
  return {};
}

void StationProgram::tellPerson() {
  teller_ = std::make_unique<ChangeTeller>(*station_, text_);
  events_.addSink(*teller_);
}

bool StationProgram::readsCommands() const {
  return !options_.hasWindow || !options_.script.empty();
}

Result<void> StationProgram::openInput() {
  if (!readsCommands()) return {};
  const bool isTerminal = ::isatty(STDIN_FILENO) == 1 && ::isatty(STDOUT_FILENO) == 1;
  if (options_.script.empty() && isTerminal && options_.events != "-") {
    auto terminal = std::make_unique<TerminalReader>(
        waiter_, text_,
        TerminalReader::Completing{
            commands_, [this](const std::string& argument) { return candidatesFor(argument); }},
        consoleHistory());
    terminal_ = terminal.get();
    reader_ = std::move(terminal);
    return {};
  }
  auto script = std::make_unique<ScriptReader>(waiter_);
  auto opened = script->open(options_.script.empty() ? "-" : options_.script);
  reader_ = std::move(script);
  return opened;
}

void StationProgram::useStation() {
  const StationSettings& with = settings();
  events_.emit("ready", {textMember("user", with.user),
                         textMember("host", with.host),
                         {"machine", with.machine},
                         {"port", stationPort()},
                         textMember("plugin", station_->pluginName()),
                         textMember("plugin_version", station_->pluginVersion()),
                         {"network_mode", with.networkMode}});
  if (reader_ && reader_->isInteractive()) {
    text_.answer(with.user + " on " + with.host + " (machine " + std::to_string(with.machine) +
                 "), " + station_->pluginName() + " " + station_->pluginVersion() + ", port " +
                 std::to_string(stationPort()) + ". \"help\" lists the commands; \"quit\" ends.");
  }
  tellOfNames();
  // The console waits for input on a thread of its own; the host thread must stay free for the
  // station.
  std::thread console([this] {
    status_ = runConsole();
    station_->hostThread().stop();
  });
  station_->hostThread().run();
  console.join();
}

/// Told on the console to a person only: the output of a script must not change.
void StationProgram::tellOfNames() {
  const std::string advice = Station::adviceOnNames();
  if (advice.empty()) return;
  if (reader_ && reader_->isInteractive()) {
    LogBoth("%s\n", advice);
  } else {
    Log("%s\n", advice);
  }
}

// A window stays open after the last command of a script; "quit" ends both.
int StationProgram::runConsole() {
  int status = 0;
  if (reader_) {
    Console console({*station_, commands_, events_, text_, waiter_, options_.keepsGoing});
    status = console.run(*reader_);
  }
  if (window_ && (status == 0 || options_.keepsGoing)) {
    waiter_.await(Waiter::Clock::time_point::max(), [] { return false; });
  }
  return status;
}

// The wait has a limit: a host thread that hangs must not keep the program from ending. Unsaved
// changes are then in the recovery folder of this machine.
Result<void> StationProgram::prepareToEnd(Leaving leaving) {
  const auto patience = leaving == Leaving::eSave ? kSavingPatience : kPatience;
  return ask<Result<void>>(
      station_->hostThread(), waiter_,
      [this, leaving] { return station_->unsaved().prepareToLeave(leaving); }, {}, patience);
}

std::string StationProgram::cookieOf(const std::string& name) {
  return ask<std::string>(station_->hostThread(), waiter_,
                          [this, name]() -> std::string {
                            const auto cookie = station_->projects().resolve(name, {});
                            return cookie ? cookie->asString().str() : std::string();
                          },
                          {});
}

std::vector<std::string> StationProgram::candidatesFor(const std::string& argument) {
  return ask<std::vector<std::string>>(
      station_->hostThread(), waiter_,
      [this, argument] {
        if (argument == "P") return projectNames(station_->projects());
        if (argument == "USER") return userNames(station_->presence());
        if (argument == "USER|E") return doersAndEdits(*station_);
        if (argument == "R") return roomNames(station_->rooms());
        if (argument == "OBJECT") return askables(*station_);
        if (argument == "DELETED") return station_->trash().namesAndCookies();
        std::vector<std::string> words;
        for (const NamedObject& each : station_->projects().objects()) {
          const char kind = each.cookie.getType();
          if (argument == "F" && kind != CookieTypeFilter) continue;
          if (argument == "MEDIA" && kind != CookieTypeMaterial) continue;
          words.push_back(each.name);
          words.push_back(each.cookie.asString().str());
        }
        return words;
      },
      {});
}

std::vector<std::string> StationProgram::wordsToStartAgain() const {
  if (!isToStartAgain_) return {};
  const StationSettings& with = options_.station;
  return {"--projects", with.projectsDirectory, "--user", with.user, "--host", with.host};
}

namespace {

/// Begins anew in this process's place: a process holds one station, once.
int startAgain(int argc, const char* const* argv, const std::vector<std::string>& more) {
  std::vector<char*> words;
  for (int i = 0; i < argc; ++i) words.push_back(const_cast<char*>(argv[i]));
  for (const std::string& word : more) words.push_back(const_cast<char*>(word.c_str()));
  words.push_back(nullptr);
  ::setenv(kAnswered, "1", 1);
  ::execv("/proc/self/exe", words.data());
  std::perror("kv-station");
  return kStartFailed;
}

}  // namespace

int runKvStation(int argc, const char* const* argv, WindowMaker makeWindow) {
  std::setlocale(LC_CTYPE, "");  // letters at the terminal; numbers keep their form
  auto read = readOptions(argc, argv);
  if (const ProgramEnd* end = std::get_if<ProgramEnd>(&read)) {
    std::fprintf(end->status == 0 ? stdout : stderr, "%s\n", end->text.c_str());
    return end->status;
  }
  std::vector<std::string> again;
  int status = 0;
  {
    StationProgram program(std::get<Options>(std::move(read)), std::move(makeWindow));
    status = program.run();
    again = program.wordsToStartAgain();
  }
  return again.empty() ? status : startAgain(argc, argv, again);
}

}  // namespace korvel
