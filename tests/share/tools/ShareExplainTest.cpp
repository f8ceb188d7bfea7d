#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "station/base/Json.h"
#include "tests/fakes/ForkedProcess.h"
#include "tests/support/ToolRun.h"
#include "tools/doctor/ProbeFolder.h"

using namespace korvel;

namespace {

const std::string kTimeline =
    R"({"OTIO_SCHEMA":"Timeline.1","name":"Scene","metadata":{"korvel":{"config":{"OWNER":"BOB"}}}})";

class ShareExplainTest : public ::testing::Test {
 protected:
  ShareExplainTest() {
    put("P0001/project.json", R"({"name":"Feature","private":true})");
    put("P0002/project.json", R"({"name":"Spot","private":false})");
  }

  void put(const std::string& name, const std::string& bytes = {}) const {
    static_cast<void>(folder_.write(name, bytes));
  }

  [[nodiscard]] JsonValue explain(const std::string& path, const std::string& host = "ANN") const {
    const ToolRun run = runTool({"explain", folder_ / path, "--host", host, "--json"});
    const auto json = parseJson(run.out);
    EXPECT_TRUE(json) << path << ": " << run.out << run.err;
    if (!json) return {};
    EXPECT_EQ(run.status, (*json)["state"].asString() == "free" ? 0 : 1) << run.out;
    return *json;
  }

  TestFolder folder_;
};

TEST_F(ShareExplainTest, AHeldProjectNamesItsHolderSinceWhenAndWhere) {
  put("P0001/Lock.inf", "Zo\u00EB");
  const LockHolder holder(openAsStationsDo, folder_ / "P0001/Lock");
  ASSERT_TRUE(holder.isHolding());
  for (const char* path : {"P0001", "P0001/Lock", "P0001/Lock.inf", "P0001/", "Feature"}) {
    const JsonValue held = explain(path);
    EXPECT_EQ(held["state"].asString(), "held") << path;
    EXPECT_EQ(held["by"].asString(), "Zo\u00EB") << path;
    EXPECT_NE(held["since"].asString(), "") << path;
    EXPECT_NE(held["where"].asString().find("on this machine"), std::string::npos) << path;
  }
  const ToolRun run = runTool({"explain", folder_ / "P0001"});
  EXPECT_EQ(run.out.rfind("Project \"Feature\" is held by Zo\u00EB since ", 0), 0u) << run.out;
  EXPECT_EQ(std::count(run.out.begin(), run.out.end(), '\n'), 1) << run.out;
}

TEST_F(ShareExplainTest, ALockThatWasLeftBehindSaysThatItCanBeTakenAndRemoved) {
  put("P0001/Lock");
  put("P0001/Lock.inf", "ann");
  const JsonValue left = explain("P0001");
  EXPECT_EQ(left["state"].asString(), "left behind");
  EXPECT_EQ(left["by"].asString(), "ann");
  EXPECT_NE(left["advice"].asString().find("kv-share break"), std::string::npos);
  EXPECT_TRUE(std::filesystem::exists(folder_ / "P0001/Lock"));
}

TEST_F(ShareExplainTest, ARoomIsFoundByItsFilesAndByItsName) {
  put("P0002/rooms/Mix%2F2.lck");
  put("P0002/rooms/Mix%2F2.lck.inf", "bob");
  put("P0002/rooms/Sound.json", "{}");
  for (const char* path : {"P0002/rooms/Mix%2F2.lck", "P0002/rooms/Mix%2F2.lck.inf", "P0002/Mix/2",
                           "P0002/rooms/Mix/2"}) {
    const JsonValue room = explain(path);
    EXPECT_EQ(room["kind"].asString(), "room") << path;
    EXPECT_EQ(room["state"].asString(), "left behind") << path;
    EXPECT_EQ(room["by"].asString(), "bob") << path;
  }
  EXPECT_EQ(explain("Spot/Sound")["state"].asString(), "free");
}

TEST_F(ShareExplainTest, AnEditOfAnotherOwnerNamesTheOwner) {
  put("P0002/E0001.otio", kTimeline);
  for (const char* path : {"P0002/E0001.otio", "P0002/E0001", "Spot/Scene"}) {
    const JsonValue owned = explain(path);
    EXPECT_EQ(owned["kind"].asString(), "edit") << path;
    EXPECT_EQ(owned["state"].asString(), "owned") << path;
    EXPECT_EQ(owned["by"].asString(), "BOB") << path;
  }
  EXPECT_EQ(explain("P0002/E0001", "bob")["state"].asString(), "free");
}

TEST_F(ShareExplainTest, TheOwnersRenderAndNobodyAreNoStationsToAsk) {
  const auto ownedBy = [](const std::string& owner) {
    return R"({"OTIO_SCHEMA":"Timeline.1","name":"x","metadata":{"korvel":{"config":{"OWNER":")" +
           owner + R"("}}}})";
  };
  put("P0002/E0001.otio", ownedBy("RENDER"));
  put("P0002/E0002.otio", ownedBy("<NOBODY>"));
  for (const char* host : {"ANN", "render"}) {
    const JsonValue owned = explain("P0002/E0001.otio", host);
    EXPECT_EQ(owned["state"].asString(), "owned") << host;
    EXPECT_NE(owned["advice"].asString().find("--set Administrator=1"), std::string::npos);
  }
  const JsonValue nobodys = explain("P0002/E0002.otio");
  EXPECT_EQ(nobodys["state"].asString(), "no owner");
  EXPECT_NE(nobodys["advice"].asString().find("--set Administrator=1"), std::string::npos);
}

