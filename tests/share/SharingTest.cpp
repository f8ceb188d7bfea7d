#include "tests/share/SharedStations.h"

using namespace korvel;

namespace {

constexpr const char* kEdit = "Figure 1 - Simple Cut List";  // as the sample calls itself

/// Three stations with the sample edit in their project, imported by anna. What they know of each
/// other they know by messages: a late one is not forestalled by a look into the folder.
class SharingTest : public SharedStations {
 protected:
  SharingTest() {
    startThree({"--set", "watch_seconds=0"});
    edit_ = run(*anna_, "edit import \"" + sample("simple_cut.otio") + "\"").asString();
    for (StationProcess* station : {ben_, carla_}) {
      await(*station, "received", {{"type_name", "EditCreated"}, {"cookie", edit_}});
      settle(*station);
    }
  }

  /// What a station lists of the sample edit.
  JsonValue listed(StationProcess& station) const {
    const JsonValue all = run(station, "edit list");
    for (const JsonValue& each : all.elements()) {
      if (each["cookie"].asString() == edit_) return each;
    }
    ADD_FAILURE() << station.options().user << " does not list it";
    return {};
  }

  /// The end of the first clip's shown range, in seconds.
  [[nodiscard]] double firstClipEnd(StationProcess& station) const {
    const JsonValue shown = run(station, "edit show " + edit_);
    return shown["clips"].elements().empty() ? -1 : shown["clips"].elements()[0]["end"].asDouble();
  }

