#include <filesystem>
#include <fstream>

#include "tests/share/SharedStations.h"

// What one station deletes and takes back, as the others see it.

using namespace korvel;

namespace {

class TrashShareTest : public SharedStations {
 protected:
  TrashShareTest() {
    startThree({"--set", "watch_seconds=0"});  // a look into the folder would forestall a message
    std::filesystem::copy_file(sample("simple_cut.otio"), folder_ / "cut.otio");
    edit_ = run(*anna_, "edit import " + (folder_ / "cut.otio")).asString();
    for (StationProcess* other : {ben_, carla_}) {
      await(*other, "changed", {{"what", "edit"}, {"cookie", edit_}, {"how", "created"}});
    }
    name_ = run(*anna_, "edit show " + edit_)["name"].asString();
  }

  static bool wasTold(const StationProcess& station, const std::string& part) {
    for (const JsonValue& event : station.events("log")) {
      if (event["text"].asString().find(part) != std::string::npos) return true;
    }
    return false;
  }

  void awaitEdit(StationProcess& station, const std::string& how) {
    await(station, "changed", {{"what", "edit"}, {"cookie", edit_}, {"how", how}});
  }

  /// The types of the messages that a station has sent.
  static std::vector<std::string> sentTypes(const StationProcess& station, std::size_t from) {
    std::vector<std::string> types;
    const auto sent = station.events("sent");
    for (std::size_t at = from; at < sent.size(); ++at) {
      types.push_back(sent[at]["type_name"].asString());
    }
    return types;
  }

