#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <string>

#include "station/base/Json.h"
#include "station/net/HeardList.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

namespace {

class ShareMeshTest : public ::testing::Test {
 protected:
  [[nodiscard]] HeardList::Keeper keeper(const std::string& name, std::uint16_t sendsFrom) const {
    return {folder_.path(), name + " at WS-" + name, "WS-" + name, 27015, sendsFrom};
  }

  TestFolder folder_;
};

TEST_F(ShareMeshTest, WhatStationsKeepIsShownAsATableAndRead) {
  {
    HeardList anna(keeper("ANNA", 50'001));
    HeardList ben(keeper("BEN", 50'002));
    anna.heard(*parseIpv4("127.0.0.1"), 50'002);
    anna.heard(*parseIpv4("10.9.9.9"), 4);
    anna.sent();
  }
  const ToolRun run = runTool({"mesh", folder_.path()});
  EXPECT_EQ(run.status, 0) << run.out << run.err;
  for (const char* part : {"ANNA at WS-ANNA", "BEN at WS-BEN", "10.9.9.9 port 4", "hears"})
    EXPECT_NE(run.out.find(part), std::string::npos) << part << "\n" << run.out;
  const auto mesh = parseJson(runTool({"mesh", folder_.path(), "--json"}).out);
  ASSERT_TRUE(mesh);
  const auto& stations = (*mesh)["stations"].elements();
  ASSERT_EQ(stations.size(), 2u);
  EXPECT_EQ(writeJson(stations[0]["hears"]), R"(["BEN at WS-BEN"])");
  EXPECT_EQ(writeJson(stations[1]["quiet"]), R"(["ANNA at WS-ANNA"])");
}

TEST_F(ShareMeshTest, AStationHasOneFileWhateverItIsCalled) {
  for (int times = 0; times < 2; ++times) HeardList(keeper("../a b\n\xFF", 1)).sent();
  HeardList(keeper("../a_b\n\xFF", 1)).sent();
  int files = 0;
  for (const auto& each : std::filesystem::directory_iterator(folder_.path())) {
    if (each.path().filename().string()[0] == '.') continue;  // what the write goes through
    EXPECT_TRUE(each.path().string().ends_with(HeardList::kEnding)) << each.path();
    ++files;
  }
  EXPECT_EQ(files, 2);
  EXPECT_EQ(runTool({"mesh", folder_.path()}).status, 0);
}

TEST_F(ShareMeshTest, TwoStationsOfOneNameOnOneMachineHaveAListEach) {
  for (int times = 0; times < 2; ++times) {  // names are free again when their programs have ended
    HeardList first(keeper("ANNA", 50'001));
    HeardList second(keeper("ANNA", 50'002));
    second.heard(*parseIpv4("127.0.0.1"), 50'001);
  }
  const auto mesh = parseJson(runTool({"mesh", folder_.path(), "--json"}).out);
  ASSERT_TRUE(mesh);
  const auto& stations = (*mesh)["stations"].elements();
  ASSERT_EQ(stations.size(), 2u) << writeJson(*mesh);
  EXPECT_EQ(stations[0]["station"].asString(), "ANNA at WS-ANNA");
  EXPECT_EQ(stations[1]["station"].asString(), "ANNA at WS-ANNA (2)");
  EXPECT_EQ(writeJson(stations[1]["hears"]), R"(["ANNA at WS-ANNA"])");
}

TEST_F(ShareMeshTest, FilesThatAreNoListsHangNothingAndAreNamed) {
  static_cast<void>(folder_.write("cut.heard.json", "{\"station\":"));
  static_cast<void>(folder_.write("notes.txt", "not a list"));
  std::filesystem::create_directories(folder_ / "folder.heard.json");
  ASSERT_EQ(::mkfifo((folder_ / "pipe.heard.json").c_str(), 0600), 0);
  const ToolRun run = runTool({"mesh", folder_.path()});
  EXPECT_EQ(run.status, 0);
  for (const char* name : {"cut.heard.json", "folder.heard.json", "pipe.heard.json"})
    EXPECT_NE(run.out.find(std::string(name) + " cannot be read"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("notes"), std::string::npos) << run.out;
  EXPECT_EQ(runTool({"mesh", folder_ / "nowhere"}).status, 2);
}

TEST_F(ShareMeshTest, NoControlCharacterReachesTheTerminal) {
  static_cast<void>(folder_.write(
      "a.heard.json", "{\"station\":\"a\\u001b[2J\\u009b\",\"host\":\"\\u0007\",\"heard\":[]}"));
  for (const char* format : {"", "--json"}) {
    std::vector<std::string> words{"mesh", folder_.path()};
    if (*format) words.emplace_back(format);
    const std::string shown = runTool(words).out;
    for (const char* control : {"\x1B", "\x07", "\u009B"})
      EXPECT_EQ(shown.find(control), std::string::npos) << format << shown;
  }
}

}  // namespace
