#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>

#include "tests/share/SharedStations.h"

using namespace korvel;

namespace {

/// A library of the system's, one that this program runs with.
std::string systemLibrary() {
  std::ifstream maps("/proc/self/maps");
  for (std::string line; std::getline(maps, line);) {
    if (line.find("/libm.so") != line.npos) return line.substr(line.find('/'));
  }
  return {};
}

class LifecycleTest : public SharedStations {
 protected:
  /// Runs a station with a script on its standard input.
  ProgramRun runScript(const std::string& script, const std::vector<std::string>& more = {}) {
    std::vector<std::string> words{"--script", "-"};
    words.insert(words.end(), more.begin(), more.end());
    return runProgram(stationWords(words), script);
  }

  [[nodiscard]] std::string inProjects(const std::string& name) const {
    return folder_ / ("projects/" + name);
  }

  /// A start that must fail with one line on standard error that holds this.
  static void expectStartFails(const ProgramRun& run, const std::string& part) {
    EXPECT_EQ(run.status, 2) << run.errors;
    EXPECT_NE(run.errors.find(part), std::string::npos) << run.errors;
    EXPECT_EQ(run.errors.find('\n') + 1, run.errors.size()) << run.errors;
    EXPECT_EQ(run.output, "");
  }
};

TEST_F(LifecycleTest, ReadyTellsWhatTheStationIs) {
  StationProcess& anna = start("ANNA", 11, {"--network-mode", "off"});
  ASSERT_EQ(anna.events("ready").size(), 1u);
  const JsonValue ready = anna.events("ready")[0];
  EXPECT_EQ(ready["user"].asString(), "ANNA");
  EXPECT_EQ(ready["host"].asString(), "ANNA");
  EXPECT_EQ(ready["machine"].asLong(), 11);
  EXPECT_EQ(ready["port"].asLong(), port_);
  EXPECT_EQ(ready["plugin"].asString(), "Project Share");
  EXPECT_EQ(ready["plugin_version"].asString(), "14.5.0.0");
  EXPECT_FALSE(ready["network_mode"].asBool(true));
}

TEST_F(LifecycleTest, AStationIsPresentWhileItRuns) {
  StationProcess& anna = start("ANNA", 11);
  EXPECT_TRUE(std::filesystem::exists(inProjects("ANNA.cli")));
  EXPECT_EQ(run(anna, "active").asLong(), 1);
  StationProcess& ben = start("BEN", 12);
  EXPECT_EQ(run(anna, "active").asLong(), 2);
  EXPECT_EQ(ben.quit(), 0);
  EXPECT_EQ(run(anna, "active").asLong(), 1);
  EXPECT_EQ(anna.quit(), 0);
  EXPECT_FALSE(std::filesystem::exists(inProjects("ANNA.cli")));
}

TEST_F(LifecycleTest, EveryGentleEndReleasesProjectAndMarker) {
  enum class End { eQuit, eEndOfInput, eTerm, eInt, eHangUp, eTermWhileItWaits };
  for (const End end : {End::eQuit, End::eEndOfInput, End::eTerm, End::eInt, End::eHangUp,
                        End::eTermWhileItWaits}) {
    StationProcess& anna = start("ANNA", 11);
    if (end == End::eQuit) run(anna, "project create Secret --private");
    const std::string cookie = run(anna, "project enter Secret")["cookie"].asString();
    EXPECT_TRUE(std::filesystem::exists(inProjects(cookie + "/Lock")) ||
                run(anna, "project list").elements()[0]["occupied"].asBool());
    if (end == End::eTermWhileItWaits) anna.type("wait closed --timeout 1000");
    if (end == End::eQuit) anna.type("quit");
    if (end == End::eEndOfInput) anna.endInput();
    if (end == End::eTerm || end == End::eTermWhileItWaits) anna.signal(SIGTERM);
    if (end == End::eInt) anna.signal(SIGINT);
    if (end == End::eHangUp) anna.signal(SIGHUP);
    EXPECT_EQ(anna.waitForExit(), 0) << static_cast<int>(end) << anna.errorText();
    EXPECT_TRUE(anna.waitFor("closed")) << static_cast<int>(end);
    EXPECT_FALSE(std::filesystem::exists(inProjects("ANNA.cli"))) << static_cast<int>(end);
  }
  StationProcess& ben = start("BEN", 12);
  EXPECT_FALSE(run(ben, "project list").elements()[0]["occupied"].asBool());
  run(ben, "project enter Secret");
}

TEST_F(LifecycleTest, AWindowIsKeptAsItIsWhateverEndsIt) {
  ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
  const std::string settings = folder_ / "config/korvel/station-window.ini";
  ::setenv("XDG_CONFIG_HOME", (folder_ / "config").c_str(), 1);
  for (const bool isSignal : {true, false}) {
    std::filesystem::remove(settings);
    StationProcess::Options options;
    options.program = KV_STATION;
    options.projects = folder_ / "projects";
    options.user = options.host = "ANNA";
    options.port = freeUdpPort();
    options.more = {"--gui"};
    StationProcess anna(std::move(options));
    if (!anna.waitUntilReady()) {
      ASSERT_NE(anna.errorText().find("--gui: the window"), std::string::npos) << anna.errorText();
      GTEST_SKIP() << "this build has no window";
    }
    isSignal ? anna.signal(SIGTERM) : anna.type("quit");
    EXPECT_EQ(anna.waitForExit(), 0);
    std::ifstream kept(settings);
    const std::string text((std::istreambuf_iterator<char>(kept)), {});
    EXPECT_NE(text.find("geometry"), std::string::npos) << isSignal << text;
  }
}

TEST_F(LifecycleTest, WhatAKilledStationHeldCanBeTakenAtOnce) {
  StationProcess& anna = start("ANNA", 11);
  run(anna, "project create Secret --private");
  run(anna, "project enter Secret");
  StationProcess& ben = start("BEN", 12);
  EXPECT_NE(refusal(ben, "project enter Secret").find("ANNA"), std::string::npos);
  anna.kill9();
  run(ben, "project enter Secret");
}

TEST_F(LifecycleTest, AScriptEndsAtItsFirstFailureUnlessToldToGoOn) {
  const ProgramRun ends = runScript("whoami\nproject enter Nowhere\nproject create Film\n");
  EXPECT_EQ(ends.status, 1);
  EXPECT_NE(ends.errors.find("standard input:2: There is no project \"Nowhere\""),
            std::string::npos)
      << ends.errors;
  const ProgramRun goesOn =
      runScript("project enter Nowhere\nproject create Film", {"--keep-going"});
  EXPECT_EQ(goesOn.status, 1);
  EXPECT_EQ(goesOn.output.front(), 'P') << goesOn.output;
  EXPECT_NE(goesOn.errors.find("1 command failed."), std::string::npos) << goesOn.errors;
  EXPECT_EQ(runScript("project enter Nowhere\nquit", {"--keep-going"}).status, 0);
}

TEST_F(LifecycleTest, AScriptMayBeAFile) {
  const std::string script = folder_ / "script";
  std::ofstream(script) << "# makes a project\nproject create Film  # shared\n\nquit\nnonsense\n";
  const ProgramRun run = runProgram(stationWords({"--script", script}));
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_EQ(run.output.front(), 'P');
  expectStartFails(runProgram(stationWords({"--script", script + "2"})), script + "2");
}

TEST_F(LifecycleTest, AScriptThatIsAFolderIsNoEmptyScript) {
  const std::string folder = folder_ / "projects";
  expectStartFails(runProgram(stationWords({"--script", folder})), folder);
}

TEST_F(LifecycleTest, EventsThatNobodyReadsHoldNothingUp) {
  const std::string pipe = folder_ / "events";
  ASSERT_EQ(::mkfifo(pipe.c_str(), 0600), 0);
  const int reader = ::open(pipe.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC);  // never reads
  std::string script;
  for (int i = 0; i < 2000; ++i) script += "whoami\n";  // far more than the pipe takes
  const ProgramRun run = runScript(script + "project create Film\n", {"--events", pipe});
  ::close(reader);
  EXPECT_EQ(run.status, 0) << run.errors;
  EXPECT_NE(run.errors.find("were never read"), std::string::npos) << run.errors;
  EXPECT_FALSE(std::filesystem::is_empty(inProjects("")));
}

TEST_F(LifecycleTest, UnknownCommandsAreAnsweredWithTheNearest) {
  StationProcess& anna = start("ANNA", 11);
  EXPECT_NE(refusal(anna, "proect list").find("did you mean \"project list\""), std::string::npos);
  EXPECT_NE(refusal(anna, "edit tirm A B").find("did you mean \"edit trim\""), std::string::npos);
  EXPECT_NE(refusal(anna, "project enter").find("usage: project enter P"), std::string::npos);
}

TEST_F(LifecycleTest, EventsOnStandardOutputLeaveTheTextToStandardError) {
  const ProgramRun run =
      runScript("whoami\n", {"--events", "-", "--user", "SUITE4", "--host", "suite4"});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.output.find("{\"event\":\"ready\""), 0u) << run.output;
  std::size_t lines = 0;
  for (std::size_t at = 0, end; (end = run.output.find('\n', at)) != std::string::npos;
       at = end + 1) {
    EXPECT_TRUE(parseJson(run.output.substr(at, end - at))) << run.output.substr(at, end - at);
    ++lines;
  }
  EXPECT_EQ(lines, 3u) << run.output;  // ready, reply, closed
  EXPECT_NE(run.errors.find("network_mode: yes"), std::string::npos) << run.errors;
}

