#include <gtest/gtest.h>

#include <algorithm>
#include <stdexcept>

#include "station/ui/Desktop.h"
#include "tests/unit/ProjectShare/MessagerScene.h"

using namespace korvel;

namespace {

using Lines = MessagerScene::Lines;

constexpr const char* kUnfinished = "assertion failed false at ProjectShare/Messager line 294\n";

/// An open panel.
class MessagerTextTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(scene.hands.open());
    scene.host.logLines.clear();
  }

  /// What handing a text over prints on standard output.
  std::string printedFor(const std::string& text, bool& isHandled) {
    testing::internal::CaptureStdout();
    isHandled = scene.hand(text);
    return testing::internal::GetCapturedStdout();
  }

  MessagerScene scene;
};

TEST_F(MessagerTextTest, ReturnSendsShowsAndClears) {
  ASSERT_TRUE(scene.hands.chooseRecipient("BOB"));
  ASSERT_TRUE(scene.hands.type("lunch?"));
  ASSERT_TRUE(scene.hands.pressReturn());
  EXPECT_EQ(scene.host.network.sent, Lines{wire("d|10|P0001|anna|BOB|lunch?|")});
  EXPECT_EQ(scene.lines(), Lines{" : lunch?"});
  EXPECT_TRUE(scene.child<TitleTextBox>()->getText().empty());
}

TEST_F(MessagerTextTest, ReturnInAnEmptyEntrySendsAnEmptyMessageToEverybody) {
  ASSERT_TRUE(scene.hands.pressReturn());
  EXPECT_EQ(scene.host.network.sent, Lines{wire("d|10|P0001|anna|<All>||")});
  EXPECT_EQ(scene.lines(), Lines{" : "});
}

TEST_F(MessagerTextTest, TheEchoIsShownBeforeTheMessageIsSent) {
  std::size_t linesWhenSent = 99;
  scene.host.journal.onLine = [&](const std::string& line) {
    if (line.find("broadcast") != std::string::npos) linesWhenSent = scene.lines().size();
  };
  ASSERT_TRUE(scene.hands.say("BOB", "x"));
  EXPECT_EQ(linesWhenSent, 1u);
}

TEST_F(MessagerTextTest, TheReturnEventIsTakenWhoeverSendsIt) {
  EXPECT_TRUE(scene.hand("LinecanvasReturnPressed"));
  EXPECT_FALSE(scene.hand("LinecanvasReturnPressed "));
  EXPECT_FALSE(scene.hand("linecanvasReturnPressed"));
  EXPECT_EQ(scene.host.network.sent.size(), 1u);
}

TEST_F(MessagerTextTest, ChoosingARecipientAgainSetsTheTarget) {
  for (const char* user : {"ANNA", "bob", "<All>"}) ASSERT_TRUE(scene.hands.say(user, "x")) << user;
  EXPECT_FALSE(scene.hands.say("NOBODY", "x"));
  EXPECT_EQ(scene.host.network.sent,
            (Lines{wire("d|10|P0001|anna|ANNA|x|"), wire("d|10|P0001|anna|BOB|x|"),
                   wire("d|10|P0001|anna|<All>|x|")}));
}

TEST_F(MessagerTextTest, AWholeUserMessageIsShownWhateverItsTarget) {
  EXPECT_TRUE(scene.hand("d|10|P0001|bob|ANNA|one|"));
  EXPECT_TRUE(scene.hand("d|10|P9999|carl|SOMEBODY|two|"));
  EXPECT_TRUE(scene.hand("d|10|P0001||||"));
  EXPECT_EQ(scene.lines(), (Lines{"bob : one", "carl : two", " : "}));
  EXPECT_TRUE(scene.host.network.sent.empty());
}

TEST_F(MessagerTextTest, WhatIsShownIsDrawnAtOnceAndTheClearedEntryToo) {
  auto updates = Screen::instance().updates();
  scene.hand("d|10|P0001|bob|ANNA|one|");
  EXPECT_EQ(Screen::instance().updates(), ++updates);
  scene.hand("LinecanvasReturnPressed");
  EXPECT_EQ(Screen::instance().updates(), updates + 2);
}

TEST_F(MessagerTextTest, WordsAreNotHandledAndBecomeANotification) {
  for (const char* words : {"", "hello", "|d", "D|10|P0001|bob|ANNA|x|", " d"}) {
    bool isHandled = true;
    EXPECT_EQ(printedFor(words, isHandled), "") << words;
    EXPECT_FALSE(isHandled) << words;
  }
  EXPECT_EQ(scene.lines(), Lines{});
  Glob::sendMsg(scene.panel(), "hello", scene.panel());
  ASSERT_FALSE(notifications().empty());
  EXPECT_EQ(notifications().back().text, "hello");
}

TEST_F(MessagerTextTest, AnythingElseThatBeginsWithDIsHandledAndReported) {
  const std::size_t before = notifications().size();
  for (const char* text : {"d", "dinner?", "d|10|", "d|2|P0001|E0001|", "d|99|P0001|E0001|",
                           "d|13|P0001|bob|12|beep|", "d|abc|P0001|x|"}) {
    bool isHandled = false;
    const std::string printed = printedFor(text, isHandled);
    EXPECT_TRUE(isHandled) << text;
    EXPECT_TRUE(printed.ends_with(kUnfinished)) << text << " printed " << printed;
  }
  EXPECT_EQ(scene.lines(), Lines{});
  EXPECT_EQ(notifications().size(), before);
}