  std::string edit_;
  std::string name_;
};

TEST_F(TrashShareTest, WhatIsDeletedAndTakenBackIsSoEverywhere) {
  const std::size_t before = anna_->events("sent").size();
  run(*anna_, "edit delete " + edit_);
  for (StationProcess* other : {ben_, carla_}) awaitEdit(*other, "destroyed");
  EXPECT_EQ(run(*ben_, "trash list").elements()[0]["by"].asString(), "ANNA");
  run(*anna_, "trash restore " + edit_);
  for (StationProcess* other : {ben_, carla_}) {
    awaitEdit(*other, "created");
    EXPECT_EQ(run(*other, "edit show " + edit_)["name"].asString(), name_);
    EXPECT_FALSE(run(*other, "edit may " + edit_)["allowed"].asBool());
  }
  EXPECT_EQ(sentTypes(*anna_, before), (std::vector<std::string>{"EditDeleted", "EditCreated"}));
}

TEST_F(TrashShareTest, WhoHasItOpenIsToldWhoDeletedItAndSavesACopy) {
  run(*ben_, "edit open " + edit_);
  run(*anna_, "edit delete " + edit_);
  awaitEdit(*ben_, "refreshed");
  EXPECT_TRUE(wasTold(*ben_, "ANNA deleted the edit"));
  EXPECT_TRUE(run(*ben_, "edit list").elements()[0]["deleted"].asBool());
  EXPECT_EQ(run(*ben_, "edit show " + edit_)["clips"].elements().size(), 4U);
  const std::string copy = run(*ben_, "edit save-copy " + edit_ + " Mine").asString();
  EXPECT_EQ(run(*ben_, "edit list").elements().size(), 1U);
  await(*anna_, "changed", {{"what", "edit"}, {"cookie", copy}, {"how", "created"}});
  EXPECT_EQ(run(*anna_, "edit list").elements()[0]["owner"].asString(), "BEN");
}

TEST_F(TrashShareTest, WhoHasItOpenGoesOnWhenItIsTakenBack) {
  run(*ben_, "edit open " + edit_);
  run(*anna_, "edit delete " + edit_);
  awaitEdit(*ben_, "refreshed");
  run(*anna_, "trash restore " + edit_);
  awaitEdit(*ben_, "refreshed");
  EXPECT_FALSE(run(*ben_, "edit list").elements()[0]["deleted"].asBool());
  run(*anna_, "edit rename " + edit_ + " Again");
  run(*anna_, "edit save Again");
  awaitEdit(*ben_, "reloaded");
  EXPECT_EQ(run(*ben_, "edit list").elements()[0]["name"].asString(), "Again");
}

TEST_F(TrashShareTest, ContainersAndFiltersComeBackEverywhere) {
  struct Row {
    const char* what;
    const char* made;
  };
  for (const Row& row : {Row{"bin", "bin create Rushes"}, Row{"rack", "rack create Shelf"},
                         Row{"filter", "filter create Day night"}}) {
    const std::string cookie = run(*anna_, row.made).asString();
    const auto told = [&](StationProcess& station, const char* how) {
      await(station, "changed", {{"what", row.what}, {"cookie", cookie}, {"how", how}});
    };
    for (StationProcess* each : {anna_, ben_}) told(*each, "created");
    run(*anna_, std::string(row.what) + " destroy " + cookie);
    told(*ben_, "destroyed");
    run(*ben_, "trash restore " + cookie);
    await(*anna_, "changed", {{"cookie", cookie}, {"how", "created"}, {"origin", "remote"}});
  }
  EXPECT_EQ(run(*anna_, "filter list").elements()[0]["filter"].asString(), "night");
}

TEST_F(TrashShareTest, OneOfTwoThatTakeBackAtOnceIsRefusedInWords) {
  for (int round = 0; round < 10; ++round) {
    run(*anna_, "edit delete " + edit_);
    for (StationProcess* each : {anna_, ben_, carla_}) each->type("trash restore " + edit_);
    int taken = 0;
    for (StationProcess* each : {anna_, ben_, carla_}) {
      const auto reply = each->waitFor("reply", {{"command", "trash restore"}});
      ASSERT_TRUE(reply);
      taken += (*reply)["ok"].asBool();
      const std::string& said = (*reply)["error"].asString();
      EXPECT_TRUE((*reply)["ok"].asBool() || said.find("no longer in the trash") != said.npos ||
                  said.find("is in the trash;") != said.npos || said.find("again") != said.npos)
          << said;
    }
    EXPECT_EQ(taken, 1);
    EXPECT_EQ(run(*anna_, "trash list").elements().size(), 0U);
    EXPECT_EQ(run(*anna_, "edit show " + edit_)["name"].asString(), name_);
  }
}

TEST_F(TrashShareTest, WhatIsTakenBackWhileAnotherEmptiesIsThereOrGoneNeverHalf) {
  for (int round = 0; round < 10; ++round) {
    const std::string made = run(*anna_, "edit create Reel").asString();
    run(*anna_, "edit delete " + made);
    ben_->type("trash restore " + made);
    anna_->type("trash empty");
    const auto back = ben_->waitFor("reply", {{"command", "trash restore"}});
    const auto emptied = anna_->waitFor("reply", {{"command", "trash empty"}});
    ASSERT_TRUE(back && emptied);
    const bool isBack = (*back)["ok"].asBool();
    EXPECT_EQ((*emptied)["result"]["removed"].asLong(), isBack ? 0 : 1);
    EXPECT_EQ(run(*anna_, "trash list").elements().size(), 0U);
    EXPECT_EQ(std::filesystem::exists(folder_ / ("projects/" + project_ + "/" + made + ".otio")),
              isBack);
    if (isBack) run(*anna_, "edit delete " + made);
    run(*anna_, "trash empty");
  }
}

TEST_F(TrashShareTest, AnotherStationsDeletionsAreKeptFromEmptying) {
  run(*anna_, "edit delete " + edit_);
  const JsonValue emptied = run(*ben_, "trash empty");
  EXPECT_EQ(emptied["removed"].asLong(), 0);
  EXPECT_EQ(emptied["kept"].asLong(), 1);
  EXPECT_NE(refusal(*ben_, "trash empty --older-than -1").find("Usage"), std::string::npos);
  EXPECT_NE(refusal(*ben_, "trash empty soon").find("Usage"), std::string::npos);
  EXPECT_EQ(run(*anna_, "trash empty")["removed"].asLong(), 1);
}

}  // namespace
