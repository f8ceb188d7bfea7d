#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>

#include "tests/fakes/ScratchFolder.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/StationProcess.h"

using namespace korvel;

namespace {

/// Stations on one projects directory that hear no datagram of each other.
class PresenceShareTest : public testing::Test {
 protected:
  [[nodiscard]] StationProcess::Options options(const std::string& user,
                                                const std::string& host) const {
    return {KV_STATION, folder.path(), user, host, 0, freeUdpPort(), {}};
  }

  static JsonValue run(StationProcess& station, const std::string& line) {
    const JsonValue reply = station.command(line, std::chrono::minutes(2));
    EXPECT_TRUE(reply["ok"].asBool()) << line << ": " << writeJson(reply);
    return reply["result"];
  }

  static std::optional<JsonValue> await(StationProcess& station, const StationProcess::Keys& keys) {
    return station.waitFor("presence", keys, std::chrono::minutes(2));
  }

  ScratchFolder folder;
  StationProcess anna{options("ANNA", "ANNA")};
};

TEST_F(PresenceShareTest, AStationIsSeenComingWorkingAndGoing) {
  ASSERT_TRUE(anna.waitUntilReady());
  StationProcess ben(options("BEN", "BEN"));
  ASSERT_TRUE(ben.waitUntilReady());
  ASSERT_TRUE(await(anna, {{"how", "came"}, {"user", "BEN"}}));
  EXPECT_EQ(run(anna, "wait presence how=came")["user"].asString(), "BEN");
  run(ben, "project create Film");
  run(ben, "project enter Film");
  ASSERT_TRUE(await(anna, {{"how", "changed"}, {"project", "Film"}}));
  run(ben, "edit create Cut");
  run(ben, "edit open Cut");
  run(ben, "edit rename Cut New");
  std::optional<JsonValue> changed;
  do {
    changed = await(anna, {{"how", "changed"}, {"user", "BEN"}});
    ASSERT_TRUE(changed);
  } while ((*changed)["unsaved"].elements().empty());
  const JsonValue who = run(anna, "who");
  ASSERT_EQ(who.elements().size(), 2u);
  EXPECT_TRUE(who.elements()[0]["self"].asBool());
  EXPECT_EQ(who.elements()[1]["user"].asString(), "BEN");
  EXPECT_EQ(who.elements()[1]["state"].asString(), "here");
  EXPECT_EQ(ben.quit(), 0);
  ASSERT_TRUE(await(anna, {{"how", "went"}, {"user", "BEN"}}));
  EXPECT_EQ(run(anna, "who --all").elements().size(), 1u);
}

TEST_F(PresenceShareTest, AKilledStationIsGoneWithoutGoodbye) {
  ASSERT_TRUE(anna.waitUntilReady());
  StationProcess ben(options("BEN", "BEN"));
  ASSERT_TRUE(ben.waitUntilReady());
  ASSERT_TRUE(await(anna, {{"how", "came"}, {"user", "BEN"}}));
  ben.kill9();
  EXPECT_EQ(run(anna, "who").elements().size(), 1u);
  const JsonValue all = run(anna, "who --all");
  ASSERT_EQ(all.elements().size(), 2u);
  EXPECT_EQ(all.elements()[1]["state"].asString(), "gone without goodbye");
  EXPECT_TRUE(await(anna, {{"how", "went"}, {"state", "gone without goodbye"}}));
}

TEST_F(PresenceShareTest, ASecondStationOfTheSameUserIsToldAtItsStart) {
  ASSERT_TRUE(anna.waitUntilReady());
  StationProcess again(options("ANNA", "OTHER"));
  ASSERT_TRUE(again.waitUntilReady());
  EXPECT_TRUE(becomesTrue([&] {
    return again.errorText().find("Another station has the same user name already") !=
           std::string::npos;
  })) << again.errorText();
}

TEST_F(PresenceShareTest, ChangesWithoutMessagesAreToldAsBeingCutOff) {
  ASSERT_TRUE(anna.waitUntilReady());
  StationProcess ben(options("BEN", "BEN"));
  ASSERT_TRUE(ben.waitUntilReady());
  ASSERT_TRUE(await(anna, {{"how", "came"}, {"user", "BEN"}}));
  run(ben, "project create Film");
  run(ben, "project enter Film");
  run(anna, "project enter Film");
  for (const char* name : {"One", "Two", "Three"}) {
    run(ben, std::string("edit create ") + name);
    ASSERT_TRUE(anna.waitFor("changed", {{"how", "created"}, {"origin", "folder"}},
                             std::chrono::minutes(2)));
  }
  const auto health = anna.waitFor("health", {{"network", "bad"}}, std::chrono::minutes(2));
  ASSERT_TRUE(health);
  EXPECT_NE((*health)["why"].asString().find("You seem to be cut off"), std::string::npos);
  EXPECT_EQ(run(anna, "state")["health"]["network"].asString(), "bad");
  EXPECT_EQ(run(anna, "state")["health"]["share"].asString(), "good");
}

}  // namespace
