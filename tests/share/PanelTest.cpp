#include <gtest/gtest.h>

#include <algorithm>

#include "tests/fakes/ScratchFolder.h"
#include "tests/support/StationProcess.h"

using namespace korvel;

namespace {

/// Two stations of the users ANNA and BEN on one projects directory, who know of each other.
class PanelTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(anna.waitUntilReady());
    ASSERT_TRUE(ben.waitUntilReady());
    ASSERT_TRUE(anna.command("user add BEN")["ok"].asBool());
  }

  [[nodiscard]] StationProcess::Options options(const std::string& user) const {
    return {KV_STATION, folder.path(), user, user, 0, port, {}};
  }

  int port = freeUdpPort();
  ScratchFolder folder;
  StationProcess anna{options("ANNA")};
  StationProcess ben{options("BEN")};
};

TEST_F(PanelTest, OrdinaryWordsToOneUserAreANotificationThere) {
  EXPECT_TRUE(anna.command("say BEN \"lunch at one?\"")["ok"].asBool());
  ASSERT_TRUE(ben.waitFor("notification", {{"text", "lunch at one?"}}));
  EXPECT_TRUE(anna.waitFor("panel"));
  EXPECT_EQ(anna.command("panel lines")["result"].elements().at(0).asString(), " : lunch at one?");
  const JsonValue kept = ben.command("notifications");
  ASSERT_EQ(kept["result"].elements().size(), 1u);
  EXPECT_EQ(kept["result"].elements()[0]["text"].asString(), "lunch at one?");
  EXPECT_EQ(anna.quit(), 0);
  EXPECT_EQ(ben.quit(), 0);
}

TEST_F(PanelTest, ALongMessageArrivesWholeAndAnImpossibleOneIsTold) {
  const std::string longest(60'000, 'x');
  EXPECT_TRUE(anna.command("say BEN " + longest)["ok"].asBool());
  ASSERT_TRUE(ben.waitFor("notification", {{"text", longest}}));
  EXPECT_TRUE(anna.command("say BEN " + std::string(70'000, 'y'))["ok"].asBool());
  EXPECT_TRUE(anna.waitFor("network"));
}

// A text that begins as a wire text does is the panel's own; one that is none is reported. What
// travels as words ends at its first separator, so that a whole wire text reaches no other station.
TEST_F(PanelTest, WordsThatBeginLikeAWireTextAreReportedByThePanelThereAndNotified) {
  EXPECT_TRUE(ben.command("panel open")["ok"].asBool());
  for (const std::string line : {"panel open", "panel to BEN",
                                 "panel type \"d\xC2\xAC"
                                 "10\xC2\xAC"
                                 "ANNA\"",
                                 "panel return"}) {
    EXPECT_TRUE(anna.command(line)["ok"].asBool()) << line;
  }
  EXPECT_TRUE(ben.waitFor("received", {{"type_name", "UserMessage"}}));
  EXPECT_TRUE(anna.command("say BEN after")["ok"].asBool());
  EXPECT_TRUE(ben.waitFor("notification", {{"text", "after"}}));
  // What came of the words up to their first separator is not lost.
  const auto notified = ben.events("notification");
  ASSERT_EQ(notified.size(), 2u);
  EXPECT_EQ(notified[0]["text_hex"].asString(), "64c2");
  EXPECT_TRUE(notified[0]["cut"].asBool());
  EXPECT_EQ(notified[0]["source"].asString(), "ANNA");
  const JsonValue said = ben.command("conversation")["result"];
  EXPECT_TRUE(said.elements()[0]["cut"].asBool()) << writeJson(said);
  EXPECT_FALSE(said.elements()[1]["cut"].asBool()) << writeJson(said);
  EXPECT_TRUE(ben.command("panel lines")["result"].elements().empty());
  const auto logs = ben.events("log");
  EXPECT_TRUE(std::ranges::any_of(logs, [](const JsonValue& log) {
    return log["text"].asString().find("Messager line 294") != std::string::npos;
  }));
}

TEST_F(PanelTest, CommandsOnAClosedPanelSayWhatToDo) {
  const JsonValue typed = anna.command("panel type x");
  EXPECT_FALSE(typed["ok"].asBool());
  EXPECT_NE(typed["error"].asString().find("panel open"), std::string::npos);
  EXPECT_TRUE(anna.command("panel open")["ok"].asBool());
  EXPECT_TRUE(anna.command("panel to ben")["ok"].asBool());
  const JsonValue stranger = anna.command("panel to carl");
  EXPECT_NE(stranger["error"].asString().find("\"carl\""), std::string::npos);
  EXPECT_EQ(anna.command("panel show")["result"]["recipient"].asString(), "BEN");
  EXPECT_TRUE(anna.command("panel close")["ok"].asBool());
}

}  // namespace
