#include "ProjectShare/Receiver.h"

#include <gtest/gtest.h>

#include <stdexcept>

#include "ProjectShare/Broadcaster.h"
#include "tests/fakes/FakeServices.h"
#include "tests/support/WireFields.h"

using namespace korvel;

namespace {

using ProjectSharing::Broadcaster;
using ProjectSharing::Receiver;
using testing::internal::CaptureStdout;
using testing::internal::GetCapturedStdout;
using Lines = std::vector<std::string>;

constexpr const char* kVersionWarning =
    "both: WARNING!! : Unexpected net message version. Please ensure that all machines are running "
    "the same version of Korvel software\n";

/// A station with the project "P0001" open; "|" stands for the separator in what it receives.
class ReceiverTest : public testing::Test {
 protected:
  ReceiverTest() { host_.journal.clear(); }

  /// Delivers a datagram; returns what it did to the host.
  Lines effectsOf(const std::string& text) {
    host_.journal.clear();
    host_.network.deliver(wire(text));
    return host_.journal.effects();
  }

  std::string printedBy(const std::string& text) {
    CaptureStdout();
    host_.network.deliver(wire(text));
    return GetCapturedStdout();
  }

  FakeHost host_;
  FakeProjectShare share_{L"ANNA"};
  FakePermissions permissions_;
  Kv::Ptr<Receiver> receiver_{new Receiver};
};

TEST_F(ReceiverTest, ListensOnTheDefaultPortWithoutFlags) {
  ASSERT_EQ(host_.network.listeners.size(), 1u);
  EXPECT_EQ(host_.network.listeners[0].port, 27015);
  EXPECT_EQ(host_.network.listeners[0].flags, 0u);
  EXPECT_EQ(host_.network.listeners[0].receiver, receiver_.get());
}

TEST_F(ReceiverTest, ListensOnTheConfiguredPort) {
  host_.configure("shared_projects_udp_port", "40001");
  const Kv::Ptr<Receiver> other(new Receiver);
  ASSERT_EQ(host_.network.listeners.size(), 2u);
  EXPECT_EQ(host_.network.listeners[1].port, 40001);
}

TEST_F(ReceiverTest, ReleasingItStopsDelivery) {
  receiver_.reset();
  EXPECT_TRUE(host_.network.listeners.empty());
  EXPECT_EQ(host_.journal.effects(), Lines{"iUDPListener::close(27015)"});
}

TEST_F(ReceiverTest, EveryTypeGoesToItsPartOfTheHost) {
  host_.commands.names = {"beep"};
  host_.setMachine(12);
  const struct {
    const char* text;
    Lines effects;
  } rows[] = {
      {"d|1|P0001|E0001|2;0;0;;x|",
       {"EditManager::addNetMessage(E0001, " + wire("d|1|P0001|E0001|2;0;0;;x|") + ")"}},
      {"d|2|P0001|E0001|", {}},
      {"d|3|P0001|E0001|", {"EditManager::handleNetDelete(E0001)"}},
      {"d|4|P0001|E0001|", {"EditManager::updateProjdbRec(E0001)"}},
      {"d|5|P0001|E0001|BOB|", {"EditManager::updateLocalPermissions(E0001, BOB)"}},
      {"d|6|P0001|P0001|", {"ProjectSpacesManager::refreshCurrentLobby()"}},
      {"d|7|P0001|G0002|2|", {"BinManager::reload(G0002)"}},
      {"d|7|P0001|B0002|2|", {"RackManager::reload(B0002)"}},
      {"d|8|P0001|//store/rushes/a.mov|",
       {"SystemCache::addFile(" + Cookie("a", true).asString().str() + ", /media/a.mov, false)"}},
      {"d|10|P0001|bob|EVE|hi|", {}},
      {"d|11|P0001|bob|ANNA|G0002|", {}},
      {"d|12|P0001|bob|ANNA|E0001|", {}},
      {"d|13|P0001|bob|12|beep|", {"CommandMap::callCommand(beep)"}},
      {"d|15|P0001|F0003|2|", {"ProjectFilterManager::reInit()"}},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.text);
    EXPECT_EQ(effectsOf(row.text), row.effects);
  }
}

TEST_F(ReceiverTest, SavedAndCreatedEditsGoToTheirHandlers) {
  effectsOf("d|2|P0001|E0001|");
  EXPECT_EQ(host_.journal.count("? EditManager::isOpen(E0001)"), 1);
  effectsOf("d|14|P0001|E0001|");
  EXPECT_EQ(host_.journal.count("? getFilenameForCookie(E0001, )"), 1);
  EXPECT_EQ(host_.journal.count("OS::sleepMilliseconds(100)"), 10) << "its file is waited for";
}