TEST_F(LifecycleTest, NamesThatMessagesCannotReachAreToldInTheLogAloneToAScript) {
  const std::string log = folder_ / "log";
  const ProgramRun run =
      runScript("whoami\n", {"--user", "anna", "--host", "suite-4", "--log", log});
  EXPECT_EQ(run.status, 0);
  EXPECT_EQ(run.errors, "");
  EXPECT_NE(run.output.find("owner_name: SUITE-4"), std::string::npos) << run.output;
  std::ifstream file(log);
  const std::string told((std::istreambuf_iterator<char>(file)), {});
  EXPECT_NE(told.find("--user and --host alike"), std::string::npos) << told;
}

TEST_F(LifecycleTest, AnEventFileThatFillsUpDoesNotEndTheStation) {
  const ProgramRun run = runScript("project create Film\nwhoami\n", {"--events", "/dev/full"});
  EXPECT_EQ(run.status, 0);
  const std::string told = "Events are no longer written to /dev/full";
  EXPECT_NE(run.errors.find(told), std::string::npos) << run.errors;
  EXPECT_EQ(run.errors.find(told, run.errors.find(told) + 1), std::string::npos) << run.errors;
  EXPECT_NE(run.output.find("network_mode: yes"), std::string::npos);
}

TEST_F(LifecycleTest, AProjectsFolderThatCannotBeUsedIsNamed) {
  const std::string file = folder_ / "file";
  std::ofstream(file) << "x";
  for (const std::string& path : {folder_ / "missing", file}) {
    const ProgramRun run =
        runProgram({KV_STATION, "--projects", path, "--port", std::to_string(port_)});
    expectStartFails(run, path);
  }
  expectStartFails(runProgram({KV_STATION}), "--projects");
}

