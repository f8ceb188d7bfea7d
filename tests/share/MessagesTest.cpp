#include <chrono>
#include <filesystem>

#include "tests/share/SharedStations.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/LoopbackSender.h"

using namespace korvel;

namespace {

class MessagesTest : public SharedStations {
 protected:
  /// Three stations that look into no folder: what they know of each other came by message.
  void startThreeThatOnlyHear() { startThree({"--set", "watch_seconds=0"}); }

  /// Both other stations receive a datagram of this type, byte for byte as anna sent it.
  void expectSentToBoth(const std::string& type) {
    const JsonValue sent = await(*anna_, "sent", {{"type", type}});
    for (StationProcess* station : {ben_, carla_}) {
      await(*station, "received", {{"type", type}, {"text_hex", sent["text_hex"].asString()}});
    }
  }

  void expectReceivedByBoth(const std::string& type) {
    for (StationProcess* station : {ben_, carla_}) await(*station, "received", {{"type", type}});
  }

  /// What changed on ben's station from afar so far, as "what how".
  [[nodiscard]] std::vector<std::string> remoteChanges() const {
    std::vector<std::string> changes;
    for (const JsonValue& event : ben_->events("changed")) {
      if (event["origin"].asString() != "remote") continue;
      changes.push_back(event["what"].asString() + " " + event["how"].asString());
    }
    return changes;
  }

