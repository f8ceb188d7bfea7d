#include <gtest/gtest.h>

#include "ProjectShare/Receiver.h"
#include "tests/fakes/FakeServices.h"
#include "tests/support/WireFields.h"

using namespace korvel;

namespace {

using ProjectSharing::Receiver;
using Lines = std::vector<std::string>;

/// A station of the user "ANNA" whose message panel exists.
class ReceiverUserMessageTest : public testing::Test {
 protected:
  ReceiverUserMessageTest() { host_.ui.globs["Messager"] = &panel_; }

  void deliver(const std::string& text) { host_.network.deliver(wire(text)); }

  FakeHost host_;
  FakeProjectShare share_{L"ANNA"};
  FakeGlob panel_{"Messager"};
  Kv::Ptr<Receiver> receiver_{new Receiver};
};

TEST_F(ReceiverUserMessageTest, APanelIsHandedTheWordsAloneWithItselfAsSender) {
  deliver("d|10|P0001|bob|ANNA|lunch?|");
  EXPECT_EQ(host_.journal.count("Glob::sendMsg(Messager, lunch?, Messager)"), 1);
  EXPECT_EQ(panel_.texts, Lines{"lunch?"});
}

TEST_F(ReceiverUserMessageTest, AMessageToAllReachesEveryPanelAndOneInLowerCaseAUserNamedSo) {
  deliver("d|10|P0001|bob|<All>|one|");
  EXPECT_EQ(panel_.texts, Lines{"one"});
  deliver("d|10|P0001|bob|<all>|two|");
  EXPECT_EQ(panel_.texts, Lines{"one"});
  share_.user = L"<all>";
  deliver("d|10|P0001|bob|<all>|three|");
  EXPECT_EQ(panel_.texts, (Lines{"one", "three"}));
}

TEST_F(ReceiverUserMessageTest, NamesMustBeEqualToTheLetter) {
  for (const char* target : {"anna", "ANN", "ANNA ", "", "BOB"})
    deliver("d|10|P0001|bob|" + std::string(target) + "|hi|");
  EXPECT_EQ(panel_.texts, Lines{});
  EXPECT_EQ(host_.journal.count("? GlobManager::find(Messager)"), 0);
}

TEST_F(ReceiverUserMessageTest, ATargetIsWidenedByteByByte) {
  share_.user = L"J\u00fcrgen";
  deliver("d|10|P0001|bob|J\xFCrgen|one byte|");
  deliver("d|10|P0001|bob|J\xC3\xBCrgen|two bytes|");
  EXPECT_EQ(panel_.texts, Lines{"one byte"});
}

TEST_F(ReceiverUserMessageTest, TheUsersNameComesFromTheShareAndNotFromThePermissions) {
  FakePermissions permissions;
  permissions.user = L"EVE";
  deliver("d|10|P0001|bob|EVE|for the owner|");
  EXPECT_EQ(panel_.texts, Lines{});
  deliver("d|10|P0001|bob|ANNA|for the user|");
  EXPECT_EQ(panel_.texts, Lines{"for the user"});
}

TEST_F(ReceiverUserMessageTest, TwoEmptyNamesAreEqual) {
  share_.user = L"";
  deliver("d|10|P0001|bob||hi|");
  EXPECT_EQ(panel_.texts, Lines{"hi"});
}

TEST_F(ReceiverUserMessageTest, WithoutAPanelAMessageIsDropped) {
  host_.ui.globs.clear();
  deliver("d|10|P0001|bob|ANNA|hi|");
  EXPECT_EQ(panel_.texts, Lines{});
  EXPECT_EQ(host_.journal.count("? GlobManager::find(Messager)"), 1);
}

TEST_F(ReceiverUserMessageTest, EveryMessageIsLoggedInItsOddForm) {
  deliver("d|10|P0001|bob|EVE|hi|");
  EXPECT_EQ(host_.logLines, Lines{"both: msg for EVErom bobs, (hi)\n"});
}

TEST_F(ReceiverUserMessageTest, WordsThatLookLikeConversionsArePlainText) {
  deliver("d|10|P0001|%s|ANNA|100 %s %n %d|");
  EXPECT_EQ(host_.logLines, Lines{"both: msg for ANNArom %ss, (100 %s %n %d)\n"});
  EXPECT_EQ(panel_.texts, Lines{"100 %s %n %d"});
}

TEST_F(ReceiverUserMessageTest, AMessageThatHoldsTheSeparatorArrivesCut) {
  deliver("d|10|P0001|bob|ANNA|5 \xE2\x82\xAC please|");
  EXPECT_EQ(panel_.texts, Lines{"5 \xE2\x82"});
}

TEST_F(ReceiverUserMessageTest, ATransferIsOnlyLogged) {
  host_.journal.clear();
  deliver("d|11|P0001|bob|ANNA|G0002|");
  deliver("d|12|P0001|bob|E0099|E0001|");
  deliver("d|12|P0001|bob|");
  EXPECT_EQ(host_.logLines, (Lines{"both: bin/clip for : ()\n", "both: bin/clip for : (E0099)\n",
                                   "both: bin/clip for : ()\n"}));
  EXPECT_EQ(host_.journal.effects(), Lines{});
}

TEST_F(ReceiverUserMessageTest, ATransfersObjectIsLoggedInFull) {
  const Cookie object("E123456789-ff00", false);
  const std::string whole = object.asString(false).str();
  ASSERT_NE(object.asString(true).str(), whole);
  deliver("d|11|P0001|bob|" + whole + "|G0002|");
  deliver("d|12|P0001|bob|" + whole + "|E0001|");
  EXPECT_EQ(host_.logLines, Lines(2, "both: bin/clip for : (" + whole + ")\n"));
}

TEST_F(ReceiverUserMessageTest, AMachineNumberIsReadWithItsSign) {
  host_.setMachine(-1);
  host_.commands.names = {"beep"};
  deliver("d|13|P0001|bob|18446744073709551615|beep|");
  EXPECT_EQ(host_.journal.count("CommandMap::callCommand(beep)"), 0);
  deliver("d|13|P0001|bob|-1|beep|");
  EXPECT_EQ(host_.journal.count("CommandMap::callCommand(beep)"), 1);
}

TEST_F(ReceiverUserMessageTest, ACommandRunsOnlyOnTheMachineItNames) {
  host_.setMachine(12);
  host_.commands.names = {"reload", "beep"};
  host_.journal.clear();
  for (const char* target : {"11", "120", "-12", "", "x12", "1 2"})
    deliver("d|13|P0001|bob|" + std::string(target) + "|beep|");
  EXPECT_EQ(host_.journal.effects(), Lines{});
  for (const char* target : {"12", " 12", "12x", "+12", "012"})
    deliver("d|13|P0001|bob|" + std::string(target) + "|beep|");
  EXPECT_EQ(host_.journal.effects(), Lines(5, "CommandMap::callCommand(beep)"));
}

TEST_F(ReceiverUserMessageTest, AMachineNumberBeyond32BitsIsNobodys) {
  host_.setMachine(12);
  host_.commands.names = {"beep"};
  deliver("d|13|P0001|bob|4294967308|beep|");
  EXPECT_EQ(host_.journal.count("CommandMap::callCommand(beep)"), 0);
}

TEST_F(ReceiverUserMessageTest, AnUnknownCommandIsLookedUpAndNotRun) {
  host_.setMachine(12);
  host_.commands.names = {"beep"};
  host_.journal.clear();
  deliver("d|13|P0001|bob|12|Beep|");
  EXPECT_EQ(host_.journal.count("? CommandMap::findCommand(Beep)"), 1);
  EXPECT_EQ(host_.journal.effects(), Lines{});
}

}  // namespace