TEST_F(ShareExplainTest, NothingIsToBeGivenToAStationWithAReservedName) {
  put("P0002/E0001.otio",
      R"({"OTIO_SCHEMA":"Timeline.1","name":"x","metadata":{"korvel":{"config":{"OWNER":"BEN"}}}})");
  put("P0002/E0002.otio", R"({"OTIO_SCHEMA":"Timeline.1","name":"x"})");
  for (const char* edit : {"P0002/E0001.otio", "P0002/E0002.otio"}) {
    const std::string advice = explain(edit, "RENDER")["advice"].asString();
    EXPECT_NE(advice.find("with another --host"), std::string::npos) << advice;
    EXPECT_EQ(advice.find("edit give"), std::string::npos) << advice;
  }
}

TEST_F(ShareExplainTest, AnEditWithoutAnOwnerCanBeGivenAwayByEveryStation) {
  put("P0002/E0002.otio", R"({"OTIO_SCHEMA":"Timeline.1","name":"x"})");
  const JsonValue said = explain("P0002/E0002.otio");
  EXPECT_EQ(said["advice"].asString(), "give it one: edit give EDIT ANN, on any station");
  EXPECT_NE(said["text"].asString().find("anybody may give it away"), std::string::npos)
      << writeJson(said);
}

TEST_F(ShareExplainTest, ANameOfSeveralThingsListsTheirPaths) {
  put("P0003/project.json", R"({"name":"Spot","private":false})");
  put("P0002/E0001.otio", kTimeline);
  put("P0002/rooms/Scene.json", "{}");
  const ToolRun projects = runTool({"explain", folder_ / "Spot"});
  EXPECT_EQ(projects.status, 2);
  EXPECT_NE(projects.err.find("several things are called \"Spot\""), std::string::npos);
  for (const char* choice : {"\n  /", "P0002\n", "P0003\n"})
    EXPECT_NE(projects.err.find(choice), std::string::npos) << projects.err;
  const ToolRun objects = runTool({"explain", folder_ / "P0002/Scene"});
  EXPECT_EQ(objects.status, 2);
  for (const char* choice : {"/P0002/E0001.otio\n", "/P0002/rooms/Scene.lck\n"})
    EXPECT_NE(objects.err.find(choice), std::string::npos) << objects.err;
}

