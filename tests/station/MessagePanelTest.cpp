#include "station/base/Events.h"
#include "station/ui/PanelDriver.h"
#include "tests/station/PluginStation.h"

using namespace korvel;

namespace {

using Texts = std::vector<std::string>;

/// Keeps the conversations that the station tells of.
class PanelEvents : public iStationEvents {
 public:
  PanelEvents() { installEvents(this); }
  PanelEvents(const PanelEvents&) = delete;
  PanelEvents& operator=(const PanelEvents&) = delete;
  ~PanelEvents() override { installEvents(nullptr); }

  void panel(const Texts& lines) override { told.push_back(lines); }

  std::vector<Texts> told;
};

/// The real plug-in's panel on a desktop.
class MessagePanelTest : public PluginStation {
 protected:
  /// What bob's station sends.
  void hear(const std::string& target, const std::string& words) {
    network.deliver(message(10, {"bob", target, words}));
  }

  /// The words of all notifications.
  static Texts seen() {
    Texts words;
    for (const Notification& each : notifications()) words.push_back(each.text);
    return words;
  }

  [[nodiscard]] Texts recipients() const {
    Texts names;
    const auto shown = hands.show();
    for (const JsonValue& name : (*shown)["recipients"].elements())
      names.push_back(name.asString());
    return names;
  }

  PanelEvents panelEvents;
  Desktop desktop;
  PanelDriver hands{desktop};
};

TEST_F(MessagePanelTest, LiesInTheToolboxFromTheStart) {
  const auto shown = hands.show();
  ASSERT_TRUE(shown);
  EXPECT_FALSE((*shown)["open"].asBool());
  EXPECT_TRUE((*shown)["in_toolbox"].asBool());
  EXPECT_EQ((*shown)["tooltip"].asString(), "Messages");
}

TEST_F(MessagePanelTest, OffersEverybodyAndThisStationWithoutAUserList) {
  std::filesystem::remove(folder / "userlist.dat");
  ASSERT_TRUE(hands.open());
  EXPECT_EQ(recipients(), (Texts{"<All>", "ANNA"}));
}

TEST_F(MessagePanelTest, OffersTheUserListInItsOrder) {
  write(folder / "userlist.dat", "Zoe\r\n\nbob\n<Nobody>\nzoe\n");
  ASSERT_TRUE(hands.open());
  EXPECT_EQ(recipients().front(), "<All>");
  EXPECT_EQ(recipients().at(1), "ZOE");
  EXPECT_EQ(recipients().back(), "ANNA");
  for (const std::string& name : recipients()) EXPECT_NE(name, "<NOBODY>");
}

TEST_F(MessagePanelTest, WhatIsSaidIsSentAndShown) {
  ASSERT_TRUE(hands.say("<All>", "h\xC3\xA9llo"));
  EXPECT_EQ(network.sent, Texts{message(10, {"anna", "<All>", "h\xC3\xA9llo"})});
  const Texts echo{" : h\xC3\x83\xC2\xA9llo"};
  EXPECT_EQ(*hands.lines(), echo);
  EXPECT_EQ(panelEvents.told, std::vector<Texts>{echo});
}

TEST_F(MessagePanelTest, OrdinaryWordsBecomeANotificationWhateverTheState) {
  hear("anna", "in the toolbox");
  ASSERT_TRUE(hands.open());
  hear("anna", "open");
  ASSERT_TRUE(hands.close());
  hear("<All>", "an icon");
  hear("carl", "not for anna");
  EXPECT_EQ(seen(), (Texts{"in the toolbox", "open", "an icon"}));
}

TEST_F(MessagePanelTest, AWholeWireTextIsShownInThePanel) {
  ASSERT_TRUE(hands.open());
  // Words that travel end at their first separator: a whole wire text reaches a panel only from
  // within its own station.
  PanelEvents again;
  Glob::sendMsg(GlobManager::find("Messager"), hostText(message(10, {"bob", "anna", "lunch?"})),
                nullptr);
  EXPECT_EQ(*hands.lines(), Texts{"bob : lunch?"});
  EXPECT_EQ(again.told.size(), 1u);
  EXPECT_TRUE(notifications().empty());
}

TEST_F(MessagePanelTest, AWireTextThatTravelsAsWordsEndsAtItsSeparator) {
  ASSERT_TRUE(hands.open());
  hear("anna", message(10, {"bob", "anna", "lunch?"}));
  EXPECT_EQ(*hands.lines(), Texts{});
  EXPECT_EQ(seen(), Texts{"d"}) << "the panel reports it and shows nothing";
}

TEST_F(MessagePanelTest, WordsThatBeginWithTheVersionLetterAreNotLost) {
  ASSERT_TRUE(hands.open());
  for (const char* const words : {"d", "dinner?", "don't"}) hear("anna", words);
  EXPECT_EQ(seen(), (Texts{"d", "dinner?", "don't"}));
  EXPECT_EQ(*hands.lines(), Texts{});
}

TEST_F(MessagePanelTest, AMessageThatSpellsTheReturnEventIsWordsAndSendsNothing) {
  ASSERT_TRUE(hands.open());
  ASSERT_TRUE(hands.type("half a thou"));
  for (int times = 0; times < 3000; ++times) hear("anna", "LinecanvasReturnPressed");
  EXPECT_EQ(network.sent, Texts{});
  EXPECT_EQ(seen().size(), 3000u);
  EXPECT_EQ(seen().back(), "LinecanvasReturnPressed");
  ASSERT_TRUE(hands.pressReturn());
  EXPECT_EQ(network.sent, Texts{message(10, {"anna", "<All>", "half a thou"})});
}

TEST_F(MessagePanelTest, TheConversationIsBoundedAndKeepsItsEnd) {
  ASSERT_TRUE(hands.open());
  constexpr int kLines = static_cast<int>(ScrollableTextBoxBase::kMostLines);
  for (int each = 0; each < kLines + 50; ++each) {
    Glob::sendMsg(GlobManager::find("Messager"),
                  hostText(message(10, {"bob", "anna", std::to_string(each)})), nullptr);
  }
  EXPECT_EQ(hands.lines()->size(), ScrollableTextBoxBase::kMostLines);
  EXPECT_EQ(hands.lines()->back(), "bob : " + std::to_string(kLines + 49));
}

TEST_F(MessagePanelTest, WordsForOthersOrWithTooFewFieldsAreNotNotified) {
  hear("carl", "dinner?");
  network.deliver(message(10, {"bob", "anna"}));
  EXPECT_EQ(seen(), Texts{});
}

TEST_F(MessagePanelTest, IsRestoredOpenWithAnEmptyConversation) {
  ASSERT_TRUE(hands.say("ANNA", "x"));
  const auto saved = desktop.savedTools();
  desktop.putAway(*dynamic_cast<GenIcon*>(GlobManager::find("Messager")));
  desktop.restoreTools(saved);
  EXPECT_TRUE((*hands.show())["open"].asBool());
  EXPECT_EQ(*hands.lines(), Texts{});
}

TEST_F(MessagePanelTest, ClosedToolsLetThePluginGo) {
  ASSERT_TRUE(hands.open());
  desktop.closeTools();
  plugin.unload(Shutdown::eNormalExit);
  EXPECT_EQ(GlobManager::find("Messager"), nullptr);
  EXPECT_EQ(hands.open().error().code, ErrorCode::eNotFound);
}

}  // namespace
