#include <gtest/gtest.h>

#include "station/watch/Presence.h"

using namespace korvel;

namespace {

/// What BEN's station says that it sent, and what came of it, look after look.
class MissedMessagesTest : public ::testing::Test {
 protected:
  /// So many looks at the same counts.
  long look(long sent, long taken, int times = 1) {
    long lost = 0;
    for (int i = 0; i < times; ++i) lost += missed_.look("ben", sent, taken);
    return lost;
  }

  /// He sent 10 messages before this station began to listen.
  void begin() { EXPECT_EQ(look(10, 0, MissedMessages::kLooksAtRest + 1), 0); }

  MissedMessages missed_;
};

TEST_F(MissedMessagesTest, WhatWasSentBeforeThisStationListenedIsNotLost) {
  begin();
  EXPECT_EQ(look(12, 2, 3), 0);
}

TEST_F(MissedMessagesTest, WhatIsSentAndDoesNotComeIsLost) {
  begin();
  EXPECT_EQ(look(15, 2, 3), 3);
  EXPECT_EQ(look(15, 2, 3), 0) << "once";
  EXPECT_EQ(look(16, 2, 2), 1);
}

TEST_F(MissedMessagesTest, AMessageOnItsWayIsNotLost) {
  begin();
  EXPECT_EQ(look(12, 1), 0);
  EXPECT_EQ(look(12, 2), 0);
  EXPECT_EQ(look(14, 3), 0) << "the next one on its way";
  EXPECT_EQ(look(14, 4, 3), 0);
}

TEST_F(MissedMessagesTest, ANoteThatLagsBehindTellsOfNoLoss) {
  begin();
  for (long sent = 10; sent < 60; sent += 5) EXPECT_EQ(look(sent, sent - 10 + 4), 0) << sent;
  EXPECT_EQ(look(60, 49, 2), 1);
}

TEST_F(MissedMessagesTest, WhoNeverRestsIsNotAccused) {
  long lost = 0;
  for (long sent = 0; sent < 100; sent += 10) lost += look(sent, sent / 2);
  EXPECT_EQ(lost, 0);
}

TEST_F(MissedMessagesTest, OneThatIsForgottenBeginsAnew) {
  begin();
  missed_.keepOnly([](const std::string& id) { return id != "ben"; });
  EXPECT_EQ(look(20, 1, 3), 0);
}

TEST(TrafficCountsTest, MessagesAreCountedByTheirSender) {
  TrafficCounts counts(1, nullptr);
  const Ipv4 ben = *parseIpv4("10.0.0.7");
  for (int i = 0; i < 3; ++i) counts.taken(ben, 7);
  counts.taken(ben, 8);
  counts.taken(*parseIpv4("10.0.0.8"), 7);
  counts.taken(*parseIpv4("127.0.0.1"), 7);
  EXPECT_EQ(counts.takenFrom({"10.0.0.7", "192.168.1.7"}, 7), 4) << "and from the loopback address";
  EXPECT_EQ(counts.takenFrom({"10.0.0.8"}, 8), 0);
}

TEST(TrafficCountsTest, InventedSendersFillNoMemory) {
  TrafficCounts counts(1, nullptr);
  for (unsigned i = 0; i < 10'000; ++i) {
    counts.taken(*parseIpv4("10.1." + std::to_string(i / 250) + "." + std::to_string(i % 250)), 7);
  }
  EXPECT_EQ(counts.takenFrom({"10.1.0.1"}, 7), 1);
  EXPECT_EQ(counts.takenFrom({"10.1.39.1"}, 7), 0);
}

}  // namespace
