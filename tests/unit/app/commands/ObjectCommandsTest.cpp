#include <gtest/gtest.h>

#include "app/commands/Commands.h"
#include "station/MessageJudge.h"
#include "station/containers/Containers.h"
#include "station/media/MediaCache.h"
#include "station/project/Projects.h"
#include "station/wire/MessageTable.h"
#include "tests/support/IdleStation.h"

using namespace korvel;

namespace {

/// A station with an open project, driven as the console does.
class ObjectCommandsTest : public testing::Test {
 protected:
  ObjectCommandsTest() {
    addContainerCommands(table);
    addFilterCommands(table);
    addMediaCommands(table);
    addUserCommands(table);
    const Result<Cookie> made = station.projects().create("Film", false);
    EXPECT_TRUE(made && station.projects().enter("Film"));
  }

  Result<JsonValue> run(const std::vector<std::string>& words) {
    std::size_t nameWords = 0;
    const Command* const command = table.find(words, nameWords);
    if (!command) return Error{ErrorCode::eUsage, "no such command", {}};
    const Arguments arguments(words.begin() + static_cast<std::ptrdiff_t>(nameWords), words.end());
    EXPECT_GE(arguments.size(), command->minArguments);
    EXPECT_LE(arguments.size(), command->maxArguments);
    return command->run(station, arguments);
  }

  /// The result, which must be one.
  JsonValue did(const std::vector<std::string>& words) {
    const Result<JsonValue> result = run(words);
    if (result) return *result;
    ADD_FAILURE() << words[0] << ' ' << words[1] << ": " << result.error().message;
    return {};
  }

  /// What a person is told of a result.
  std::string shown(const std::string& name, const JsonValue& result) {
    return shownResult(station, {&table.all().at(name), {}, {}}, result);
  }

