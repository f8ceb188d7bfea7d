#include "station/net/DuplicateFilter.h"

#include <gtest/gtest.h>

#include <string>

using namespace korvel;

namespace {

using namespace std::chrono_literals;

constexpr Ipv4 kFirst{0x0A000005};
constexpr Ipv4 kSecond{0x0A090005};
constexpr std::uint16_t kPort = 4000;

class DuplicateFilterTest : public ::testing::Test {
 protected:
  bool isCopy(Ipv4 source, const char* bytes, std::uint16_t port = kPort, unsigned interface = 2) {
    return filter_.isDuplicate({source, port, interface, bytes}, now_);
  }

  DuplicateFilter filter_;
  DuplicateFilter::Time now_{1h};
};

TEST_F(DuplicateFilterTest, TheSameBytesFromAnotherAddressOfTheSenderAreACopy) {
  EXPECT_FALSE(isCopy(kFirst, "a"));
  EXPECT_TRUE(isCopy(kSecond, "a"));
}

TEST_F(DuplicateFilterTest, TheSameBytesOverAnotherInterfaceAreACopy) {
  EXPECT_FALSE(isCopy(kFirst, "a", kPort, 2));
  EXPECT_TRUE(isCopy(kFirst, "a", kPort, 3));
}

TEST_F(DuplicateFilterTest, TheSameBytesByTheSameWayAreSaidTwice) {
  EXPECT_FALSE(isCopy(kFirst, "a"));
  EXPECT_FALSE(isCopy(kFirst, "a"));
}

TEST_F(DuplicateFilterTest, ALineSaidTwiceOverTwoNetworksIsTwoMessagesInWhateverOrderItComes) {
  const Ipv4 orders[][4] = {{kFirst, kSecond, kFirst, kSecond},
                            {kFirst, kFirst, kSecond, kSecond},
                            {kFirst, kSecond, kSecond, kFirst}};
  for (const auto& order : orders) {
    filter_ = {};
    int messages = 0;
    for (const Ipv4 source : order) messages += isCopy(source, "a") ? 0 : 1;
    EXPECT_EQ(messages, 2);
  }
}

TEST_F(DuplicateFilterTest, OtherBytesOrAnotherPortAreAnotherMessage) {
  EXPECT_FALSE(isCopy(kFirst, "a"));
  EXPECT_FALSE(isCopy(kSecond, "b"));
  EXPECT_FALSE(isCopy(kSecond, "a", kPort + 1));
}

TEST_F(DuplicateFilterTest, ACopyCountsForATenthOfASecond) {
  EXPECT_FALSE(isCopy(kFirst, "a"));
  now_ += 99ms;
  EXPECT_TRUE(isCopy(kSecond, "a"));
  now_ += 2ms;
  EXPECT_FALSE(isCopy(kSecond, "a"));
}

TEST_F(DuplicateFilterTest, ALaterSayingIsNotTakenForACopyOfAForgottenOne) {
  EXPECT_FALSE(isCopy(kFirst, "a"));
  now_ += 60ms;
  EXPECT_FALSE(isCopy(kFirst, "a"));
  now_ += 60ms;  // the first is forgotten, the second is not
  EXPECT_TRUE(isCopy(kSecond, "a"));
  EXPECT_FALSE(isCopy(kSecond, "a"));
}

TEST_F(DuplicateFilterTest, RemembersABoundedNumberAndNothingAfterTheWindow) {
  for (std::size_t count = 0; count < 2 * DuplicateFilter::kMaxRemembered; ++count) {
    const std::string text = std::to_string(count);
    ASSERT_FALSE(isCopy(kFirst, text.c_str()));
    ASSERT_LE(filter_.remembered(), DuplicateFilter::kMaxRemembered);
  }
  now_ += 1s;
  EXPECT_FALSE(isCopy(kFirst, "last"));
  EXPECT_EQ(filter_.remembered(), 1u);
}

}  // namespace
