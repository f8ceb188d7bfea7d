#include "station/net/HeardList.h"

#include <gtest/gtest.h>

#include <map>

using namespace korvel;

namespace {

constexpr Ipv4 kAnnaAddress{0x0A000001};

std::map<HeardSenders::Who, std::uint64_t> countsOf(const HeardSenders& senders) {
  std::map<HeardSenders::Who, std::uint64_t> counts;
  senders.forEach([&counts](const auto& who, const auto& sender) { counts[who] = sender.count; });
  return counts;
}

void invent(HeardSenders& senders, std::uint32_t count, std::time_t now) {
  for (std::uint32_t each = 0; each < count; ++each) {
    senders.heard(Ipv4{0x0B000000 + each}, 4000, now);
  }
}

TEST(HeardSenders, AreCountedWithTheFirstAndTheLastTime) {
  HeardSenders senders;
  senders.heard(kAnnaAddress, 1, 100);
  senders.heard(kAnnaAddress, 1, 130);
  senders.heard(kAnnaAddress, 2, 140);
  EXPECT_EQ(senders.size(), 2u);
  senders.forEach([](const auto& who, const auto& sender) {
    EXPECT_EQ(sender.count, who.second == 1 ? 2u : 1u);
    EXPECT_EQ(sender.first, who.second == 1 ? 100 : 140);
    EXPECT_EQ(sender.last, who.second == 1 ? 130 : 140);
  });
}

TEST(HeardSenders, OneHeardAfterTenThousandInventedOnesIsListed) {
  HeardSenders senders;
  invent(senders, 10'000, 100);
  senders.heard(kAnnaAddress, 1, 101);
  EXPECT_EQ(senders.size(), HeardSenders::kMostSenders);
  EXPECT_EQ(senders.forgotten(), 10'001 - HeardSenders::kMostSenders);
  EXPECT_EQ((countsOf(senders)[{kAnnaAddress, 1}]), 1u);
}

TEST(HeardSenders, OneThatIsHeardNowAndThenOutlastsInventedOnesWithItsCount) {
  HeardSenders senders;
  senders.heard(kAnnaAddress, 1, 100);
  senders.heard(kAnnaAddress, 1, 101);
  invent(senders, 10'000, 102);
  senders.heard(kAnnaAddress, 1, 103);
  EXPECT_EQ((countsOf(senders)[{kAnnaAddress, 1}]), 3u);
}

TEST(HeardSenders, WhereAllWereHeardOftenTheLongestUnheardGoes) {
  HeardSenders senders;
  senders.heard(kAnnaAddress, 1, 100);
  senders.heard(kAnnaAddress, 1, 100);
  for (int times = 0; times < 2; ++times) invent(senders, HeardSenders::kMostSenders - 1, 101);
  senders.heard(kAnnaAddress, 2, 102);
  EXPECT_EQ(countsOf(senders).count({kAnnaAddress, 1}), 0u);
  EXPECT_EQ(senders.size(), HeardSenders::kMostSenders);
}

}  // namespace
