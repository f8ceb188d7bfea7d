#include <gtest/gtest.h>

#include <csignal>
#include <fstream>

#include "tests/fakes/ScratchFolder.h"
#include "tests/support/StationProcess.h"

using namespace korvel;

namespace {

/// Two stations on one projects directory. Neither hears the other's datagrams.
class CatchUpShareTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(anna.waitUntilReady());
    ASSERT_TRUE(ben.waitUntilReady());
    run(anna, "project create Film");
    for (StationProcess* station : {&anna, &ben}) run(*station, "project enter Film");
  }

  /// Each has a port of its own, so that every datagram is lost for the other.
  [[nodiscard]] StationProcess::Options options(const std::string& user) const {
    return {KV_STATION, folder.path(), user, user, 0, freeUdpPort(), {}};
  }

  static JsonValue run(StationProcess& station, const std::string& line) {
    const JsonValue reply = station.command(line, std::chrono::minutes(2));
    EXPECT_TRUE(reply["ok"].asBool()) << line << ": " << writeJson(reply);
    return reply["result"];
  }

  /// Ben sees the change that anna made, without a message.
  void benFinds(const std::string& what, const std::string& how) {
    const auto found = ben.waitFor("changed", {{"what", what}, {"how", how}, {"origin", "folder"}},
                                   std::chrono::minutes(2));
    EXPECT_TRUE(found) << what << " " << how << ": " << ben.errorText();
  }

  /// Both show the same of the project, but for what is open or unsaved.
  void bothShowTheSame() {
    for (const char* part : {"edits", "bins", "racks", "filters", "media"}) {
      EXPECT_EQ(writeJson(run(anna, "state")[part]), writeJson(run(ben, "state")[part])) << part;
    }
    EXPECT_EQ(ben.events("received").size(), 0u);
  }

  ScratchFolder folder;
  StationProcess anna{options("ANNA")};
  StationProcess ben{options("BEN")};
};

TEST_F(CatchUpShareTest, AnEditIsFollowedFromItsMakingToItsEnd) {
  run(anna, "edit create Cut");
  benFinds("edit", "created");
  run(anna, "edit rename Cut New");
  run(anna, "edit save New");
  benFinds("edit", "refreshed");
  run(anna, "edit give New CARLA --force");
  benFinds("edit", "refreshed");
  bothShowTheSame();
  run(anna, "edit create Second");
  benFinds("edit", "created");
  run(anna, "edit delete Second");
  benFinds("edit", "destroyed");
  bothShowTheSame();
}

TEST_F(CatchUpShareTest, AnOpenEditIsReadAgainWhenItWasSavedElsewhere) {
  run(anna, "edit create Cut");
  benFinds("edit", "created");
  run(ben, "edit open Cut");
  run(anna, "edit rename Cut New");
  run(anna, "edit save New");
  benFinds("edit", "reloaded");
  EXPECT_EQ(run(ben, "edit show New")["name"].asString(), "New");
}

TEST_F(CatchUpShareTest, BinsRacksAndFiltersAreFollowed) {
  run(anna, "edit create Cut");
  for (const std::string word : {"bin", "rack"}) {
    run(anna, word + " create Rushes");
    benFinds(word, "created");
    run(anna, word + " add Rushes Cut");
    benFinds(word, "reloaded");
  }
  run(anna, "filter create Unused uses=0");
  benFinds("filter", "created");
  run(anna, "filter change Unused uses=1");
  benFinds("filter", "reloaded");
  bothShowTheSame();
  run(anna, "bin destroy Rushes");
  benFinds("bin", "destroyed");
  run(anna, "rack destroy Rushes");
  benFinds("rack", "destroyed");
  run(anna, "filter destroy Unused");
  benFinds("filter", "destroyed");
  bothShowTheSame();
}

TEST_F(CatchUpShareTest, MediaIsFollowed) {
  const std::string file = folder / "a.mov";
  std::ofstream(file) << "media";
  run(anna, "media add " + file);
  benFinds("media", "added");
  bothShowTheSame();
  run(anna, "media remove " + file);
  benFinds("media", "removed");
  bothShowTheSame();
}

TEST_F(CatchUpShareTest, RoomsAreFollowed) {
  run(anna, "room create Sound");
  benFinds("room", "refreshed");
  run(anna, "room enter Sound");
  benFinds("room", "refreshed");
  EXPECT_EQ(run(ben, "state")["rooms"].elements().at(0)["state"].asString(), "held");
  run(anna, "room leave");
  benFinds("room", "refreshed");
}

TEST_F(CatchUpShareTest, AStationThatWasStoppedFindsWhatHappenedMeanwhile) {
  ben.signal(SIGSTOP);
  run(anna, "edit create Cut");
  run(anna, "bin create Rushes");
  ben.signal(SIGCONT);
  benFinds("edit", "created");
  benFinds("bin", "created");
  bothShowTheSame();
}

}  // namespace
