#include "app/program/Console.h"

#include <gtest/gtest.h>

#include <deque>
#include <future>
#include <stdexcept>
#include <thread>

#include "app/commands/Commands.h"
#include "tests/support/IdleStation.h"

using namespace korvel;

namespace {

/// Gives out prepared lines.
class PreparedLines : public iLineReader {
 public:
  std::optional<std::string> next() override {
    if (lines.empty()) return std::nullopt;
    std::string line = lines.front();
    lines.pop_front();
    return line;
  }
  [[nodiscard]] std::string place() const override { return {}; }
  [[nodiscard]] bool isInteractive() const override { return interactive; }

  std::deque<std::string> lines;
  bool interactive = false;
};

class KeptReplies : public iEventSink {
 public:
  void take(const StationEvent& event) override { replies.push_back(event.value); }
  std::vector<JsonValue> replies;
};

/// A console with a host thread and a few commands; what it writes for people goes nowhere.
class ConsoleTest : public testing::Test {
 protected:
  ConsoleTest() {
    events.addSink(kept);
    events.addSink(history);
    addConsoleCommands(commands,
                       {waiter, history, [](const std::string& name) { return "E" + name; }});
    add("where", 0, [this](Station&, const Arguments&) -> Result<JsonValue> {
      return JsonValue(std::this_thread::get_id() == host.get_id());
    });
    add("fail", 0, [](Station&, const Arguments&) -> Result<JsonValue> {
      return Error{ErrorCode::eRefused, "ANNA owns it.", {}};
    });
    add("throw", 0, [](Station&, const Arguments&) -> Result<JsonValue> {
      throw std::runtime_error("broken");
    });
    add("edit trim", 2, [this](Station&, const Arguments& words) -> Result<JsonValue> {
      events.command(words[0] + "|" + words[1]);
      return JsonValue();
    });
    host = std::thread([this] { station.hostThread().run(); });
  }
  ~ConsoleTest() override {
    station.hostThread().stop();
    host.join();
    std::fclose(nowhere);
  }

  void add(const char* name, std::size_t words,
           std::function<Result<JsonValue>(Station&, const Arguments&)> run) {
    commands.add({name, words == 0 ? "" : "E CLIP", "", words, words, std::move(run)});
  }

  int run(std::deque<std::string> lines) {
    reader.lines = std::move(lines);
    Console console({station, commands, events, text, waiter, keepsGoing});
    return console.run(reader);
  }

  [[nodiscard]] std::string error(std::size_t i) const {
    return kept.replies.at(i)["error"].asString();
  }