TEST_F(LifecycleTest, AProjectsFolderInWhichNothingCanBeWrittenIsToldAndStaysReadable) {
  const ProgramRun run =
      runProgram({KV_STATION, "--projects", "/proc/sys/kernel", "--port", std::to_string(port_),
                  "--send-to", "127.255.255.255", "--keep-going", "--script", "-"},
                 "project list\nproject create Film\n");
  EXPECT_EQ(run.status, 1) << run.errors;
  EXPECT_NE(run.errors.find("Nothing can be written in the projects directory /proc/sys/kernel"),
            std::string::npos)
      << run.errors;
  EXPECT_NE(run.errors.find("Project \"Film\" was not made"), std::string::npos) << run.errors;
}

TEST_F(LifecycleTest, APluginThatCannotBeUsedIsNamed) {
  struct Row {
    std::string file;
    const char* part;
  };
  const std::string text = folder_ / "text.so";
  std::ofstream(text) << "no library";
  for (const Row& row :
       {Row{folder_ / "missing.so", "does not exist"}, Row{text, "cannot be loaded"},
        Row{systemLibrary(), "is a library but no plug-in"},
        Row{KV_EMPTY_PLUGIN, "hands out no plug-in object"},
        Row{KV_REFUSING_PLUGIN, "was loaded but refuses to start"}}) {
    const ProgramRun run = runProgram(stationWords({"--plugin", row.file}));
    expectStartFails(run, row.part);
    EXPECT_NE(run.errors.find(row.file), std::string::npos) << run.errors;
  }
}

TEST_F(LifecycleTest, APluginThatRefusesToStartLetsGoBeforeItIsUnloaded) {
  const std::string log = folder_ / "host.log";
  expectStartFails(runProgram(stationWords({"--plugin", KV_REFUSING_PLUGIN, "--log", log})),
                   "refuses to start");
  std::ifstream file(log);
  const std::string text(std::istreambuf_iterator<char>(file), {});
  EXPECT_NE(text.find("the refusing plug-in let go"), std::string::npos) << text;
}

TEST_F(LifecycleTest, AConfigFileWithAWrongLineIsReportedWithFileAndLine) {
  const std::string file = folder_ / "station.conf";
  std::ofstream(file) << "user = ANNA\nrubbish\n";
  expectStartFails(runProgram(stationWords({"--config", file})), file + ":2: \"rubbish\"");
}

TEST_F(LifecycleTest, APortThatAnotherProgramKeepsForItselfIsTold) {
  const int other = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port_));
  ASSERT_EQ(::bind(other, reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  StationProcess& anna = start("ANNA", 11);
  const JsonValue told = await(anna, "network", {});
  EXPECT_NE(told["problem"].asString().find(std::to_string(port_)), std::string::npos);
  run(anna, "project create Film");
  ::close(other);
}

}  // namespace
