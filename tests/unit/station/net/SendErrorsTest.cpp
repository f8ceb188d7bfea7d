#include "station/net/UdpBroadcaster.h"

#include <gtest/gtest.h>

#include "station/net/UdpListener.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

using namespace std::chrono_literals;

TEST(SendErrors, EachIsToldOnceUntilItChanges) {
  RecordedEvents events;
  SendErrors problems;
  for (int time = 0; time < 5; ++time) problems.failed("10.0.0.255", "the cable is out");
  EXPECT_EQ(events.told(), "the cable is out\n");
  problems.failed("10.0.0.255", "a firewall refuses");
  problems.failed("10.9.0.255", "a firewall refuses");
  EXPECT_EQ(events.told(), "the cable is out\na firewall refuses\na firewall refuses\n");
}

TEST(SendErrors, WhatWasLostMeanwhileIsToldWhenItWorksAgain) {
  RecordedEvents events;
  SendErrors problems;
  for (int time = 0; time < 5; ++time) problems.failed("10.0.0.255", "the cable is out");
  problems.succeeded("10.0.0.255");
  problems.succeeded("10.0.0.255");
  ASSERT_EQ(events.problems().size(), 2u);
  EXPECT_NE(events.problems()[1].text.find("works again; 4 more messages"), std::string::npos);
  EXPECT_EQ(events.dropped(), 5u);
}

TEST(SendErrors, OfADestinationThatAlwaysWorkedAreNotTold) {
  RecordedEvents events;
  SendErrors problems;
  EXPECT_FALSE(problems.areThere());
  problems.succeeded("10.0.0.255");
  EXPECT_EQ(events.told(), "");
}

TEST(SendErrors, AreThereUntilEveryDestinationWorksAgain) {
  RecordedEvents events;
  SendErrors problems;
  problems.failed("10.0.0.255", "the cable is out");
  problems.failed("10.9.0.255", "the cable is out");
  problems.succeeded("10.0.0.255");
  EXPECT_TRUE(problems.areThere());
  problems.succeeded("10.9.0.255");
  EXPECT_FALSE(problems.areThere());
}

TEST(AcceptedNetworks, NamedInTheConfigurationAreTheOnlyOnesTaken) {
  RecordedEvents events;
  AcceptedNetworks networks("192.168.1.0/24, 10.0.0.5");
  EXPECT_TRUE(networks.accepts(*parseIpv4("192.168.1.77")));
  EXPECT_TRUE(networks.accepts(*parseIpv4("10.0.0.5")));
  EXPECT_EQ(events.told(), "");
  EXPECT_FALSE(networks.accepts(*parseIpv4("10.0.0.6")));
}

TEST(AcceptedNetworks, NoneNamedTakesEverybody) {
  for (const char* configured : {"", " ", ",,"})
    EXPECT_TRUE(AcceptedNetworks(configured).accepts(*parseIpv4("8.8.8.8"))) << configured;
}

TEST(AcceptedNetworks, ARefusedSenderIsToldOnce) {
  RecordedEvents events;
  AcceptedNetworks networks("10.0.0.0/8");
  for (int time = 0; time < 3; ++time) networks.accepts(*parseIpv4("192.168.1.7"));
  networks.accepts(*parseIpv4("192.168.1.8"));
  ASSERT_EQ(events.problems().size(), 2u);
  EXPECT_EQ(events.problems()[0].text.find("a sender refused: datagrams from 192.168.1.7"), 0u);
}

TEST(AcceptedNetworks, AWordThatIsNoneIsToldAndLetsNobodyIn) {
  RecordedEvents events;
  AcceptedNetworks networks("10.0.0.0/99");
  EXPECT_NE(events.told().find("\"10.0.0.0/99\", which is no network"), std::string::npos);
  EXPECT_FALSE(networks.accepts(*parseIpv4("10.0.0.1")));
}

class LossReportTest : public ::testing::Test {
 protected:
  RecordedEvents events_;
  LossReport report_;
  LossReport::Time now_{1h};
};

TEST_F(LossReportTest, TellsEachKindInOneEventWhenTheFloodIsOver) {
  for (int count = 0; count < 1000; ++count) report_.wasTooLarge(now_ += 1ms);
  report_.systemDropped(30, now_);
  report_.systemDropped(50, now_);
  report_.tellIfOver(now_ + 199ms);
  EXPECT_EQ(events_.told(), "");
  report_.tellIfOver(now_ + 200ms);
  report_.tellIfOver(now_ + 9s);
  ASSERT_EQ(events_.problems().size(), 2u);
  EXPECT_EQ(events_.problems()[0].dropped, 50u);
  EXPECT_EQ(events_.problems()[1].dropped, 1000u);
}

TEST_F(LossReportTest, TellsOfAFloodThatDoesNotEnd) {
  for (int count = 0; count < 101; ++count) {
    report_.wasTooLarge(now_);
    report_.tellIfOver(now_);
    now_ += 100ms;
  }
  EXPECT_EQ(events_.problems().size(), 1u);
  EXPECT_EQ(events_.dropped(), 101u);
}

TEST_F(LossReportTest, AnOlderCountOfTheSystemIsNoLoss) {
  report_.systemDropped(50, now_);
  report_.systemDropped(20, now_);
  report_.tell();
  EXPECT_EQ(events_.dropped(), 50u);
}

TEST_F(LossReportTest, TheSystemsCountMayWrap) {
  report_.systemDropped(0x7FFFFFFF, now_);
  report_.systemDropped(0xFFFFFFF0, now_);
  report_.systemDropped(0x10, now_);
  report_.tell();
  EXPECT_EQ(events_.dropped(), 0x100000010u);
}

TEST_F(LossReportTest, NothingLostIsNothingTold) {
  report_.tellIfOver(now_);
  report_.tell();
  EXPECT_FALSE(report_.isPending());
  EXPECT_EQ(events_.told(), "");
}

}  // namespace