  [[nodiscard]] bool benLogged(const std::string& text) const {
    for (const JsonValue& event : ben_->events("log")) {
      if (event["text"].asString().find(text) != std::string::npos) return true;
    }
    return false;
  }
};

TEST_F(MessagesTest, EveryTypeThatAStationSendsIsReceivedByTwoOthers) {
  startThreeThatOnlyHear();
  const std::string edit = run(*anna_, "edit create Scene").asString();
  expectSentToBoth("14");
  run(*anna_, "edit open " + edit);
  run(*anna_, "edit rename " + edit + " \"Scene 2\"");
  expectSentToBoth("1");
  run(*anna_, "edit save " + edit);
  expectSentToBoth("2");
  run(*anna_, "bin create Dailies");
  expectSentToBoth("7");
  run(*anna_, "filter create Night dark");
  expectSentToBoth("15");
  run(*anna_, "media add \"" + sample("simple_cut.otio") + "\"");
  expectSentToBoth("8");
  run(*anna_, "media remove \"" + sample("simple_cut.otio") + "\"");
  expectSentToBoth("9");
  run(*anna_, "request 12 identify");
  expectSentToBoth("13");
  run(*anna_, "edit close " + edit);
  run(*anna_, "edit delete " + edit);
  expectSentToBoth("3");
  const std::string given = run(*anna_, "edit create Other").asString();
  run(*anna_, "edit give " + given + " BEN --force");
  expectSentToBoth("5");
  run(*anna_, "project leave");
  run(*anna_, "project enter Film");
  expectSentToBoth("6");
}

// A receiver of types 11 and 12 reads the cookie from the target's field: required, and all
// stations agree on it.
TEST_F(MessagesTest, TypesThatOnlyTheToolSendsAreReceivedAndApplied) {
  startThreeThatOnlyHear();
  const std::string edit = run(*ben_, "edit create Scene").asString();
  send({"4", "--project", project_, "--cookie", edit});
  expectReceivedByBoth("4");
  send({"10", "--project", project_, "--target", "<All>", "--data", "lunch?", "--source", "ZOE"});
  expectReceivedByBoth("10");
  send({"11", "--project", project_, "--cookie", "G0001", "--target", "G0007", "--source", "ZOE"});
  expectReceivedByBoth("11");
  send({"12", "--project", project_, "--cookie", "E0001", "--target", "E0008", "--source", "ZOE"});
  expectReceivedByBoth("12");
  settle(*ben_);
  EXPECT_TRUE(benLogged("lunch?"));
  EXPECT_TRUE(benLogged("(G0007)"));
  EXPECT_TRUE(benLogged("(E0008)"));
}

TEST_F(MessagesTest, MessagesOfAnotherProjectChangeNothingOfThisOne) {
  startThreeThatOnlyHear();
  const std::string edit = run(*ben_, "edit create Scene").asString();
  const std::string bin = run(*ben_, "bin create Dailies").asString();
  settle(*ben_);
  const auto before = remoteChanges();
  const std::string there = "P0bad";
  send({"1", "--project", there, "--cookie", edit, "--data", "x"});
  send({"2", "--project", there, "--cookie", edit});
  send({"3", "--project", there, "--cookie", edit});
  send({"4", "--project", there, "--cookie", edit});
  send({"5", "--project", there, "--cookie", edit, "--data", "ZOE"});
  send({"7", "--project", there, "--cookie", bin, "--data", "3"});
  settle(*ben_);
  EXPECT_EQ(remoteChanges(), before);
  EXPECT_EQ(run(*ben_, "edit may Scene")["owner"].asString(), "BEN");
  EXPECT_EQ(run(*ben_, "bin list").elements().size(), 1u);
}

TEST_F(MessagesTest, MessagesThatBelongToNoProjectAreAppliedWhateverProjectTheyName) {
  startThreeThatOnlyHear();
  const std::string there = "P0bad";
  const std::string file = sample("simple_cut.otio");
  send({"6", "--project", there, "--cookie", there});
  await(*ben_, "changed", {{"what", "room"}, {"how", "refreshed"}, {"origin", "remote"}});
  send({"8", "--project", there, "--data", file});
  await(*ben_, "changed", {{"what", "media"}, {"how", "added"}, {"origin", "remote"}});
  send({"9", "--project", there, "--data", file});
  await(*ben_, "changed", {{"what", "media"}, {"how", "removed"}, {"origin", "remote"}});
  send({"13", "--project", there, "--target", "12", "--data", "identify"});
  await(*ben_, "command", {{"name", "identify"}});
  send({"10", "--project", there, "--target", "<All>", "--data", "hello all"});
  send({"11", "--project", there, "--target", "G0007", "--cookie", "G0001"});
  send({"12", "--project", there, "--target", "E0008", "--cookie", "E0001"});
  settle(*ben_);
  for (const char* text : {"hello all", "(G0007)", "(E0008)"}) EXPECT_TRUE(benLogged(text)) << text;
}

TEST_F(MessagesTest, CreatedEditsAndFiltersAreAppliedWhateverProjectTheyName) {
  startThreeThatOnlyHear();
  StationProcess& silent = start("DORA", 14, {"--network-mode", "off"});
  run(silent, "project enter Film");
  // A folder without its record is not looked at, so that messages alone tell of what is in it.
  const std::string record = folder_ / ("projects/" + project_ + "/project.json");
  std::filesystem::rename(record, record + ".away");
  const std::string edit = run(silent, "edit create Night").asString();
  send({"14", "--project", "P0bad", "--cookie", edit});
  const JsonValue made = await(*ben_, "changed", {{"what", "edit"}, {"cookie", edit}});
  EXPECT_EQ(made["origin"].asString() + " " + made["how"].asString(), "remote created");
  EXPECT_EQ(made["by"].asString(), "DORA") << "the file says who saved it";
  const std::string filter = run(silent, "filter create Night dark").asString();
  send({"15", "--project", "P0bad", "--cookie", filter, "--data", "1"});
  const JsonValue shown = await(*ben_, "changed", {{"what", "filter"}, {"cookie", filter}});
  EXPECT_EQ(shown["origin"].asString() + " " + shown["how"].asString(), "remote created");
}

TEST_F(MessagesTest, WhatIsMadeInAnotherProjectIsNeitherWaitedForNorMissed) {
  startThreeThatOnlyHear();
  StationProcess& other = start("DORA", 14);
  run(other, "project create Other");
  run(other, "project enter Other");
  const std::string edit = run(other, "edit create Night").asString();
  await(*ben_, "received", {{"type", "14"}, {"cookie", edit}});
  const std::string filter = run(other, "filter create Night dark").asString();
  await(*ben_, "received", {{"type", "15"}, {"cookie", filter}});
  settle(*ben_);
  EXPECT_FALSE(benLogged("Receiver::waitForFile("));
}

TEST_F(MessagesTest, WhoMadeAChangeIsKnownByTheStationThatItsMessageCameFrom) {
  startThreeThatOnlyHear();
  for (StationProcess* station : {anna_, carla_}) {
    await(*ben_, "presence", {{"how", "came"}, {"user", station->options().user}});
  }
  const std::string bin = run(*anna_, "bin create Dailies").asString();
  await(*ben_, "changed", {{"what", "bin"}, {"cookie", bin}, {"by", "ANNA"}});
  run(*carla_, "bin destroy Dailies");
  await(*ben_, "changed", {{"cookie", bin}, {"how", "destroyed"}, {"by", "CARLA"}});
  const std::string edit = run(*carla_, "edit create Scene").asString();
  await(*ben_, "changed", {{"cookie", edit}, {"how", "created"}, {"by", "CARLA"}});
  run(*carla_, "edit give Scene ANNA --force");
  run(*anna_, "edit rename Scene Take");
  run(*anna_, "edit save Take");
  await(*ben_, "changed", {{"cookie", edit}, {"how", "refreshed"}, {"by", "ANNA"}});
  await(*anna_, "changed", {{"cookie", edit}, {"origin", "local"}, {"by", "ANNA"}});
}

TEST_F(MessagesTest, AFileThatNeverComesIsWaitedForOnceAndLogged) {
  startThreeThatOnlyHear();
  send({"14", "--project", project_, "--cookie", "Edead"});
  EXPECT_TRUE(becomesTrue([this] { return benLogged("Receiver::waitForFile("); }));
  EXPECT_TRUE(run(*ben_, "edit list").elements().empty());
}

TEST_F(MessagesTest, FilesThatNeverComeDelayNoRealMessage) {
  startThreeThatOnlyHear();
  const LoopbackSender stranger(port_);
  for (int each = 0; each < 120; ++each) {
    ASSERT_TRUE(stranger.send({"d", "14", project_, "Ede" + std::to_string(100 + each)}));
  }
  const auto start = std::chrono::steady_clock::now();
  run(*anna_, "say <All> hello");
  await(*ben_, "notification", {{"text", "hello"}});
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(60));
}