TEST_F(ReceiverTest, MessagesOfAnotherProjectAreDroppedWhereTheirTypeDependsOnIt) {
  host_.edits.openHere = {"E0001"};
  host_.edits.add(Cookie("E0001", false));
  host_.files.put("/projects/P0001/E0001.otio", "");
  for (const char* text :
       {"d|1|P0002|E0001|2;0;0;;x|", "d|2|P0002|E0001|", "d|3|P0002|E0001|", "d|4|P0002|E0001|",
        "d|5|P0002|E0001|BOB|", "d|7|P0002|G0002|2|", "d|3||E0001|"})
    EXPECT_EQ(effectsOf(text), Lines{}) << text;
  for (const char* text : {"d|6|P0002|P0002|", "d|8|P0002|/a.mov|", "d|9|P0002|/a.mov|",
                           "d|13|P0002|bob|0|beep|", "d|14|P0002|E0001|", "d|15|P0002|F0003|2|"}) {
    host_.commands.names = {"beep"};
    EXPECT_NE(effectsOf(text), Lines{}) << text;
  }
}

TEST_F(ReceiverTest, WithoutAProjectOpenMessagesWithoutAProjectAreForIt) {
  host_.project.current = Cookie();
  EXPECT_EQ(effectsOf("d|3||E0001|"), Lines{"EditManager::handleNetDelete(E0001)"});
  EXPECT_EQ(effectsOf("d|3|P0001|E0001|"), Lines{});
}

TEST_F(ReceiverTest, OutsideNetworkModeOnlyRemoteCommandsAreTaken) {
  host_.project.networkMode = false;
  host_.setMachine(12);
  host_.commands.names = {"beep"};
  for (const char* text :
       {"d|1|P0001|E0001|2;0;0;;x|", "d|3|P0001|E0001|", "d|4|P0001|E0001|", "d|6|P0001|P0001|",
        "d|7|P0001|G0002|2|", "d|8|P0001|/a.mov|", "d|14|P0001|E0001|", "d|15|P0001|F0003|2|"})
    EXPECT_EQ(effectsOf(text), Lines{}) << text;
  EXPECT_EQ(effectsOf("d|13|P0001|bob|12|beep|"), Lines{"CommandMap::callCommand(beep)"});
}

TEST_F(ReceiverTest, OnlyTypes1To5And7DependOnTheProject) {
  for (int type = -1; type <= 17; ++type) {
    const bool depends = (type >= 1 && type <= 5) || type == 7;
    EXPECT_EQ(Receiver::isProjectDependentMessage(static_cast<NetMessage::Type>(type)), depends)
        << type;
  }
}

TEST_F(ReceiverTest, ATextThatDoesNotBeginWithTheMarkerIsIgnoredSilently) {
  for (const char* text : {"", "x", "x|2|P0001|E0001|", "D|2|P0001|E0001|", "|d|3|P0001|E0001|",
                           " d|3|P0001|E0001|", "||||"}) {
    EXPECT_EQ(printedBy(text), "") << text;
    EXPECT_EQ(effectsOf(text), Lines{}) << text;
  }
  EXPECT_EQ(host_.logLines, Lines{});
}

TEST_F(ReceiverTest, AnotherVersionThatBeginsWithTheMarkerIsWarnedOfTwice) {
  EXPECT_EQ(effectsOf("dx|3|P0001|E0001|"), Lines{});
  EXPECT_EQ(host_.logLines, (Lines{kVersionWarning, kVersionWarning}));
}

TEST_F(ReceiverTest, AFaultyTextIsReportedTwiceSinceItIsParsedTwice) {
  const std::string invalid =
      "assertion failed valid_ at ProjectShare/NetMessage line 31\n"
      "assertion failed false at ProjectShare/NetMessage line 162\n";
  EXPECT_EQ(printedBy("d|7|P0001|G0002|9|"), invalid + invalid);
  const std::string unknown = "assertion failed false at ProjectShare/NetMessage line 197\n";
  EXPECT_EQ(printedBy("d|16|P0001|E0001|"),
            unknown + unknown + "assertion failed false at ProjectShare/Receiver line 417\n");
  EXPECT_EQ(host_.journal.effects(), Lines{});
}

TEST_F(ReceiverTest, ATypeOfNoneDoesNothing) {
  EXPECT_EQ(effectsOf("d|9|P0001"), Lines{}) << "too few fields";
  const std::string unknown = "assertion failed false at ProjectShare/NetMessage line 197\n";
  EXPECT_EQ(printedBy("d|0|P0001|E0001|"), unknown + unknown);
}