  IdleStation idle;
  Station& station = idle.station;
  CommandTable table;
};

TEST_F(ObjectCommandsTest, ABinIsFilledAndEmptiedByNamesAndCookies) {
  const std::string bin = did({"bin", "create", "Rushes"}).asString();
  const std::string other = did({"bin", "create", "My scenes"}).asString();
  EXPECT_EQ(did({"bin", "add", "Rushes", "My scenes"})["added"].asLong(), 1);
  EXPECT_EQ(did({"bin", "show", bin})["contents"].elements().at(0).asString(), other);
  did({"bin", "destroy", "My scenes"});
  EXPECT_EQ(did({"bin", "remove", "Rushes", other})["removed"].asLong(), 1);
  const JsonValue all = did({"bin", "list"});
  ASSERT_EQ(all.elements().size(), 1u);
  EXPECT_EQ(all.elements()[0]["name"].asString(), "Rushes");
  EXPECT_EQ(all.elements()[0]["objects"].asLong(), 0);
}

TEST_F(ObjectCommandsTest, ARackIsNoBin) {
  did({"rack", "create", "Sound"});
  EXPECT_EQ(run({"bin", "show", "Sound"}).error().code, ErrorCode::eNotFound);
  EXPECT_EQ(did({"rack", "list"}).elements().size(), 1u);
  EXPECT_EQ(did({"bin", "list"}).elements().size(), 0u);
}

TEST_F(ObjectCommandsTest, AnUnknownObjectIsNotAdded) {
  did({"bin", "create", "Rushes"});
  const Result<JsonValue> added = run({"bin", "add", "Rushes", "Rushes", "E7777"});
  ASSERT_FALSE(added);
  EXPECT_NE(added.error().message.find("E7777"), std::string::npos);
  EXPECT_EQ(did({"bin", "show", "Rushes"})["contents"].elements().size(), 0u);
}

TEST_F(ObjectCommandsTest, AFilterIsMadeChangedListedAndDestroyed) {
  const std::string filter = did({"filter", "create", "Unused", "uses=0"}).asString();
  did({"filter", "change", "Unused", "uses<2"});
  EXPECT_EQ(did({"filter", "list"}).elements().at(0)["filter"].asString(), "uses<2");
  did({"filter", "destroy", filter});
  EXPECT_TRUE(did({"filter", "list"}).elements().empty());
}

TEST_F(ObjectCommandsTest, MediaIsAddedWithItsProxyAndRemoved) {
  const std::string file = idle.scratch / "a.mov";
  const std::string proxy = idle.scratch / "p.mov";
  StationScene::write(file, "x");
  EXPECT_FALSE(run({"media", "add", file, "--proxy", proxy}));
  StationScene::write(proxy, "x");
  const JsonValue material = did({"media", "add", file, "--proxy", proxy});
  const JsonValue all = did({"media", "list"});
  ASSERT_EQ(all.elements().size(), 2u);
  EXPECT_EQ(all.elements()[0]["cookie"], material);
  EXPECT_EQ(all.elements()[1]["proxy_of"].asString(), file);
  EXPECT_EQ(run({"media", "add", file, "other"}).error().code, ErrorCode::eUsage);
  const JsonValue removed = did({"media", "remove", material.asString().substr(0, 8)});
  EXPECT_EQ(removed["file"].asString(), file);
  EXPECT_EQ(shown("media remove", removed),
            "Took \"a.mov\" with its proxy out of the project; the file itself stays.");
  EXPECT_TRUE(did({"media", "list"}).elements().empty());
}

TEST_F(ObjectCommandsTest, AFileWithoutAProxyIsRemovedAlone) {
  StationScene::write(idle.scratch / "a.mov", "x");
  did({"media", "add", idle.scratch / "a.mov"});
  EXPECT_EQ(shown("media remove", did({"media", "remove", "a.mov"})),
            "Took \"a.mov\" out of the project; the file itself stays.");
}

TEST_F(ObjectCommandsTest, MediaThatShareACookieArePutIntoABinByItsBeginning) {
  for (const char* const name : {"take.1.mov", "take.2.mov"}) {
    StationScene::write(idle.scratch / name, "x");
    did({"media", "add", idle.scratch / name});
  }
  const std::string cookie = did({"media", "list"}).elements().at(0)["cookie"].asString();
  did({"bin", "create", "Rushes"});
  EXPECT_EQ(did({"bin", "add", "Rushes", cookie.substr(0, 8)})["added"].asLong(), 1);
}

TEST_F(ObjectCommandsTest, WithoutAProjectEachSaysSo) {
  ASSERT_TRUE(station.projects().leave());
  const std::vector<std::vector<std::string>> rows = {{"bin", "create", "a"},
                                                      {"bin", "list"},
                                                      {"bin", "add", "a", "b"},
                                                      {"rack", "destroy", "a"},
                                                      {"filter", "list"},
                                                      {"filter", "create", "a", "b"},
                                                      {"filter", "change", "a", "b"},
                                                      {"media", "add", "/dev/null"},
                                                      {"media", "list"},
                                                      {"media", "remove", "a"}};
  for (const std::vector<std::string>& row : rows) {
    SCOPED_TRACE(row[0] + ' ' + row[1]);
    const Result<JsonValue> result = run(row);
    ASSERT_FALSE(result);
    EXPECT_EQ(result.error().code, ErrorCode::eNoProject) << result.error().message;
  }
}

TEST_F(ObjectCommandsTest, ARequestIsOneMessageToOneMachine) {
  did({"request", "34", "identify"});
  ASSERT_EQ(idle.network.sent.size(), 1u);
  EXPECT_EQ(idle.network.ports, std::vector<int>{27015});
  const MessageFields fields = readMessage(idle.network.sent[0]);
  EXPECT_EQ(fields.type, 13);
  EXPECT_EQ(fields.target, "34");
  EXPECT_EQ(fields.data, "identify");
  EXPECT_EQ(fields.source, "anna");
  EXPECT_EQ(fields.project, text(station.projects().current()->cookie));
}

TEST_F(ObjectCommandsTest, ARequestThatMakesNoSenseIsNotSent) {
  for (const char* row : {"", "x", "-1", "12x", " 1", "99999999999"}) {
    SCOPED_TRACE(row);
    EXPECT_EQ(run({"request", row, "identify"}).error().code, ErrorCode::eUsage);
  }
  EXPECT_EQ(run({"request", "1", ""}).error().code, ErrorCode::eUsage);
  EXPECT_EQ(run({"request", "1", "5 \xE2\x82\xAC"}).error().code, ErrorCode::eUsage);
  EXPECT_TRUE(idle.network.sent.empty());
}

TEST_F(ObjectCommandsTest, WhoAmIShowsTheStationAndUsersNeedThePlugin) {
  const JsonValue self = did({"whoami"});
  EXPECT_EQ(self["user"].asString(), "anna");
  EXPECT_EQ(self["owner_name"].asString(), "anna");
  EXPECT_EQ(self["host"].asString(), "suite1");
  EXPECT_EQ(self["machine"].asLong(), 12);
  EXPECT_TRUE(self["network_mode"].asBool());
  for (const char* row : {"users", "active"}) {
    EXPECT_NE(run({row}).error().message.find("--plugin"), std::string::npos);
  }
}

TEST_F(ObjectCommandsTest, ARemoteCommandIsLoggedToldAndAnEvent) {
  const CommandMap::Index index = CommandMap::theCommandMap().findCommand("identify");
  ASSERT_NE(index, CommandMap::kNotFound);
  CommandMap::theCommandMap().callCommand(index, CommandContext());
  EXPECT_EQ(idle.events.commands, std::vector<std::string>{"identify"});
  ASSERT_EQ(idle.events.notifications.size(), 1u);
  EXPECT_NE(idle.events.notifications[0].find("suite1"), std::string::npos);
  EXPECT_TRUE(idle.events.loggedThat("identify"));
}

TEST_F(ObjectCommandsTest, OnlyCommandsThatTheConfigurationNamesRun) {
  const auto runAllWith = [](const std::string& configured) {
    StationSettings with = settings();
    with.config["remote_commands"] = configured;
    installSettings(std::move(with));
    RemoteCommands commands;
    for (const std::string& name : RemoteCommands::names()) {
      commands.callCommand(commands.findCommand(name.c_str()), CommandContext());
    }
  };
  runAllWith("refresh, halt");
  EXPECT_EQ(idle.events.commands, std::vector<std::string>{"refresh"});
  EXPECT_EQ(idle.events.notifications.size(), 1u);
  EXPECT_TRUE(idle.events.loggedThat("command \"identify\", which remote_commands does not allow"));
  EXPECT_TRUE(idle.events.loggedThat("remote_commands names \"halt\", which is no command"));
  runAllWith("");
  EXPECT_EQ(idle.events.commands.size(), 1u);
}

TEST_F(ObjectCommandsTest, OnlyNamesOfCommandsAreFound) {
  for (const char* row : {"", "Identify", "identify ", "ident", "rm -rf", "quit"}) {
    EXPECT_EQ(CommandMap::theCommandMap().findCommand(row), CommandMap::kNotFound) << row;
  }
  CommandMap::theCommandMap().callCommand(CommandMap::kNotFound, CommandContext());
  EXPECT_TRUE(idle.events.commands.empty());
}

TEST_F(ObjectCommandsTest, TheRefreshCommandShowsWhatTheFolderHolds) {
  StationScene::write(station.projects().current()->folder + "/B0001.json",
                      R"({"name": "R", "contents": []})");
  StationScene::write(station.projects().current()->folder + "/G0001.json",
                      R"({"name": "B", "contents": []})");
  StationScene::write(station.projects().current()->folder + "/F0001.json",
                      R"({"name": "F", "filter": ""})");
  CommandMap::theCommandMap().callCommand(CommandMap::theCommandMap().findCommand("refresh"),
                                          CommandContext());
  EXPECT_TRUE(station.racks().holds(cookie("B0001")) && station.bins().holds(cookie("G0001")));
  EXPECT_TRUE(station.filters().holds(cookie("F0001")));
}

}  // namespace
