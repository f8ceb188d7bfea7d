#include "station/net/DeliveryLanes.h"

#include <gtest/gtest.h>

using namespace korvel;

namespace {

using namespace std::chrono_literals;
using Kind = DeliveryLanes::Kind;

constexpr DeliveryLanes::Source kAnna{Ipv4{0x0A000001}, 0};
constexpr DeliveryLanes::Source kStranger{Ipv4{0x0A000002}, 0};

class DeliveryLanesTest : public testing::Test {
 protected:
  bool add(const DeliveryLanes::Source& source, const std::string& text, Kind kind = Kind::eOther) {
    return lanes_.add(source, kind, text, now_);
  }

  /// How many of so many messages are taken.
  int taken(int count, const DeliveryLanes::Source& source, Kind kind = Kind::eOther) {
    int taken = 0;
    for (int each = 0; each < count; ++each) taken += add(source, "x", kind) ? 1 : 0;
    return taken;
  }

  DeliveryLanes lanes_{SourceLimits{}};
  DeliveryLanes::Time now_{1h};
};

TEST_F(DeliveryLanesTest, AMessageWaitsForOneOfEachOtherSourceHoweverManyTheyHave) {
  ASSERT_EQ(taken(100'000, kStranger), 20'000);
  for (const char* const text : {"one", "two", "three"}) ASSERT_TRUE(add(kAnna, text));
  std::string order;
  for (int turn = 0; turn < 8; ++turn) order += lanes_.next()->bytes + " ";
  EXPECT_EQ(order, "x one x two x three x x ");
}

TEST_F(DeliveryLanesTest, AllThatWasTakenComesOutInItsOrder) {
  for (int number = 0; number < 1000; ++number) ASSERT_TRUE(add(kAnna, std::to_string(number)));
  for (int number = 0; number < 1000; ++number)
    EXPECT_EQ(lanes_.next()->bytes, std::to_string(number));
  EXPECT_FALSE(lanes_.next());
}

TEST_F(DeliveryLanesTest, ASourceMaySendSoManyAtOnceAndSoManyASecond) {
  EXPECT_EQ(taken(30'000, kAnna), 20'000);
  now_ += 1s;
  EXPECT_EQ(taken(1000, kAnna), 500);
  EXPECT_EQ(taken(10, kStranger), 10);
}

TEST_F(DeliveryLanesTest, ThatASourceIsBeyondItsLimitIsKnownBeforehandAndTakesNothingOfIt) {
  for (int each = 0; each < 10; ++each) EXPECT_FALSE(lanes_.refuseBeyondLimit(kAnna, now_));
  EXPECT_EQ(taken(20'000, kAnna), 20'000);
  for (int each = 0; each < 10; ++each) EXPECT_TRUE(lanes_.refuseBeyondLimit(kAnna, now_));
  EXPECT_FALSE(lanes_.refuseBeyondLimit(kStranger, now_));
  now_ += 1s;
  EXPECT_FALSE(lanes_.refuseBeyondLimit(kAnna, now_));
  EXPECT_EQ(taken(1000, kAnna), 500);
  EXPECT_EQ(lanes_.allLosses().front().overLimit, 510U);
  DeliveryLanes open(SourceLimits{{0, 0}, {0, 0}, {0, 0}});
  EXPECT_FALSE(open.refuseBeyondLimit(kAnna, now_));
}

TEST_F(DeliveryLanesTest, WordsAndRequestsHaveLimitsOfTheirOwn) {
  EXPECT_EQ(taken(200, kAnna, Kind::eWords), 100);
  EXPECT_EQ(taken(20, kAnna, Kind::eRequest), 5);
  now_ += 5s;
  EXPECT_EQ(taken(200, kAnna, Kind::eWords), 100);
  EXPECT_EQ(taken(20, kAnna, Kind::eRequest), 1);
  EXPECT_EQ(taken(20, kAnna), 20);
}

TEST_F(DeliveryLanesTest, ALimitOfNothingIsNone) {
  DeliveryLanes lanes(SourceLimits{{0, 0}, {0, 0}, {0, 0}});
  for (int each = 0; each < 100'000; ++each) {
    ASSERT_TRUE(lanes.add(kAnna, Kind::eRequest, "x", now_));
  }
}

TEST_F(DeliveryLanesTest, AFullLaneLeavesRoomForOthers) {
  const std::string large(60'000, 'x');
  int taken = 0;
  while (add(kStranger, large)) ++taken;
  EXPECT_LE(taken * large.size(), DeliveryLanes::kMaxLaneBytes);
  EXPECT_TRUE(add(kAnna, large));
  ASSERT_TRUE(lanes_.next());
  EXPECT_TRUE(add(kStranger, large));
}

TEST_F(DeliveryLanesTest, ASourcesLossesAreToldOnceAMinute) {
  taken(20'010, kStranger);
  EXPECT_TRUE(lanes_.hasLosses());
  EXPECT_TRUE(lanes_.lossesToTell(now_, 200ms).empty()) << "the flood is not over";
  now_ += 200ms;
  const auto losses = lanes_.lossesToTell(now_, 200ms);
  ASSERT_EQ(losses.size(), 1u);
  EXPECT_EQ(losses.front().source, kStranger);
  EXPECT_EQ(losses.front().overLimit, 10u);
  EXPECT_FALSE(lanes_.hasLosses());
  taken(1000, kStranger);
  now_ += 1s;
  EXPECT_TRUE(lanes_.lossesToTell(now_, 200ms).empty()) << "told a second ago";
  now_ += 1min;
  EXPECT_EQ(lanes_.lossesToTell(now_, 200ms).front().overLimit, 900u);
}

TEST_F(DeliveryLanesTest, UnprovenWordsOfAnyNumberOfSourcesTakeOneTurnAndOneLimit) {
  DeliveryLanes::Source sealed = kAnna;
  sealed.isSealed = true;
  int unproven = 0;
  for (std::uint32_t each = 0; each < 200; ++each) {
    unproven += taken(20, {Ipv4{0x0B000000 + each}, 0}, Kind::eUnprovenWords);
  }
  EXPECT_EQ(unproven, 100);
  ASSERT_TRUE(add(sealed, "lunch?", Kind::eWords));
  EXPECT_EQ(lanes_.next()->source.address, Ipv4{0x0B000000});
  EXPECT_EQ(lanes_.next()->bytes, "lunch?");
  now_ += 1s;
  EXPECT_EQ(taken(200, kStranger, Kind::eUnprovenWords), 20);
  EXPECT_EQ(taken(200, sealed, Kind::eWords), 100);
  now_ += 1min;
  std::uint64_t told = 0;
  for (const auto& loss : lanes_.lossesToTell(now_, 200ms)) told += loss.unproven;
  EXPECT_GE(told, 3900U);
}

TEST_F(DeliveryLanesTest, InventedSourcesTakeNoLaneFromProvenOnes) {
  for (std::uint32_t each = 0; each < 1000; ++each) {
    taken(20, {Ipv4{0x0B000000 + each}, 0});
  }
  ASSERT_TRUE(lanes_.add({kAnna.address, 0, true}, Kind::eOther, "real", now_));
  for (std::size_t turn = 0; turn <= DeliveryLanes::kMaxLanes + 1; ++turn) {
    if (lanes_.next()->bytes == "real") return;
  }
  FAIL() << "the sealed message waits behind the strangers'";
}

TEST_F(DeliveryLanesTest, InventedSourcesShareALaneAndFillNoMemory) {
  for (std::uint32_t each = 0; each < 100'000; ++each) {
    add({Ipv4{0x0B000000 + each}, 0}, "x");
    lanes_.next();
  }
  now_ += 5min;
  EXPECT_TRUE(add(kAnna, "real"));
  EXPECT_EQ(lanes_.next()->bytes, "real");
}

}  // namespace
