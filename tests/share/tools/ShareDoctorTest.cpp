#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <string>

#include "station/base/Json.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

namespace {

/// The findings of `kv-share doctor --json`, by what was checked; the worst of each.
std::map<std::string, std::string> verdictsOf(const ToolRun& run) {
  std::map<std::string, std::string> verdicts;
  const auto all = parseJson(run.out);
  EXPECT_TRUE(all) << run.out << run.err;
  if (!all) return verdicts;
  for (const JsonValue& each : (*all)["checks"].elements()) {
    std::string& verdict = verdicts[each["check"].asString()];
    if (verdict.empty() || verdict == "pass") verdict = each["verdict"].asString();
    EXPECT_EQ(each["fix"].isString(), each["verdict"].asString() != "pass") << run.out;
  }
  return verdicts;
}

class ShareDoctorTest : public ::testing::Test {
 protected:
  ShareDoctorTest() { ::chmod(folder_.path().c_str(), 02775); }

  [[nodiscard]] ToolRun examine(const std::vector<std::string>& more = {"--json"}) const {
    std::vector<std::string> words{"doctor",          folder_.path(), "--send-to",
                                   "127.255.255.255", "--config",     "/dev/null"};
    words.insert(words.end(), more.begin(), more.end());
    return runTool(words);
  }

  TestFolder folder_;
};

TEST_F(ShareDoctorTest, AGoodFolderPassesAndIsLeftAsItWas) {
  const ToolRun run = examine();
  const auto verdicts = verdictsOf(run);
  for (const char* check : {"exists", "rights", "group", "exclusive open", "new files", "removal"})
    EXPECT_EQ(verdicts.count(check) ? verdicts.at(check) : "", "pass") << check << "\n" << run.out;
  EXPECT_TRUE(std::filesystem::is_empty(folder_.path()));
}

TEST_F(ShareDoctorTest, AFolderThatIsMissingFailsAndSaysHowToMendIt) {
  const ToolRun run = runTool({"doctor", folder_ / "nowhere", "--config", "/dev/null"});
  EXPECT_EQ(run.status, 1);
  EXPECT_NE(run.out.find("fail  share          exists"), std::string::npos) << run.out;
  EXPECT_NE(run.out.find("\n      fix: mount the share there"), std::string::npos) << run.out;
  EXPECT_EQ(run.out.find("free space"), std::string::npos) << run.out;
  const std::string last = run.out.substr(run.out.rfind('\n', run.out.size() - 2) + 1);
  EXPECT_NE(last.find(" passed, "), std::string::npos) << last;
  EXPECT_NE(last.find(" failed\n"), std::string::npos) << last;
}

TEST_F(ShareDoctorTest, PipesInTheWayHangNothing) {
  ASSERT_EQ(::mkfifo((folder_ / "pipe").c_str(), 0600), 0);
  ASSERT_EQ(::mkfifo((folder_ / ".kv-doctor").c_str(), 0600), 0);
  EXPECT_EQ(runTool({"doctor", folder_ / "pipe", "--config", "/dev/null"}).status, 1);
  const auto verdicts = verdictsOf(examine());
  EXPECT_EQ(verdicts.at("rights"), "fail");
  EXPECT_EQ(verdicts.count("exclusive open"), 0u);
}

TEST_F(ShareDoctorTest, WhatMakesNoSenseIsAUsageError) {
  EXPECT_EQ(runTool({"doctor"}).status, 2);
  EXPECT_EQ(examine({"--port", "x"}).status, 2);
  EXPECT_EQ(examine({"--nonsense"}).status, 2);
}

}  // namespace