TEST_F(ReceiverTest, ATextEndsAtItsFirstZeroByte) {
  using namespace std::string_literals;
  EXPECT_EQ(effectsOf("d|5|P0001|E0001|BO\0B|"s),
            Lines{"EditManager::updateLocalPermissions(E0001, BO)"});
  EXPECT_EQ(effectsOf("\0d|3|P0001|E0001|"s), Lines{});
  EXPECT_EQ(effectsOf("d|3|P0001|E0001|\0\0rubbish"s),
            Lines{"EditManager::handleNetDelete(E0001)"});
}

TEST_F(ReceiverTest, NoBufferAtAllIsIgnored) {
  EXPECT_EQ(receiver_->receive(nullptr, nullptr), 1);
  EXPECT_EQ(host_.journal.lines(), Lines{});
}

TEST_F(ReceiverTest, TheResultIs1WhateverArrives) {
  for (const char* text : {"", "x", "dx|", "d|3|P0001|E0001|", "d|3|P0002|E0001|"}) {
    const Kv::Ptr<iMemHolder> buffer(new FakeMemHolder(wire(text)));
    EXPECT_EQ(receiver_->receive(buffer, nullptr), 1) << text;
  }
}

TEST_F(ReceiverTest, AnExceptionOfTheHostIsLoggedOnceAndDoesNotEscape) {
  host_.journal.onLine = [](const std::string&) { throw std::runtime_error("the share is gone"); };
  const Kv::Ptr<iMemHolder> buffer(new FakeMemHolder(wire("d|13|P0001|bob|0|beep|")));
  EXPECT_EQ(receiver_->receive(buffer, nullptr), 1);
  host_.journal.onLine = nullptr;
  ASSERT_EQ(host_.logLines.size(), 1u);
  EXPECT_NE(host_.logLines[0].find("the share is gone"), std::string::npos);
}

/// With a broadcaster that was enabled by entering the project.
class ReceiverWithBroadcasterTest : public ReceiverTest {
 protected:
  ReceiverWithBroadcasterTest() { Broadcaster::enable(); }

  /// Tells the broadcaster of a local change, as the host does.
  void saveSomething() {
    host_.project.eachListener(
        [](ProjectListener& each) { each.handleLogStorage(Cookie("E0077", false), false); });
  }

  Kv::Ptr<Broadcaster> broadcaster_{new Broadcaster};
};

TEST_F(ReceiverWithBroadcasterTest, NothingIsSentWhileAMessageIsAppliedAndChangesAreAfterwards) {
  host_.journal.onLine = [this](const std::string& line) {
    if (line == "BinManager::reload(G0002)") saveSomething();
  };
  EXPECT_EQ(effectsOf("d|7|P0001|G0002|2|"), Lines{"BinManager::reload(G0002)"});
  EXPECT_TRUE(host_.network.sent.empty());
  EXPECT_EQ(host_.journal.lines().back(), "? ProjectSpacesManager::machineIsInNetworkMode()")
      << "enabled again, after the change";
  saveSomething();
  EXPECT_EQ(host_.network.sent, Lines{wire("d|2|P0001|E0077|")});
}

TEST_F(ReceiverWithBroadcasterTest, ItIsEnabledAgainAfterAnException) {
  host_.journal.onLine = [](const std::string& line) {
    if (line == "BinManager::reload(G0002)") throw std::runtime_error("no memory");
  };
  effectsOf("d|7|P0001|G0002|2|");
  saveSomething();
  EXPECT_EQ(host_.network.sent.size(), 1u);
}

TEST_F(ReceiverWithBroadcasterTest, ADroppedMessageDoesNotTouchIt) {
  broadcaster_->handleProjectExit();  // disabled, which enabling would undo
  effectsOf("d|3|P0002|E0001|");
  effectsOf("x");
  saveSomething();
  EXPECT_TRUE(host_.network.sent.empty());
  effectsOf("d|0|P0001|E0001|");
  saveSomething();
  EXPECT_EQ(host_.network.sent.size(), 1u) << "a message that is taken enables it";
}

TEST_F(ReceiverWithBroadcasterTest, AnnouncementsThatCreatingALogCausesAreNotSent) {
  host_.edits.add(Cookie("E0001", false));
  host_.files.put("/projects/P0001/E0001.otio", "");
  const Lines effects = effectsOf("d|14|P0001|E0001|");
  EXPECT_NE(std::find(effects.begin(), effects.end(), "announce(E0001, 55)"), effects.end());
  EXPECT_TRUE(host_.network.sent.empty());
}

}  // namespace
