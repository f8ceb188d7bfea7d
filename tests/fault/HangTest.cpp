#include <gtest/gtest.h>

#include <chrono>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <thread>

#include "tests/fault/MappedFaultControl.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/LoopbackSender.h"
#include "tests/support/StationProcess.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

// A share that hangs: an operation on it never comes back.

namespace {

class HangTest : public testing::Test {
 protected:
  HangTest() {
    static_cast<void>(folder_.write("P0001/project.json", R"({"name":"Film","private":true})"));
    static_cast<void>(folder_.write("P0001/Lock", ""));
    static_cast<void>(folder_.write("P0001/Lock.inf", "ANN"));
    static_cast<void>(folder_.write("a.heard.json", "{}"));
    ::setenv(kFaultFolderVariable, folder_.path().c_str(), 1);
    ::setenv("LD_PRELOAD", KV_FAILING_FILES, 1);
  }

  ~HangTest() override { ::unsetenv("LD_PRELOAD"); }

  /// Lets operations of this name hang in whatever is started from now on.
  void hangAt(const char* operation) {
    control_.count = 0;
    control_.isMet = false;
    control_.chosen = 1;
    control_.action = FaultAction::eHang;
    std::strncpy(control_.operation, operation, sizeof control_.operation - 1);
  }

  TestFolder folder_;
  MappedFaultControl mapped_;
  FaultControl& control_ = *mapped_;
};

TEST_F(HangTest, EveryCommandThatLooksAtAShareGivesItUpAndNamesIt) {
  const std::vector<std::string> commands[] = {{"locks", folder_.path()},
                                               {"users", folder_.path()},
                                               {"break", folder_.path(), "Film", "--yes"},
                                               {"explain", folder_ / "P0001"},
                                               {"mesh", folder_.path()}};
  hangAt("");
  std::vector<std::unique_ptr<BackgroundTool>> tools;
  for (std::vector<std::string> words : commands) {
    words.insert(words.end(), {"--time-limit", "1"});
    tools.push_back(std::make_unique<BackgroundTool>(words));
  }
  for (std::size_t index = 0; index < tools.size(); ++index) {
    const ToolRun run = tools[index]->finish();
    const std::string& command = commands[index][0];
    EXPECT_EQ(run.status, 1) << command << run.out;
    EXPECT_EQ(run.err.rfind("kv-share: " + folder_.path(), 0), 0u) << command << run.err;
    EXPECT_NE(run.err.find("did not answer within 1 s"), std::string::npos) << command << run.err;
  }
}

// For twenty seconds, as while a file server starts again.
TEST_F(HangTest, AStationAnswersWhileItsShareHangsAndFindsAfterwardsWhatHappenedMeanwhile) {
  StationProcess::Options options;
  options.program = KV_STATION;
  options.projects = folder_.path();
  options.user = options.host = "ANNA";
  options.port = freeUdpPort();
  StationProcess station(std::move(options));
  ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
  ASSERT_TRUE(station.command("project create Series")["ok"].asBool());
  ASSERT_TRUE(station.command("project enter Series")["ok"].asBool());
  const std::string project = station.command("state")["result"]["project"]["cookie"].asString();
  control_.seesBackground = true;
  hangAt("");
  control_.action = FaultAction::eStall;
  const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(20);
  ASSERT_TRUE(station.waitFor("health", {{"share", "bad"}}, StationProcess::Seconds(60)));
  while (std::chrono::steady_clock::now() < end) {
    EXPECT_TRUE(station.command("whoami", StationProcess::Seconds(5))["ok"].asBool());
    // The pace of the questions while the share stalls.
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
  }
  static_cast<void>(folder_.write(project + "/G0001.json", R"({"name":"New","contents":[]})"));
  control_.action = FaultAction::eNone;
  EXPECT_TRUE(station.waitFor("changed", {{"what", "bin"}, {"origin", "folder"}},
                              StationProcess::Seconds(60)));
  EXPECT_TRUE(station.waitFor("health", {{"share", "good"}}, StationProcess::Seconds(60)));
}

TEST_F(HangTest, AMediaFileOnAMountThatHangsDoesNotHoldUpTheStation) {
  constexpr StationProcess::Seconds kSoon(10);
  const std::string rushes = folder_ / "rushes";
  static_cast<void>(folder_.write("rushes/far.mov", "frames"));
  static_cast<void>(folder_.write("near/here.mov", "frames"));
  StationProcess::Options options;
  options.program = KV_STATION;
  options.projects = folder_.path();
  options.user = options.host = "ANNA";
  options.port = freeUdpPort();
  const LoopbackSender stranger(options.port);
  options.more = {"--media", rushes + "=//store/rushes"};
  StationProcess station(std::move(options));
  ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
  ASSERT_TRUE(station.command("project create Series")["ok"].asBool());
  ASSERT_TRUE(station.command("project enter Series")["ok"].asBool());
  const std::string project = station.command("state")["result"]["project"]["cookie"].asString();
  std::strncpy(control_.path, "/rushes", sizeof control_.path - 1);
  hangAt("stat");
  ASSERT_TRUE(stranger.send({"d", "8", project, "//store/rushes/far.mov"}));
  EXPECT_TRUE(station.waitFor("changed", {{"what", "media"}, {"origin", "remote"}}));
  ASSERT_TRUE(becomesTrue([this] { return control_.isMet.load(); }));
  const JsonValue listed = station.command("media list", kSoon);
  ASSERT_EQ(listed["result"].elements().size(), 1U) << writeJson(listed);
  EXPECT_FALSE(listed["result"].elements()[0]["looked_at"].asBool(true)) << writeJson(listed);
  const JsonValue refused = station.command("media add " + rushes + "/far2.mov", kSoon);
  EXPECT_NE(refused["error"].asString().find("does not answer"), std::string::npos)
      << writeJson(refused);
  EXPECT_TRUE(station.command("media add " + (folder_ / "near/here.mov"), kSoon)["ok"].asBool());
  EXPECT_TRUE(stranger.send({"d", "9", project, "//store/rushes/far.mov"}));
  EXPECT_TRUE(station.waitFor("changed", {{"what", "media"}, {"how", "removed"}}));
  EXPECT_EQ(station.quit(), 0);
}

// The folder of rooms is asked by the same thread as the project's. Whichever is asked when the
// share hangs is the one that waits.
TEST_F(HangTest, AShareThatHangsAndComesBackIsToldSoonWhateverWasAskedFirst) {
  using Clock = std::chrono::steady_clock;
  constexpr std::chrono::seconds kSoon(10);
  StationProcess::Options options;
  options.program = KV_STATION;
  options.projects = folder_.path();
  options.user = options.host = "ANNA";
  options.port = freeUdpPort();
  StationProcess station(std::move(options));
  ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
  ASSERT_TRUE(station.command("project create Series")["ok"].asBool());
  ASSERT_TRUE(station.command("project enter Series")["ok"].asBool());
  ASSERT_TRUE(station.command("room create Sound")["ok"].asBool());
  control_.seesBackground = true;
  std::strncpy(control_.path, "/rooms", sizeof control_.path - 1);
  hangAt("open");
  control_.action = FaultAction::eStall;
  ASSERT_TRUE(becomesTrue([this] { return control_.isMet.load(); }));
  auto begin = Clock::now();
  ASSERT_TRUE(station.waitFor("health", {{"share", "bad"}}, StationProcess::Seconds(60)));
  EXPECT_LT(Clock::now() - begin, kSoon);
  std::this_thread::sleep_until(begin + std::chrono::seconds(9));
  control_.action = FaultAction::eNone;
  begin = Clock::now();
  ASSERT_TRUE(station.waitFor("health", {{"share", "good"}}, StationProcess::Seconds(60)));
  EXPECT_LT(Clock::now() - begin, kSoon);
}

// Its lists of projects and rooms are read by the host thread, again and again.
TEST_F(HangTest, AWindowDoesNotAskAShareThatIsKnownToHang) {
  ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
  StationProcess::Options options;
  options.program = KV_STATION;
  options.projects = folder_.path();
  options.user = options.host = "ANNA";
  options.port = freeUdpPort();
  options.more = {"--gui"};
  StationProcess station(std::move(options));
  if (!station.waitUntilReady(StationProcess::Seconds(30))) {
    ASSERT_NE(station.errorText().find("--gui: the window"), std::string::npos)
        << station.errorText();
    GTEST_SKIP() << "this build has no window";
  }
  control_.seesBackground = true;
  std::strncpy(control_.path, "/.stations", sizeof control_.path - 1);
  hangAt("open");
  control_.action = FaultAction::eStall;
  ASSERT_TRUE(station.waitFor("health", {{"share", "bad"}}, StationProcess::Seconds(60)));
  control_.operation[0] = '\0';  // now that the station knows everything hangs
  for (int look = 0; look < 6; ++look) {
    EXPECT_TRUE(station.command("whoami", StationProcess::Seconds(5))["ok"].asBool());
    std::this_thread::sleep_for(std::chrono::seconds(1));
  }
  control_.action = FaultAction::eNone;
  EXPECT_TRUE(station.waitFor("health", {{"share", "good"}}, StationProcess::Seconds(60)));
}

TEST_F(HangTest, AFolderOfHeardListsThatHangsDelaysNoStationsEnd) {
  const TestFolder projects;
  StationProcess::Options options;
  options.program = KV_STATION;
  options.projects = projects.path();
  options.user = options.host = "ANNA";
  options.port = freeUdpPort();
  options.more = {"--share-heard", folder_.path()};
  hangAt("rename");
  StationProcess station(std::move(options));
  ASSERT_TRUE(station.waitUntilReady(StationProcess::Seconds(30)));
  ASSERT_TRUE(becomesTrue([this] { return control_.isMet.load(); }));
  EXPECT_EQ(station.quit(), 0);
}

TEST_F(HangTest, AFolderOfHeardListsThatHangsDelaysNoMonitorsEnd) {
  hangAt("rename");
  BackgroundTool monitor(
      {"monitor", "--port", std::to_string(freeUdpPort()), "--share-heard", folder_.path()});
  ASSERT_TRUE(monitor.hasWritten("hearing"));
  ASSERT_TRUE(becomesTrue([this] { return control_.isMet.load(); }));
  monitor.signal(SIGINT);
  const ToolRun run = monitor.finish();
  EXPECT_EQ(run.status, 0) << run.err;
}

}  // namespace
