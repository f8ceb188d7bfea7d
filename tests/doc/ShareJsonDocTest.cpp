#include <gtest/gtest.h>

#include <signal.h>

#include <set>
#include <sstream>

#include "station/base/Json.h"
#include "tests/doc/JsonShape.h"
#include "tests/support/LoopbackSender.h"
#include "tests/support/StationProcess.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

// Compares what kv-share writes with docs/kv-share-json.md.

namespace {

/// A projects directory with a private project, a room, users, and a name that is not UTF-8.
class ShareJsonPage : public testing::Test {
 protected:
  ShareJsonPage() {
    put("P0001/project.json", R"({"name":"Film","private":true})");
    put("P0001/Lock", "");
    put("P0001/Lock.inf", "ann\xFF");
    put("P0001/rooms/Grading.json", R"({"name":"Grading"})");
    put("userlist.dat", "ann\nbob\n");
    put("ann.cli", "");
  }

  void put(const std::string& name, const std::string& bytes) const {
    static_cast<void>(folder_.write(name, bytes));
  }

  TestFolder folder_;
};

TEST_F(ShareJsonPage, DecodeWritesWhatItSays) {
  const JsonShape shape = JsonShape::ofSection("decode");
  ASSERT_FALSE(shape.isEmpty());
  for (const char* const text : {"d\xAC"
                                 "2\xACP0001\xAC"
                                 "E0001\xAC",
                                 "d\xAC"
                                 "8\xAC\xAC\xFF\xAC",
                                 "x"}) {
    EXPECT_EQ(shape.differences(runTool({"decode"}, text).out), "") << text;
  }
}

TEST_F(ShareJsonPage, LocksWritesWhatItSays) {
  const ToolRun run = runTool({"locks", folder_.path(), "--json"});
  EXPECT_EQ(JsonShape::ofSection("locks").differences(run.out), "") << run.out;
  EXPECT_NE(run.out.find("\"by_hex\""), std::string::npos) << run.out;
}

TEST(ShareJson, MonitorWritesWhatItSays) {
  const int port = freeUdpPort();
  const LoopbackSender sender(port);
  BackgroundTool tool({"monitor", "--json", "--port", std::to_string(port)});
  ASSERT_TRUE(tool.hasWritten("hearing"));
  tool.signal(SIGSTOP);
  ASSERT_TRUE(sender.send({"d", "10", "", "ann\xFF", "bob", "first"}));
  for (int i = 0; i < 4000; ++i) ASSERT_TRUE(sender.send({std::string(8000, 'x')}));
  tool.signal(SIGCONT);
  tool.signal(SIGINT);
  std::istringstream lines(tool.finish().out);
  std::set<std::string> seen;
  for (std::string line; std::getline(lines, line);) {
    const auto object = parseJson(line);
    ASSERT_TRUE(object) << line;
    const std::string& event = (*object)["event"].asString();
    if (seen.insert(event).second || event == "counts") {
      EXPECT_EQ(JsonShape::ofSection(event).differences(line), "") << line.substr(0, 1000);
    }
  }
  EXPECT_EQ(seen, (std::set<std::string>{"counts", "message", "missed"}));
}

TEST_F(ShareJsonPage, RecordAndReplayWriteWhatTheySay) {
  const int port = freeUdpPort();
  const std::string file = folder_ / "capt\xFF";
  BackgroundTool tool({"record", file, "--json", "--count", "1", "--port", std::to_string(port)});
  ASSERT_TRUE(tool.hasWritten("recording"));
  ASSERT_TRUE(LoopbackSender(port).send({"d", "2", "P0001", "E0001"}));
  const ToolRun recorded = tool.finish();
  EXPECT_EQ(JsonShape::ofSection("record").differences(recorded.out), "") << recorded.out;
  EXPECT_NE(recorded.out.find("\"messages\":1,"), std::string::npos) << recorded.out;
  for (const auto& [type, part] :
       {std::pair("edit-saved", "\"messages\":1,"), std::pair("room-change", "is meant")}) {
    const ToolRun replayed = runTool({"replay", file, "--json", "--type", type});
    EXPECT_EQ(JsonShape::ofSection("replay").differences(replayed.out), "") << replayed.out;
    EXPECT_NE(replayed.out.find(part), std::string::npos) << replayed.out;
  }
}

TEST_F(ShareJsonPage, HistoryWritesWhatItSays) {
  put("P0001/.history/E1/000001-0000abcd.otio", "12345");
  put("P0001/.history/E1/000002-0000abcd.otio", "12345");
  put("P0001/.trash/E2.otio", "123");
  const ToolRun run = runTool({"history", folder_.path(), "--json"});
  EXPECT_EQ(JsonShape::ofSection("history").differences(run.out), "") << run.out;
  EXPECT_NE(run.out.find(R"({"objects":1,"versions":2,"bytes":10})"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find(R"({"objects":1,"files":1,"bytes":3})"), std::string::npos) << run.out;
}

TEST_F(ShareJsonPage, UsersWritesWhatItSays) {
  const ToolRun run = runTool({"users", folder_.path(), "--json"});
  EXPECT_EQ(JsonShape::ofSection("users").differences(run.out), "") << run.out;
  EXPECT_NE(run.out.find("\"age\""), std::string::npos) << run.out;
}

TEST_F(ShareJsonPage, WhoWritesWhatItSays) {
  put(".stations/1.json", R"({"format":1,"user":"ANNA","open":["E0001"],"unsaved":["E0001"],)"
                          R"("addresses":["10.0.0.1"]})");
  put(".stations/2.json", "cut");
  const ToolRun run = runTool({"who", folder_.path(), "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(JsonShape::ofSection("who").differences(run.out), "") << run.out;
  EXPECT_NE(run.out.find("\"problem\""), std::string::npos) << run.out;
}

TEST_F(ShareJsonPage, KeysWritesWhatItSays) {
  for (const char* action : {"add", "list"}) {
    const ToolRun run = runTool({"keys", folder_.path(), action, "--json"});
    EXPECT_EQ(run.status, 0) << run.err;
    EXPECT_EQ(JsonShape::ofSection("keys").differences(run.out), "") << run.out;
  }
}

TEST_F(ShareJsonPage, DoctorWritesWhatItSays) {
  const ToolRun run = runTool({"doctor", folder_.path(), "--config", "/dev/null", "--send-to",
                               "127.255.255.255", "--json"});
  EXPECT_EQ(JsonShape::ofSection("doctor").differences(run.out), "") << run.out;
  EXPECT_NE(run.out.find("\"fix\""), std::string::npos) << run.out;
}

TEST_F(ShareJsonPage, MeshWritesWhatItSays) {
  const std::string list = R"("port":27015,"written":1000,"since":1,"sent_earlier":900,)";
  put("heard/a.heard.json", R"({"station":"A","addresses":["10.0.0.1"],"sends_from":1,)" + list +
                                R"("heard":[{"address":"10.0.0.2","port":2,"count":1,"last":900},)"
                                R"({"address":"10.0.0.9","port":9,"count":1,"last":900}]})");
  put("heard/b.heard.json",
      R"({"station":"B","addresses":["10.0.0.2"],"sends_from":2,)" + list + R"("heard":[]})");
  const ToolRun run = runTool({"mesh", folder_ / "heard", "--json"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(JsonShape::ofSection("mesh").differences(run.out), "") << run.out;
  EXPECT_NE(run.out.find("\"strangers\":[\"10.0.0.9 port 9\"]"), std::string::npos) << run.out;
}

TEST_F(ShareJsonPage, ExplainWritesWhatItSays) {
  const ToolRun run = runTool({"explain", folder_ / "P0001", "--json"});
  EXPECT_EQ(JsonShape::ofSection("explain").differences(run.out), "") << run.out;
}

TEST(JsonShape, TellsWhatIsMissingOfAnotherKindOrNotDocumented) {
  const JsonShape shape = JsonShape::ofSection("users");
  ASSERT_FALSE(shape.isEmpty());
  EXPECT_EQ(shape.differences(R"({"users":["A"],"active":[{"user":"A","since":"","age":1}]})"), "");
  EXPECT_EQ(shape.differences(R"({"users":[]})"), "active is not there\n");
  EXPECT_EQ(shape.differences(R"({"users":1,"active":[]})"), "users is number\n");
  EXPECT_EQ(shape.differences(R"({"users":[],"active":[{"x":1}]})"),
            "active[].x (number) is not documented\n");
}

}  // namespace