TEST_F(MessagesTest, ARequestRunsOnTheMachineItNamesAlone) {
  startThreeThatOnlyHear();
  run(*anna_, "request 12 identify");
  await(*ben_, "command", {{"name", "identify"}});
  settle(*carla_);
  EXPECT_TRUE(carla_->events("command").empty());
  EXPECT_TRUE(anna_->events("command").empty());
}

TEST_F(MessagesTest, ARequestReachesAMachineThatIsNotInNetworkMode) {
  startThreeThatOnlyHear();
  StationProcess& alone = start("DORA", 14, {"--network-mode", "off"});
  run(alone, "project enter Film");
  run(*anna_, "edit create Scene");
  run(*anna_, "request 14 identify");
  await(alone, "command", {{"name", "identify"}});
  for (const JsonValue& event : alone.events("changed")) {
    EXPECT_NE(event["origin"].asString(), "remote") << writeJson(event);
  }
  EXPECT_EQ(sentCount(alone), 0u);
}

TEST_F(MessagesTest, AStationOutsideNetworkModeSendsNothingOfItsOwn) {
  startThreeThatOnlyHear();
  StationProcess& alone = start("DORA", 14, {"--network-mode", "off"});
  run(alone, "project enter Film");
  run(alone, "edit create Mine");
  run(alone, "bin create Mine2");
  EXPECT_TRUE(alone.events("sent").empty());
}

TEST_F(MessagesTest, DatagramsThatAreNoMessagesHarmNobody) {
  startThreeThatOnlyHear();
  const std::string types[] = {"1", "2", "4", "5", "7", "15"};
  const std::string edit = run(*ben_, "edit create Scene").asString();
  for (const std::string& type : types) {
    send({type, "--project", project_, "--cookie", edit, "--data", "\x01garbage \xFF 99999999999"});
  }
  settle(*ben_);
  run(*ben_, "state");
  EXPECT_EQ(ben_->quit(), 0);
}

TEST_F(MessagesTest, WhomAStationHearsIsKeptInTheFolderThatItWasTold) {
  std::filesystem::create_directory(folder_ / "heard");
  StationProcess& anna = start("ANNA", 11, {"--share-heard", folder_ / "heard"});
  StationProcess& ben = start("BEN", 12);
  run(anna, "project create Film");
  for (StationProcess* station : {&anna, &ben}) run(*station, "project enter Film");
  const std::string edit = run(ben, "edit create Scene").asString();
  await(anna, "received", {{"cookie", edit}, {"type_name", "EditCreated"}});
  EXPECT_EQ(anna.quit(), 0);
  const ProgramRun mesh = runProgram({KV_SHARE, "mesh", folder_ / "heard", "--json"});
  EXPECT_EQ(mesh.status, 0) << mesh.errors;
  const auto json = parseJson(mesh.output);
  ASSERT_TRUE(json && (*json)["stations"].elements().size() == 1) << mesh.output;
  const JsonValue& list = (*json)["stations"].elements()[0];
  EXPECT_EQ(list["station"].asString(), "ANNA at ANNA");
  EXPECT_EQ(list["port"].asLong(), port_);
  EXPECT_EQ(list["strangers"].elements().size(), 1u) << mesh.output;  // BEN keeps no list
}

}  // namespace