  IdleStation idle;
  Station& station = idle.station;
  Waiter waiter;
  EventHistory history{waiter};
  KeptReplies kept;
  EventWriter events;
  CommandTable commands;
  std::FILE* nowhere = std::fopen("/dev/null", "w");
  TextOutput text{nowhere, nowhere};
  PreparedLines reader;
  bool keepsGoing = false;
  std::thread host;
};

TEST_F(ConsoleTest, CommandsRunOnTheHostThread) {
  EXPECT_EQ(run({"where"}), 0);
  ASSERT_EQ(kept.replies.size(), 1u);
  EXPECT_TRUE(kept.replies[0]["ok"].asBool());
  EXPECT_TRUE(kept.replies[0]["result"].asBool());
}

TEST_F(ConsoleTest, NotificationsAreShownAsFarAsTheyCanBeRead) {
  JsonValue came = JsonValue::array();
  came.append(JsonValue::object(
      {{"time", "12:04"}, {"from", "ANNA"}, {"text_hex", "636f7374732035e282"}, {"cut", true}}));
  const std::string shown = commands.all().at("notifications").show(station, {}, came);
  EXPECT_NE(shown.find("ANNA"), std::string::npos) << shown;
  EXPECT_NE(shown.find("costs 5"), std::string::npos) << shown;
  EXPECT_NE(shown.find("(cut here)"), std::string::npos) << shown;
  EXPECT_EQ(shown.find("636f"), std::string::npos) << shown;
}

TEST_F(ConsoleTest, TheReplyComesAfterWhatTheCommandCaused) {
  EXPECT_EQ(run({"  edit trim 'Scene 1' 2 # shorter"}), 0);
  ASSERT_EQ(kept.replies.size(), 2u);
  EXPECT_EQ(kept.replies[0]["name"].asString(), "Scene 1|2");
  EXPECT_EQ(kept.replies[1]["event"].asString(), "reply");
  EXPECT_EQ(kept.replies[1]["line"].asString(), "  edit trim 'Scene 1' 2 # shorter");
  EXPECT_EQ(kept.replies[1]["command"].asString(), "edit trim");
}

TEST_F(ConsoleTest, AScriptEndsAtTheFirstFailure) {
  EXPECT_EQ(run({"where", "fail", "where"}), 1);
  ASSERT_EQ(kept.replies.size(), 2u);
  EXPECT_EQ(error(1), "ANNA owns it.");
}

TEST_F(ConsoleTest, AScriptThatKeepsGoingRunsAllAndEndsWithAFailureIfThereWasOne) {
  keepsGoing = true;
  EXPECT_EQ(run({"fail", "where"}), 1);
  EXPECT_EQ(kept.replies.size(), 2u);
  EXPECT_EQ(run({"where"}), 0);
}

TEST_F(ConsoleTest, AScriptThatKeepsGoingAndQuitsEndsWell) {
  keepsGoing = true;
  EXPECT_EQ(run({"fail", "quit"}), 0);
}

TEST_F(ConsoleTest, APersonGoesOnAfterAFailure) {
  reader.interactive = true;
  EXPECT_EQ(run({"fail", "where"}), 0);
  EXPECT_EQ(kept.replies.size(), 2u);
}

TEST_F(ConsoleTest, WhatACommandThrowsIsAFailure) {
  EXPECT_EQ(run({"throw"}), 1);
  EXPECT_NE(error(0).find("broken"), std::string::npos);
}

TEST_F(ConsoleTest, EmptyLinesAndCommentsHaveNoReply) {
  EXPECT_EQ(run({"", "   ", "# nothing"}), 0);
  EXPECT_TRUE(kept.replies.empty());
}

TEST_F(ConsoleTest, WhatCannotBeRunSaysWhatToDoInstead) {
  struct Row {
    const char* line;
    const char* part;
  };
  keepsGoing = true;
  const Row rows[] = {{"wheer", "There is no command \"wheer\"; did you mean \"where\"?"},
                      {"edit tirm A B", "\"edit tirm\"; did you mean \"edit trim\"?"},
                      {"edit", "there are edit trim."},
                      {"exit", "There is no command \"exit\"; \"quit\" ends the station."},
                      {"ls", "\"project list\" shows the projects"},
                      {"trim edit 'Scene 1' 2", "did you mean \"edit trim \"Scene 1\" 2\"?"},
                      {"trim edits", "did you mean \"edit trim\"?"},
                      {"frobnicate", "\"help\" lists all."},
                      {"w\x1B[2J\xC2\x9B\xFF", "There is no command \"w?[2J??\""},
                      {"trim edit \x1B", "did you mean \"edit trim ?\"?"},
                      {"edit trim A", "needs more words; usage: edit trim E CLIP"},
                      {"edit trim A B C", "takes fewer words; usage: edit trim E CLIP"},
                      {"where 'x", "never closed"}};
  for (const Row& row : rows) {
    kept.replies.clear();
    run({row.line});
    ASSERT_EQ(kept.replies.size(), 1u) << row.line;
    EXPECT_NE(error(0).find(row.part), std::string::npos) << error(0);
  }
}

TEST(ShortCookies, AreAsLongAsTellsThemApart) {
  const auto row = [](const char* cookie) { return JsonValue::object({{"cookie", cookie}}); };
  JsonValue list = JsonValue::array();
  for (const char* cookie : {"E0123456789A0", "E0123456789B0", "E9999999999C0"})
    list.append(row(cookie));
  const JsonValue shown = withShortCookies(list);
  EXPECT_EQ(shown.elements()[0]["cookie"].asString(), "E0123456789A");
  EXPECT_EQ(shown.elements()[2]["cookie"].asString(), "E9999999999C");
  JsonValue alone = JsonValue::array();
  alone.append(row("E0123456789A0"));
  EXPECT_EQ(withShortCookies(alone).elements()[0]["cookie"].asString(), "E0123456");
  EXPECT_EQ(withShortCookies(JsonValue("text")).asString(), "text");
}

TEST(ShortCookies, AreShortWhereverTheyStand) {
  const std::string edit = "E437b81f4b3d04882af62d0db00000001";
  const std::string bin = "B437b81f4b3d04882af62d0db00000002";
  JsonValue contents = JsonValue::array();
  contents.append(edit);
  JsonValue bins = JsonValue::array();
  bins.append(JsonValue::object({{"cookie", bin}, {"name", edit}, {"contents", contents}}));
  const JsonValue shown = withShortCookies(
      JsonValue::object({{"project", JsonValue::object({{"cookie", "P1"}})}, {"bins", bins}}));
  EXPECT_EQ(shown["project"]["cookie"].asString(), "P1");
  const JsonValue& row = shown["bins"].elements().at(0);
  EXPECT_EQ(row["cookie"].asString(), "B437b81f");
  EXPECT_EQ(row["name"].asString(), edit) << "a name is no cookie";
  EXPECT_EQ(row["contents"].elements().at(0).asString(), "E437b81f");
}

TEST(SortedByName, DoesNotMindCapitals) {
  JsonValue list = JsonValue::array();
  for (const char* name : {"beta", "Alpha", "Gamma", "alpha"})
    list.append(JsonValue::object({{"name", name}}));
  std::string names;
  const JsonValue sorted = sortedByName(list);
  for (const JsonValue& each : sorted.elements()) names += each["name"].asString() + " ";
  EXPECT_EQ(names, "Alpha alpha beta Gamma ");
}

TEST_F(ConsoleTest, QuitEndsTheScript) {
  EXPECT_EQ(run({"quit", "fail"}), 0);
  EXPECT_EQ(kept.replies.size(), 1u);
  EXPECT_TRUE(waiter.isEnding());
}

TEST_F(ConsoleTest, WaitFindsAnEventByACookieOrItsName) {
  events.changed("edit", Cookie("E0001", false), "created", Origin::eLocal);
  events.changed("edit", Cookie("E0001", false), "modified", Origin::eLocal);
  EXPECT_EQ(run({"wait changed cookie=0001 how=modified", "wait changed cookie=E0001"}), 0);
}

TEST_F(ConsoleTest, WaitSaysWhatIsWrongWithItsWords) {
  struct Row {
    const char* line;
    const char* part;
  };
  keepsGoing = true;
  for (const Row& row :
       {Row{"wait chnged", "is no event; there are ready,"}, Row{"wait sent type", "no KEY=VALUE"},
        Row{"wait sent --timeout", "needs a number"},
        Row{"wait sent --timeout x", "no number of seconds"},
        Row{"sleep -1", "no number of seconds"}}) {
    kept.replies.clear();
    run({row.line});
    ASSERT_EQ(kept.replies.size(), 1u);
    EXPECT_NE(error(0).find(row.part), std::string::npos) << error(0);
  }
}

TEST_F(ConsoleTest, WaitFailsAfterItsTimeAndDoesNotBlockTheHostThread) {
  bool ran = false;
  station.hostThread().post([&] { ran = true; });
  EXPECT_EQ(run({"wait sent type=2 --timeout 0.05"}), 1);
  EXPECT_NE(error(0).find("sent type=2 --timeout 0.05"), std::string::npos) << error(0);
  EXPECT_EQ(run({"where"}), 0);
  EXPECT_TRUE(ran);
}

TEST_F(ConsoleTest, ACommandThatOutlivesTheConsoleStillReplies) {
  std::promise<void> goOn;
  add("slow", 0, [&](Station&, const Arguments&) -> Result<JsonValue> {
    waiter.end();
    goOn.get_future().wait();
    return JsonValue("done");
  });
  EXPECT_EQ(run({"slow"}), 0);
  goOn.set_value();
  std::promise<void> isBehind;
  station.hostThread().post([&isBehind] { isBehind.set_value(); });
  isBehind.get_future().wait();
  ASSERT_EQ(kept.replies.size(), 1u);
  EXPECT_EQ(kept.replies[0]["result"].asString(), "done");
}

TEST_F(ConsoleTest, AnEndingProgramWaitsForNothing) {
  std::thread other([this] { station.hostThread().post([this] { waiter.end(); }); });
  EXPECT_EQ(run({"sleep 60", "fail"}), 0);
  other.join();
}

}  // namespace
