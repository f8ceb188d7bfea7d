#include <algorithm>
#include <chrono>
#include <string>
#include <vector>

#include "station/base/Strings.h"
#include "tests/share/SharedStations.h"
#include "tests/support/LoopbackSender.h"

using namespace korvel;

namespace {

/// Stations that ask each other for what they hold.
class AsksTest : public SharedStations {
 protected:
  /// A station of this name that no datagram reaches, nor leaves.
  StationProcess& startDeaf(const std::string& name, int machine) {
    StationProcess::Options options;
    options.program = KV_STATION;
    options.projects = folder_ / "projects";
    options.user = options.host = name;
    options.machine = machine;
    options.port = freeUdpPort();
    stations_.push_back(std::make_unique<StationProcess>(std::move(options)));
    EXPECT_TRUE(stations_.back()->waitUntilReady());
    return *stations_.back();
  }

  static JsonValue awaitLong(StationProcess& station, const std::string& event, const Keys& keys) {
    const auto found = station.waitFor(event, keys, std::chrono::minutes(2));
    EXPECT_TRUE(found) << station.options().user << " saw no " << event;
    return found ? *found : JsonValue();
  }

  static std::size_t countOf(StationProcess& station, const std::string& event) {
    return station.events(event).size();
  }

  static std::string ownerOf(StationProcess& station, const std::string& edit) {
    return run(station, "edit show " + edit)["owner"].asString();
  }

  /// Sends an ask or answer as another's station would: `what` is its token's first word.
  void sendAsk(const std::string& from, const std::string& what, const std::string& id,
               const std::string& object, const std::string& text) {
    const bool isAskers = what == "ask" || what == "withdrawn";
    const std::string to = isAskers ? "ANNA" : "BEN";
    send({"user-message", "--source", from, "--target", to, "--data",
          from + " " + text + " [" + what + " " + id + " " + object + " " +
              std::to_string(text.size()) + "]"});
  }

  std::string cookieOf(const std::string& edit) {
    return run(*anna_, "edit show " + edit)["cookie"].asString();
  }