TEST_F(MessagerTextTest, TransfersAreAnnouncedInTheLogAlone) {
  for (const char* type : {"11", "12"}) {
    scene.host.logLines.clear();
    bool isHandled = false;
    EXPECT_EQ(printedFor("d|" + std::string(type) + "|P0001|bob|G0002|ANNA|", isHandled),
              kUnfinished);
    EXPECT_TRUE(isHandled);
    const auto& told = scene.host.logLines;
    EXPECT_EQ(std::ranges::count(told, "both: bin/clip for : (G0002)\n"), 1) << type;
  }
  EXPECT_EQ(scene.lines(), Lines{});
}

TEST_F(MessagerTextTest, ATransfersCookieIsLoggedInFull) {
  const std::string whole = "E123456789-ff00";
  ASSERT_NE(Cookie(whole.c_str(), false).asString(true).str(), whole);
  bool isHandled = false;
  printedFor("d|12|P0001|bob|" + whole + "|ANNA|", isHandled);
  EXPECT_EQ(std::ranges::count(scene.host.logLines, "both: bin/clip for : (" + whole + ")\n"), 1);
}

TEST_F(MessagerTextTest, BytesAreWidenedOneByOne) {
  scene.hand("d|10|P0001|bob|ANNA|\xC3\xA4\xFF|");
  EXPECT_EQ(scene.child<ScrollableTextBoxBase>()->getStrings().back(), L"bob : \u00C3\u00A4\u00FF");
}

TEST_F(MessagerTextTest, WhatIsTypedIsSentByteForByte) {
  const struct {
    const char* what;
    std::string text;
  } rows[] = {
      {"sixty thousand characters", std::string(60'000, 'x')},
      {"emoji", "\xF0\x9F\x8E\xAC\xF0\x9F\x91\xA9\xE2\x80\x8D\xF0\x9F\x92\xBB"},
      {"right to left", "\xE2\x80\xAE\xD7\xA9\xD7\x9C\xD7\x95\xD7\x9D"},
      {"no UTF-8", "a\xFF\xC3(\x80z"},
      {"a whole wire text", wire("d|10|P0001|eve|ANNA|x|")},
  };
  for (const auto& row : rows) {
    ASSERT_TRUE(scene.hands.say("BOB", row.text)) << row.what;
    EXPECT_EQ(scene.host.network.sent.back(), wire("d|10|P0001|anna|BOB|") + row.text + "\xAC")
        << row.what;
    const auto& line = scene.child<ScrollableTextBoxBase>()->getStrings().back();
    EXPECT_EQ(line.size(), row.text.size() + 3) << row.what << ": one character a byte";
  }
}

TEST_F(MessagerTextTest, LineEndsAreTypedAsBlanksAndArriveAsTheyAre) {
  ASSERT_TRUE(scene.hands.say("BOB", "one\r\ntwo\nthree"));
  EXPECT_EQ(scene.lines(), Lines{" : one two three"});
  scene.hand("d|10|P0001|bob|ANNA|one\ntwo|");
  EXPECT_EQ(scene.lines().back(), "bob : one\ntwo");
}

TEST_F(MessagerTextTest, WhatArrivesAtAnIconGoesOnToTheDesktop) {
  ASSERT_TRUE(scene.hands.close());
  for (const std::string text : {"hello", "LinecanvasReturnPressed", "d|10|P0001|bob|ANNA|hi|"}) {
    EXPECT_FALSE(scene.hand(text)) << text;
    Glob::sendMsg(scene.panel(), lightweight(wire(text)), scene.panel());
    ASSERT_FALSE(notifications().empty());
    EXPECT_EQ(notifications().back().text, wire(text));
  }
  EXPECT_TRUE(scene.host.network.sent.empty());
  ASSERT_TRUE(scene.hands.open());
  EXPECT_EQ(scene.lines(), Lines{});
}

TEST_F(MessagerTextTest, AnIconReportsWhatIsNoUserMessageAsAPanelDoes) {
  ASSERT_TRUE(scene.hands.close());
  bool isHandled = false;
  EXPECT_EQ(printedFor("d|11|P0001|bob|G0002|ANNA|", isHandled), kUnfinished);
  EXPECT_TRUE(isHandled);
}

TEST_F(MessagerTextTest, WithoutABroadcasterTheEchoIsStillShown) {
  scene.broadcaster.reset();
  ASSERT_TRUE(scene.hands.say("BOB", "x"));
  EXPECT_EQ(scene.lines(), Lines{" : x"});
  EXPECT_TRUE(scene.host.network.sent.empty());
}

TEST_F(MessagerTextTest, AFailureInsideNeverReachesTheToolkit) {
  scene.host.journal.onLine = [](const std::string& line) {
    if (line.find("broadcast") != std::string::npos) throw std::runtime_error("no network");
  };
  const std::size_t notified = notifications().size();
  ASSERT_TRUE(scene.hands.say("BOB", "x"));
  EXPECT_NE(scene.host.logLines.back().find("Messager::handleMessageEvent"), std::string::npos);
  EXPECT_EQ(notifications().size(), notified) << "the return key's event is no words for the user";
}

TEST_F(MessagerTextTest, TheHandsSayWhatIsMissing) {
  EXPECT_TRUE(scene.hands.show()->find("open")->asBool());
  ASSERT_TRUE(scene.hands.close());
  EXPECT_FALSE(scene.hands.type("x"));
  EXPECT_FALSE(scene.hands.lines());
  EXPECT_FALSE(scene.hands.show()->find("open")->asBool());
  scene.desktop.closeTools();
  EXPECT_EQ(scene.hands.open().error().code, ErrorCode::eNotFound);
}

}  // namespace