TEST_F(ShareExplainTest, ACookiesBeginningStandsForTheOneThatItBegins) {
  put("P9abc1111/project.json", R"({"name":"Trailer","private":false})");
  put("P9abc1111/E5abc1111.otio", kTimeline);
  put("P9abc1111/E5abd2222.otio", R"({"OTIO_SCHEMA":"Timeline.1","name":"x"})");
  EXPECT_EQ(explain("P9ab")["state"].asString(), "free");
  for (const char* path : {"P9ab/E5abc", "P9abc1111/e5abc1", "Trailer/E5ABC111"})
    EXPECT_EQ(explain(path)["state"].asString(), "owned") << path;
  const ToolRun two = runTool({"explain", folder_ / "Trailer/E5ab"});
  EXPECT_EQ(two.status, 2);
  EXPECT_NE(two.err.find("begin with \"E5ab\""), std::string::npos) << two.err;
}

TEST_F(ShareExplainTest, ANameInTheWrongCaseIsAnsweredWithTheRightOne) {
  put("P0002/E0001.otio", kTimeline);
  put("P0002/rooms/Sound.json", "{}");
  const std::pair<const char*, const char*> rows[] = {
      {"spot", "Spot"}, {"Spot/scene", "Scene"}, {"Spot/SOUND", "Sound"}};
  for (const auto& [path, meant] : rows) {
    const ToolRun run = runTool({"explain", folder_ / path});
    EXPECT_EQ(run.status, 2) << path;
    EXPECT_NE(run.err.find("did you mean \"" + std::string(meant) + "\"?"), std::string::npos)
        << run.err;
  }
}

TEST_F(ShareExplainTest, WhatIsBrokenMissingOrUnownedSaysSo) {
  put("P0002/E0001.otio", "{\"OTIO_SCHEMA\":");
  put("P0002/E0002.otio", R"({"OTIO_SCHEMA":"Timeline.1","name":"x"})");
  put("P0003/project.json", "no json");
  std::filesystem::create_directories(folder_ / "P0004");
  std::filesystem::create_directories(folder_ / "P0005/project.json");
  const std::pair<const char*, const char*> rows[] = {{"P0002/E0001.otio", "broken"},
                                                      {"P0002/E0002.otio", "no owner"},
                                                      {"P0003", "broken"},
                                                      {"P0004", "missing"},
                                                      {"P0005", "broken"},
                                                      {"P0099", "missing"},
                                                      {"P0002/E0099.otio", "missing"}};
  for (const auto& [path, state] : rows)
    EXPECT_EQ(explain(path)["state"].asString(), state) << path;
}

TEST_F(ShareExplainTest, AProjectInWhichThisUserMayNotWriteSaysSo) {
  ::chmod(folder_.path().c_str(), 0755);
  ::chmod((folder_ / "P0002").c_str(), 0555);
  const int status = runAsOrdinaryUser([this] {
    const ToolRun run = runTool({"explain", folder_ / "P0002"});
    return run.status == 1 && run.out.find("this user may not use it") != std::string::npos ? 0 : 1;
  });
  ::chmod((folder_ / "P0002").c_str(), 0755);
  EXPECT_EQ(status, 0);
}

TEST_F(ShareExplainTest, PathsThatMeanNothingAreUsageErrors) {
  put("outside");
  for (const char* path : {"nothing", "P0001/nothing", "P0001/../outside", "Spot/nothing/at/all"}) {
    const ToolRun run = runTool({"explain", folder_ / path});
    EXPECT_EQ(run.status, 2) << path << run.out;
    EXPECT_NE(run.err.find("is no "), std::string::npos) << run.err;
  }
}

TEST_F(ShareExplainTest, NoControlCharacterReachesTheTerminal) {
  put("P0001/project.json", "{\"name\":\"a\\u001b[2J\\u009bb\"}");
  put("P0001/Lock");
  put("P0001/Lock.inf", "\x1B]0;x\x07\n");
  for (const char* format : {"", "--json"}) {
    std::vector<std::string> words{"explain", folder_ / "P0001"};
    if (*format) words.emplace_back(format);
    const std::string shown = runTool(words).out;
    for (const char* control : {"\x1B", "\x07", "\u009B"})
      EXPECT_EQ(shown.find(control), std::string::npos) << format << shown;
  }
}

}  // namespace