  /// ANNA's edit "Reel", which all three have.
  void makeReel() {
    startThree();
    run(*anna_, "edit create Reel");
    for (StationProcess* station : {ben_, carla_}) settle(*station);
  }
};

TEST_F(AsksTest, WhoIsAskedForAnEditGivesItWithItsUnsavedChanges) {
  makeReel();
  run(*anna_, "edit rename Reel Roll");
  settle(*ben_);
  const JsonValue mine = run(*ben_, "ask Reel \"dear Anna, please\"");
  EXPECT_EQ(mine["to"].asString(), "ANNA");
  EXPECT_TRUE(mine["own"].asBool());
  const JsonValue asked = await(*anna_, "asked", {{"from", "BEN"}});
  EXPECT_EQ(asked["name"].asString(), "Roll");  // as ANNA calls it by now
  EXPECT_EQ(asked["text"].asString(), "dear Anna, please");
  EXPECT_EQ(asked["words"].asString(), "BEN asks for the edit \"Roll\": dear Anna, please");
  EXPECT_EQ(run(*anna_, "asks").elements().size(), 1u);
  EXPECT_EQ(run(*carla_, "asks").elements().size(), 0u);
  run(*anna_, "answer " + std::to_string(asked["number"].asLong()) + " give \"here you are\"");
  const JsonValue answered = await(*ben_, "answered", {{"from", "ANNA"}});
  EXPECT_EQ(answered["answer"].asString(), "give");
  EXPECT_EQ(answered["words"].asString(), "ANNA gives you the edit \"Reel\": here you are");
  await(*ben_, "changed", {{"what", "permissions"}});
  EXPECT_EQ(ownerOf(*ben_, "Roll"), "BEN");
  EXPECT_FALSE(run(*anna_, "edit show Roll")["dirty"].asBool());
  for (StationProcess* station : {anna_, ben_}) {
    EXPECT_TRUE(run(*station, "asks").elements().empty());
    EXPECT_EQ(run(*station, "conversation").elements().size(), 2u);
  }
  // Neither the notes of the stations nor the messages tell it twice.
  EXPECT_EQ(countOf(*anna_, "asked"), 1u);
  EXPECT_EQ(countOf(*ben_, "answered"), 1u);
  EXPECT_TRUE(run(*carla_, "conversation").elements().empty());
}

TEST_F(AsksTest, AnAskAndItsAnswerArriveThoughEveryDatagramIsLost) {
  StationProcess& anna = startDeaf("ANNA", 11);
  StationProcess& ben = startDeaf("BEN", 12);
  for (const std::string line : {"project create Film", "project enter Film", "room create Cut 1",
                                 "room create \"S\xC3\xBC\xC3\x9F \xE2\x82\xAC\""}) {
    anna.command(line);
  }
  run(anna, "room enter \"S\xC3\xBC\xC3\x9F \xE2\x82\xAC\"");
  run(ben, "project enter Film");
  run(ben, "ask \"S\xC3\xBC\xC3\x9F \xE2\x82\xAC\" \"10 \xE2\x82\xAC for it\"");
  const JsonValue asked = awaitLong(anna, "asked", {{"from", "BEN"}});
  EXPECT_EQ(asked["kind"].asString(), "room");
  EXPECT_EQ(asked["object"].asString(), "S\xC3\xBC\xC3\x9F \xE2\x82\xAC");
  EXPECT_EQ(asked["text"].asString(), "10 \xE2\x82\xAC for it");
  run(anna, "answer " + std::to_string(asked["number"].asLong()) + " give");
  EXPECT_EQ(awaitLong(ben, "answered", {})["answer"].asString(), "give");
  run(ben, "room enter \"S\xC3\xBC\xC3\x9F \xE2\x82\xAC\"");
  // What is taken back is missing in the note.
  run(anna, "ask \"S\xC3\xBC\xC3\x9F \xE2\x82\xAC\"");
  awaitLong(ben, "asked", {});
  const JsonValue mine = run(anna, "asks").elements().at(0)["number"];
  run(anna, "answer " + std::to_string(mine.asLong()) + " no");
  awaitLong(ben, "withdrawn", {});
}

TEST_F(AsksTest, WhoIsAwayIsAskedOnReturnAlsoIfTheAskerStartedAgain) {
  makeReel();
  ASSERT_EQ(anna_->quit(), 0);
  EXPECT_FALSE(run(*ben_, "ask Reel")["here"].asBool());
  ASSERT_EQ(ben_->quit(), 0);
  StationProcess& ben = start("BEN", 12);
  ASSERT_EQ(run(ben, "asks").elements().size(), 1u);
  StationProcess& anna = start("ANNA", 11);
  const JsonValue asked = awaitLong(anna, "asked", {{"from", "BEN"}});
  run(anna, "project enter Film");
  run(anna, "answer " + std::to_string(asked["number"].asLong()) + " no \"at five\"");
  const JsonValue answered = awaitLong(ben, "answered", {});
  EXPECT_EQ(answered["answer"].asString(), "no");
  EXPECT_EQ(answered["text"].asString(), "at five");
  run(ben, "project enter Film");
  EXPECT_EQ(ownerOf(ben, "Reel"), "ANNA");
}

TEST_F(AsksTest, APrivateProjectIsLeftForWhoAsks) {
  startThree();
  run(*anna_, "project leave");
  run(*anna_, "project create Secret --private");
  run(*anna_, "project enter Secret");
  run(*ben_, "tell-when-free Secret");
  run(*ben_, "ask Secret");
  const JsonValue asked = await(*anna_, "asked", {{"kind", "project"}});
  run(*anna_, "answer " + std::to_string(asked["number"].asLong()) + " give");
  await(*ben_, "answered", {{"answer", "give"}});
  EXPECT_EQ(awaitLong(*ben_, "free", {})["name"].asString(), "Secret");
  run(*ben_, "project enter Secret");
}

TEST_F(AsksTest, WhoAsksAgainTakesTheFirstBackAndAWithdrawnAskIsGone) {
  makeReel();
  run(*ben_, "ask Reel one");
  await(*anna_, "asked", {{"text", "one"}});
  run(*ben_, "ask Reel two");
  await(*anna_, "asked", {{"text", "two"}});
  ASSERT_EQ(run(*anna_, "asks").elements().size(), 1u);
  const JsonValue mine = run(*ben_, "asks").elements().at(0);
  run(*ben_, "answer " + std::to_string(mine["number"].asLong()) + " no");
  awaitLong(*anna_, "withdrawn", {{"text", "two"}});
  EXPECT_TRUE(run(*anna_, "asks").elements().empty());
}

TEST_F(AsksTest, OfTwoAsksForOneThingTheLaterCountsInWhicheverOrderTheyCome) {
  makeReel();
  const std::string object = "edit " + cookieOf("Reel");
  const auto nowAsked = [this] {
    const JsonValue asks = run(*anna_, "asks");
    std::string texts;
    for (const JsonValue& each : asks.elements()) texts += each["text"].asString();
    return texts;
  };
  sendAsk("EVE", "ask", "0000000000000002", object, "two");
  await(*anna_, "asked", {{"text", "two"}});
  sendAsk("EVE", "ask", "0000000000000001", object, "one");
  sendAsk("EVE", "withdrawn", "0000000000000009", object, "");
  settle(*anna_);
  EXPECT_EQ(nowAsked(), "two");
  sendAsk("EVE", "withdrawn", "0000000000000002", object, "");
  await(*anna_, "withdrawn", {{"text", "two"}});
  sendAsk("EVE", "ask", "0000000000000001", object, "one");
  settle(*anna_);
  EXPECT_EQ(nowAsked(), "") << "a late copy";
  sendAsk("EVE", "ask", "0000000000000003", object, "three");
  await(*anna_, "asked", {{"text", "three"}});
  EXPECT_EQ(countOf(*anna_, "asked"), 2u);
}

TEST_F(AsksTest, AnAskForWhatCameAnotherWayIsTakenBack) {
  makeReel();
  run(*ben_, "ask Reel one");
  await(*anna_, "asked", {{"text", "one"}});
  run(*anna_, "edit give Reel BEN --force");
  EXPECT_EQ(awaitLong(*ben_, "free", {{"name", "Reel"}})["words"].asString(),
            "You can have the edit \"Reel\" now.");
  awaitLong(*anna_, "withdrawn", {{"name", "Reel"}});
  for (StationProcess* station : {anna_, ben_}) {
    EXPECT_TRUE(run(*station, "asks").elements().empty());
  }
  const auto said = run(*anna_, "conversation").elements();
  EXPECT_EQ(said.back()["text"].asString(), "BEN no longer asks for the edit \"Reel\"");
}

TEST_F(AsksTest, WhatIsDeletedIsNoLongerAwaited) {
  makeReel();
  run(*ben_, "tell-when-free Reel");
  run(*anna_, "edit delete Reel");
  await(*ben_, "changed", {{"what", "edit"}, {"how", "destroyed"}});
  await(*ben_, "log", {{"text", "Nobody waits for the edit \"Reel\" any more: it is gone."}});
}

TEST_F(AsksTest, WhatIsAwaitedIsListedAndIsEndedByItsNumber) {
  makeReel();
  run(*ben_, "tell-when-free Reel");
  run(*ben_, "tell-when-free Reel");
  const auto waiting = run(*ben_, "asks").elements();
  ASSERT_EQ(waiting.size(), 1u);
  EXPECT_TRUE(waiting[0]["awaited"].asBool());
  EXPECT_TRUE(waiting[0]["own"].asBool());
  EXPECT_EQ(waiting[0]["name"].asString(), "Reel");
  EXPECT_EQ(waiting[0]["to"].asString(), "ANNA");
  EXPECT_TRUE(run(*anna_, "asks").elements().empty()) << "she is asked for nothing";
  const std::string number = std::to_string(waiting[0]["number"].asLong());
  EXPECT_NE(refusal(*ben_, "answer " + number + " give").find("ends your waiting"),
            std::string::npos);
  run(*ben_, "answer " + number + " no");
  EXPECT_TRUE(run(*ben_, "asks").elements().empty());
  // Another thing that is awaited shows when it was looked whether anything is free.
  run(*anna_, "edit create Pier");
  settle(*ben_);
  run(*ben_, "tell-when-free Pier");
  for (const char* const name : {"Reel", "Pier"}) {
    run(*anna_, std::string("edit give ") + name + " BEN --force");
  }
  awaitLong(*ben_, "free", {{"name", "Pier"}});
  EXPECT_EQ(ben_->events("free").size(), 1u);
}

TEST_F(AsksTest, WhatCannotBeAskedForSaysWhy) {
  makeReel();
  run(*ben_, "edit create Mine");
  const auto says = [&](const std::string& line, const std::string& part) {
    const std::string said = refusal(*ben_, line);
    EXPECT_NE(said.find(part), said.npos) << line << ": " << said;
  };
  says("ask Mine", "Nobody else holds \"Mine\"");
  says("ask Nothing", "There is no edit, room or private project called \"Nothing\"");
  says("ask Reel " + std::string(301, 'x'), "301 bytes");
  says("answer 7 give", "No ask has the number 7");
  says("answer x give", "Usage: answer N give|no");
  says("tell-when-free Film", "Nobody else holds");
}

TEST_F(AsksTest, AThousandAsksAreFoldedIntoALine) {
  makeReel();
  const LoopbackSender eve(port_);
  int sent = 0;
  const auto ask = [&] {
    std::string id = std::to_string(sent++);
    id.insert(0, 16 - id.size(), '0');
    ASSERT_TRUE(eve.send({"d", "10", "", "EVE", "ANNA",
                          "EVE asks for the edit \"x\" [ask " + id + " edit E" + id + " 0]"}));
  };
  const auto timesTold = [this] {
    return std::ranges::count_if(anna_->events("log"), [](const JsonValue& log) {
      return log["text"].asString().find("EVE asks for very much") != std::string::npos;
    });
  };
  while (sent < 1000) ask();
  await(*anna_, "asked", {{"from", "EVE"}});
  settle(*anna_);
  // On a busy machine the network may have let no more of the flood through than are shown.
  while (timesTold() == 0 && sent < 1030) {
    ask();
    settle(*anna_);
  }
  EXPECT_EQ(timesTold(), 1);
  EXPECT_EQ(run(*anna_, "asks").elements().size(), 20u);
}

TEST_F(AsksTest, ManyAsksForOneThingPushNoWordsAway) {
  makeReel();
  const std::string reel = cookieOf("Reel");
  send({"user-message", "--source", "BEN", "--target", "ANNA", "--data", "dinner at five"});
  await(*anna_, "said", {{"text", "dinner at five"}});
  for (int i = 0; i < 200; ++i) {
    const std::string word = std::to_string(100 + i);
    sendAsk("EVE", "ask", "0000000000000" + word, "edit " + reel, word);
  }
  settle(*anna_);
  const JsonValue asks = run(*anna_, "asks");
  ASSERT_EQ(asks.elements().size(), 1u);
  EXPECT_EQ(asks.elements()[0]["text"].asString(), "299");
  const JsonValue said = run(*anna_, "conversation");
  EXPECT_EQ(said.elements()[0]["text"].asString(), "dinner at five");
  std::vector<long> whens;
  for (const JsonValue& each : said.elements()) {
    if (each["from"].asString() == "EVE") whens.push_back(each["when"].asLong());
  }
  // Twenty in any minute, however many minutes a busy machine needs for them all.
  EXPECT_GE(whens.size(), 20u);
  for (std::size_t i = 20; i < whens.size(); ++i) EXPECT_GE(whens[i] - whens[i - 20], 60);
  EXPECT_EQ(countOf(*anna_, "withdrawn"), 0u) << "nobody took anything back";
}

TEST_F(AsksTest, AnAnswerThatCrossesWithATakenBackAskIsTold) {
  makeReel();
  run(*ben_, "ask Reel one");
  const JsonValue asked = await(*anna_, "asked", {{"from", "BEN"}});
  const JsonValue mine = run(*ben_, "asks").elements().at(0)["number"];
  run(*ben_, "answer " + std::to_string(mine.asLong()) + " no");
  const std::string object = "edit " + asked["object"].asString();
  sendAsk("EVE", "given", asked["id"].asString(), object, "ha");
  sendAsk("ANNA", "kept", asked["id"].asString(), object, "at five");
  const JsonValue answered = await(*ben_, "answered", {{"from", "ANNA"}});
  EXPECT_EQ(answered["words"].asString(), "ANNA keeps the edit \"Reel\" for now: at five");
  // Of an ask that nobody knows any more the words are words all the same, once.
  for (int i = 0; i < 2; ++i) sendAsk("ANNA", "kept", "00000000000000aa", object, "never");
  await(*ben_, "said", {{"from", "ANNA"}, {"text", "ANNA never"}});
  settle(*ben_);
  const auto said = run(*ben_, "conversation").elements();
  EXPECT_EQ(
      std::ranges::count_if(
          said, [](const JsonValue& each) { return each["text"].asString() == "ANNA never"; }),
      1);
  EXPECT_EQ(countOf(*ben_, "answered"), 1u) << "EVE answers for nobody";
}

TEST_F(AsksTest, WhatSharesItsNameIsAskedForByItsKind) {
  makeReel();
  run(*anna_, "room create Reel");
  run(*anna_, "room enter Reel");
  settle(*ben_);
  const std::string said = refusal(*ben_, "ask Reel");
  EXPECT_NE(said.find("may be the edit \"Reel\""), said.npos) << said;
  EXPECT_NE(said.find("\"room:\""), said.npos) << said;
  EXPECT_EQ(run(*ben_, "ask room:Reel")["kind"].asString(), "room");
  EXPECT_EQ(run(*ben_, "ask edit:Reel")["kind"].asString(), "edit");
  EXPECT_EQ(run(*ben_, "ask " + cookieOf("Reel"))["kind"].asString(), "edit");
}

TEST_F(AsksTest, AProjectIsAskedForByTheNameThatItHasHere) {
  startThree();
  sendAsk("BEN", "ask", "0123456789abcdef", "project " + project_, "please");
  EXPECT_EQ(await(*anna_, "asked", {})["name"].asString(), "Film");
}

// Whose station knows nothing of asks reads and writes nothing but words.
TEST_F(AsksTest, AtAPlainStationAsksAreWordsAndItsWordsArriveOnce) {
  makeReel();
  run(*ben_, "ask Reel \"till five\"");
  const std::string data =
      await(*anna_, "received", {{"type_name", "UserMessage"}, {"source", "BEN"}})["data"]
          .asString();
  EXPECT_TRUE(data.starts_with("BEN asks for the edit \"Reel\": till five [ask ")) << data;
  send({"user-message", "--source", "ANNA", "--target", "BEN", "--data", "yes, take it"});
  await(*ben_, "said", {{"from", "ANNA"}, {"text", "yes, take it"}});
  settle(*ben_);
  EXPECT_EQ(countOf(*ben_, "answered"), 0u);
  EXPECT_EQ(run(*ben_, "asks").elements().size(), 1u) << "words are no answer";
  EXPECT_EQ(run(*ben_, "conversation ANNA").elements().size(), 2u);
}

TEST_F(AsksTest, WordsThatBeginWithASmallDAreShownAsTyped) {
  startThree();
  run(*ben_, "panel open");
  run(*anna_, "say BEN \"dinner?\"");
  await(*ben_, "said", {{"text", "dinner?"}});
  await(*ben_, "notification", {{"text", " dinner?"}});
  const JsonValue own = run(*anna_, "conversation BEN");
  ASSERT_EQ(own.elements().size(), 1u);
  EXPECT_EQ(own.elements()[0]["text"].asString(), "dinner?");
  EXPECT_TRUE(run(*carla_, "conversation").elements().empty());
}

TEST_F(AsksTest, WordsThatMessagesCannotCarryDoNotSpoilAnAsk) {
  makeReel();
  run(*ben_, "ask Reel \"10 \xE2\x82\xAC, please\"");
  const JsonValue asked = await(*anna_, "asked", {{"from", "BEN"}});
  EXPECT_EQ(asked["name"].asString(), "Reel");
  const std::string text = asked["text"].asString();
  EXPECT_TRUE(text == "10 ?, please" || text == "10 \xE2\x82\xAC, please") << text;
}

TEST_F(AsksTest, AnAnswerWaitsForAnAskerWhoIsAwayAlsoOverARestart) {
  makeReel();
  run(*ben_, "ask Reel");
  const JsonValue asked = await(*anna_, "asked", {{"from", "BEN"}});
  ASSERT_EQ(ben_->quit(), 0);
  run(*anna_, "answer " + std::to_string(asked["number"].asLong()) + " no \"at five\"");
  ASSERT_EQ(anna_->quit(), 0);
  StationProcess& anna = start("ANNA", 11);
  StationProcess& ben = start("BEN", 12);
  EXPECT_EQ(awaitLong(ben, "answered", {})["text"].asString(), "at five");
  EXPECT_TRUE(run(anna, "asks").elements().empty());
}

TEST_F(AsksTest, AnAskThatWasReplacedStaysGoneAfterARestart) {
  makeReel();
  run(*ben_, "ask Reel one");
  run(*ben_, "ask Reel two");
  ASSERT_EQ(ben_->quit(), 0);
  StationProcess& ben = start("BEN", 12);
  const JsonValue asks = run(ben, "asks");
  ASSERT_EQ(asks.elements().size(), 1u);
  EXPECT_EQ(asks.elements()[0]["text"].asString(), "two");
}

TEST_F(AsksTest, WhatIsGivenIsWhatTheCookieSaysAndNothingElse) {
  makeReel();
  const std::string id = "0123456789abcdef";
  send({"user-message", "--source", "BEN", "--target", "ANNA", "--data",
        "BEN asks for the edit \"Junk\" [ask " + id + " edit Reel 0]"});
  const JsonValue asked = await(*anna_, "asked", {{"id", id}});
  const std::string said =
      refusal(*anna_, "answer " + std::to_string(asked["number"].asLong()) + " give");
  EXPECT_NE(said.find("does not hold the edit \"Junk\""), said.npos) << said;
  EXPECT_EQ(ownerOf(*anna_, "Reel"), "ANNA");
}

TEST_F(AsksTest, EventsOfTalkHaveTheTimeOfEvents) {
  makeReel();
  run(*ben_, "ask Reel");
  const JsonValue asked = await(*anna_, "asked", {});
  EXPECT_TRUE(asked["time"].isNumber());
  EXPECT_GT(asked["when"].asLong(), 0);
}

}  // namespace