  std::string edit_;
};

TEST_F(SharingTest, AnEditImportedOnOneIsListedOnTheOthers) {
  for (StationProcess* station : {ben_, carla_}) {
    EXPECT_EQ(listed(*station)["name"].asString(), kEdit);
    EXPECT_EQ(listed(*station)["owner"].asString(), "ANNA");
    await(*station, "changed", {{"what", "edit"}, {"cookie", edit_}, {"origin", "remote"}});
  }
}

TEST_F(SharingTest, ATrimShowsUnsavedOnTheStationThatHasTheEditOpen) {
  run(*anna_, "edit open " + edit_);
  run(*ben_, "edit open " + edit_);
  run(*anna_, "edit trim " + edit_ + " 0/0 0 0.125s");
  await(*ben_, "changed", {{"cookie", edit_}, {"how", "modified"}, {"origin", "remote"}});
  EXPECT_DOUBLE_EQ(firstClipEnd(*ben_), 0.125);
  EXPECT_TRUE(listed(*ben_)["dirty"].asBool());
  settle(*carla_);
  EXPECT_DOUBLE_EQ(firstClipEnd(*carla_), 0.25);  // it reads the file, where nothing is saved yet
}

TEST_F(SharingTest, ASavedEditIsReloadedOnTheOthers) {
  for (StationProcess* station : {anna_, ben_, carla_}) run(*station, "edit open " + edit_);
  run(*anna_, "edit trim " + edit_ + " 0/0 0 0.125s");
  run(*anna_, "edit save " + edit_);
  for (StationProcess* station : {ben_, carla_}) {
    await(*station, "changed", {{"cookie", edit_}, {"how", "reloaded"}, {"origin", "remote"}});
    EXPECT_DOUBLE_EQ(firstClipEnd(*station), 0.125);
    EXPECT_FALSE(listed(*station)["dirty"].asBool());
  }
}

TEST_F(SharingTest, ARenamedEditIsFoundByItsNewNameEverywhere) {
  run(*anna_, "edit open " + edit_);
  run(*ben_, "edit open " + edit_);
  run(*anna_, "edit rename " + edit_ + " \"Rough cut\"");
  await(*ben_, "changed", {{"cookie", edit_}, {"how", "modified"}});
  EXPECT_EQ(run(*ben_, "edit show \"Rough cut\"")["cookie"].asString(), edit_);
  run(*anna_, "edit save \"Rough cut\"");
  settle(*carla_);
  EXPECT_EQ(run(*carla_, "edit show \"Rough cut\"")["cookie"].asString(), edit_);
}

TEST_F(SharingTest, ADeletedEditIsGoneEverywhere) {
  run(*anna_, "edit delete " + edit_);
  for (StationProcess* station : {ben_, carla_}) {
    await(*station, "changed", {{"cookie", edit_}, {"how", "destroyed"}, {"origin", "remote"}});
    EXPECT_TRUE(run(*station, "edit list").elements().empty());
  }
}

TEST_F(SharingTest, ABinOrRackRewrittenOnOneReloadsOnTheRest) {
  for (const std::string kind : {"bin", "rack"}) {
    const std::string cookie = run(*anna_, kind + " create Dailies").asString();
    run(*anna_, kind + " add " + cookie + " " + edit_);
    for (StationProcess* station : {ben_, carla_}) {
      settle(*station);
      const JsonValue shown = run(*station, kind + " show " + cookie);
      EXPECT_NE(writeJson(shown).find(edit_), std::string::npos) << writeJson(shown);
      await(*station, "changed", {{"what", kind}, {"cookie", cookie}, {"origin", "remote"}});
    }
    run(*ben_, kind + " destroy " + cookie);
    await(*carla_, "changed", {{"what", kind}, {"cookie", cookie}, {"how", "destroyed"}});
    EXPECT_TRUE(run(*carla_, kind + " list").elements().empty());
  }
}

TEST_F(SharingTest, AFilterChangedOnOneIsReadAgainOnTheRest) {
  run(*anna_, "filter create Night \"scene < 10\"");
  run(*anna_, "filter change Night \"scene < 12\"");
  for (StationProcess* station : {ben_, carla_}) {
    settle(*station);
    EXPECT_NE(writeJson(run(*station, "filter list")).find("scene < 12"), std::string::npos);
  }
  run(*anna_, "filter destroy Night");
  settle(*ben_);
  EXPECT_TRUE(run(*ben_, "filter list").elements().empty());
}

TEST_F(SharingTest, OwnershipGivenTakesEffectEverywhere) {
  EXPECT_NE(refusal(*ben_, "edit trim " + edit_ + " 0/0 0 0.125s").find("ANNA"), std::string::npos);
  run(*anna_, "edit give " + edit_ + " BEN --force");
  for (StationProcess* station : {anna_, ben_, carla_}) {
    settle(*station);
    const JsonValue may = run(*station, "edit may " + edit_);
    EXPECT_EQ(may["owner"].asString(), "BEN") << station->options().user;
    EXPECT_EQ(may["allowed"].asBool(), station == ben_) << station->options().user;
  }
  run(*ben_, "edit open " + edit_);
  run(*ben_, "edit trim " + edit_ + " 0/0 0 0.125s");
  for (const char* line : {"edit trim ", "edit rename "}) {
    const std::string rest = line == std::string("edit trim ") ? " 0/0 0 0.3125s" : " Mine";
    EXPECT_NE(refusal(*anna_, line + edit_ + rest).find("BEN"), std::string::npos) << line;
  }
}

TEST_F(SharingTest, AnAdministratorTakesBackWhatWasGivenToAWrongName) {
  EXPECT_NE(refusal(*anna_, "edit give " + edit_ + " ANNABEN").find("--force"), std::string::npos);
  run(*anna_, "edit give " + edit_ + " ANNABEN --force");
  EXPECT_NE(refusal(*anna_, "edit give " + edit_ + " ANNA").find("ANNABEN"), std::string::npos);
  StationProcess& admin = start("ADMIN", 14, {"--set", "Administrator=1"});
  run(admin, "project enter Film");
  run(admin, "user add ANNA");
  run(admin, "edit give " + edit_ + " ANNA");
  for (StationProcess* station : {anna_, ben_}) {
    settle(*station);
    EXPECT_EQ(run(*station, "edit may " + edit_)["allowed"].asBool(), station == anna_);
  }
}

TEST_F(SharingTest, AStationThatAppliesARemoteChangeSendsNothing) {
  for (StationProcess* station : {ben_, carla_}) run(*station, "edit open " + edit_);
  run(*anna_, "edit open " + edit_);
  run(*anna_, "edit trim " + edit_ + " 0/0 0 0.125s");
  run(*anna_, "edit save " + edit_);
  run(*anna_, "bin create Dailies");
  run(*anna_, "bin add Dailies " + edit_);
  run(*anna_, "filter create Night dark");
  run(*anna_, "log create Shot");
  run(*anna_, "media add \"" + sample("simple_cut.otio") + "\"");
  run(*anna_, "edit give " + edit_ + " BEN --force");
  run(*anna_, "bin destroy Dailies");
  EXPECT_GE(sentCount(*anna_), 9u);
  for (StationProcess* station : {ben_, carla_}) {
    settle(*station);
    EXPECT_EQ(sentCount(*station), 0u) << writeJson(station->events("sent").back());
  }
}

TEST_F(SharingTest, AMessageComesToEachOtherStationOnceAndNeverBack) {
  for (int i = 0; i < 20; ++i) run(*anna_, "log create Shot" + std::to_string(i));
  for (StationProcess* station : {anna_, ben_, carla_}) settle(*station);
  const auto countCreated = [](const StationProcess& station, const char* event) {
    std::size_t count = 0;
    for (const JsonValue& each : station.events(event)) {
      if (each["type_name"].asString() == "EditCreated") ++count;
    }
    return count;
  };
  EXPECT_EQ(countCreated(*anna_, "sent"), 21u);
  EXPECT_EQ(countCreated(*anna_, "received"), 0u);
  EXPECT_EQ(countCreated(*ben_, "received"), 21u);
  EXPECT_EQ(countCreated(*carla_, "received"), 21u);
}

TEST_F(SharingTest, WhatIsMadeWhileAStationHearsNothingIsFoundWhereItIsNamed) {
  port_ = freeUdpPort();
  StationProcess& deaf = start("DAVE", 14);
  run(deaf, "project enter Film");
  const std::string reel = run(*anna_, "edit create Reel").asString();
  const std::string dailies = run(*anna_, "bin create Dailies").asString();
  run(*anna_, "bin add Dailies Reel");
  run(deaf, "edit open " + reel);
  EXPECT_EQ(run(deaf, "edit list").elements().size(), 2u);
  EXPECT_EQ(run(deaf, "bin show Dailies")["contents"].elements().at(0).asString(), reel);
  EXPECT_EQ(sentCount(deaf), 0u);
}

TEST_F(SharingTest, NamesOfEveryKindArriveAsTheyAre) {
  const std::string names[] = {"two words",
                               "it's \\\"quoted\\\"",
                               "\xC3\x84 \xC3\xB6\xC3\xBC\xC3\x9F",
                               "20 \xE2\x82\xAC",
                               std::string(300, 'n'),
                               "a/b",
                               ".hidden",
                               "..",
                               "#1",
                               "-x"};
  for (const std::string& name : names) {
    const std::string cookie = run(*anna_, "edit create \"" + name + "\"").asString();
    await(*ben_, "changed", {{"cookie", cookie}, {"how", "created"}});
    EXPECT_EQ(run(*ben_, "edit show \"" + name + "\"")["cookie"].asString(), cookie) << name;
  }
}

TEST_F(SharingTest, AStationThatWasKilledComesBackToTheProjectAsItIs) {
  run(*anna_, "edit open " + edit_);
  run(*anna_, "edit trim " + edit_ + " 0/0 0 0.125s");
  run(*anna_, "edit save " + edit_);
  run(*anna_, "edit trim " + edit_ + " 0/0 0 0.3125s");
  anna_->kill9();
  StationProcess& again = start("ANNA", 11);
  run(again, "project enter Film");
  EXPECT_DOUBLE_EQ(firstClipEnd(again), 0.125);
  run(again, "edit rename " + edit_ + " \"After the crash\"");
}

TEST_F(SharingTest, AStationKilledWhileItSavesLeavesTheOldEditOrTheNewOne) {
  for (int round = 0; round < 8; ++round) {
    StationProcess& victim = start("ANNA", 11);
    run(victim, "project enter Film");
    run(victim, "edit open " + edit_);
    for (int i = 0; i < 40; ++i) {
      victim.type("edit trim " + edit_ + " 0/0 0 " + (i % 2 == 0 ? "0.125s" : "0.3125s"));
      victim.type("edit save " + edit_);
    }
    const std::string saves = "edit save " + edit_;
    for (int i = 0; i < 2 + round; ++i) await(victim, "reply", {{"line", saves}});
    victim.kill9();
    StationProcess& again = start("ANNA", 11);
    run(again, "project enter Film");
    const double end = firstClipEnd(again);
    EXPECT_TRUE(end == 0.125 || end == 0.3125) << end;
    EXPECT_EQ(again.quit(), 0);
  }
}

}  // namespace
