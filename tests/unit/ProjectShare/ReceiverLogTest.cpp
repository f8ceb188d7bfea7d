#include <gtest/gtest.h>

#include <algorithm>

#include "ProjectShare/Receiver.h"
#include "tests/fakes/FakeServices.h"
#include "tests/support/WireFields.h"

using namespace korvel;

// A program of its own: whether incoming messages are logged is read once a process, and here it is
// wanted.

namespace {

using ProjectSharing::Receiver;

class ReceiverLogTest : public testing::Test {
 protected:
  /// Any value but 0 turns the log on.
  ReceiverLogTest() { host_.configure("log_incoming_net_messages", "-2"); }

  /// How often "Received" stands in the log after a datagram.
  long headingsAfter(const std::string& text) {
    host_.logLines.clear();
    host_.network.deliver(wire(text));
    return std::count(host_.logLines.begin(), host_.logLines.end(), "both: Received :\n");
  }

  FakeHost host_;
  Kv::Ptr<Receiver> receiver_{new Receiver};
};

TEST_F(ReceiverLogTest, EveryMessageThatBeginsWithTheMarkerIsLoggedOnce) {
  for (const char* text : {"d|3|P0001|E0001|", "d|3|P0002|E0001|", "d", "dx|", "d|7|P0001|G0002|9|",
                           "d|16|P0001|E0001|", "d|10|P0001|bob|EVE|hi|"})
    EXPECT_EQ(headingsAfter(text), 1) << text;
  for (const char* text : {"", "x", "|d|3|P0001|E0001|"}) EXPECT_EQ(headingsAfter(text), 0) << text;
}

TEST_F(ReceiverLogTest, MessagesThatAreDroppedOutsideNetworkModeAreLogged) {
  host_.project.networkMode = false;
  EXPECT_EQ(headingsAfter("d|3|P0001|E0001|"), 1);
  EXPECT_EQ(host_.journal.effects().back(), "iNetworkService::createUDPListener(27015, 0)");
}

TEST_F(ReceiverLogTest, TheConfigurationIsReadOnce) {
  EXPECT_EQ(headingsAfter("d|3|P0001|E0001|"), 1);
  host_.configure("log_incoming_net_messages", "0");
  EXPECT_EQ(headingsAfter("d|3|P0001|E0001|"), 1);
}

TEST_F(ReceiverLogTest, AMessageIsLoggedBeforeItIsApplied) {
  long before = -1;
  host_.journal.onLine = [&](const std::string& line) {
    if (line == "EditManager::handleNetDelete(E0001)")
      before = static_cast<long>(host_.logLines.size());
  };
  headingsAfter("d|3|P0001|E0001|");
  EXPECT_EQ(before, 6) << "heading, brace, project, type, cookie, brace";
}

}  // namespace
