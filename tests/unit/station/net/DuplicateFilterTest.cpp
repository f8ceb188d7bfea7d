#include "station/net/ListenerSocket.h"

#include <gtest/gtest.h>

#include <cstring>
#include <functional>
#include <string>
#include <utility>

using namespace korvel;

namespace {

using namespace std::chrono_literals;

constexpr Ipv4 kFirst{0x0A000005};
constexpr Ipv4 kSecond{0x0A090005};
constexpr std::uint16_t kPort = 4000;

constexpr std::uint64_t kFactor = 0xC6A4A7935BD1E995;

/// What the standard library's hash makes of a block of eight bytes before it is taken in.
std::uint64_t mixed(std::uint64_t block) {
  block *= kFactor;
  block ^= block >> 47;
  return block * kFactor;
}

std::uint64_t inverseOf(std::uint64_t odd) {
  std::uint64_t inverse = odd;
  for (int step = 0; step < 6; ++step) inverse *= 2 - odd * inverse;
  return inverse;
}

/// The block that mixed() makes this of.
std::uint64_t unmixed(std::uint64_t result) {
  const std::uint64_t inverse = inverseOf(kFactor);
  result *= inverse;
  result ^= result >> 47;
  return result * inverse;
}

/// Two texts of sixteen bytes, none of them zero, that the standard library hashes alike: the state
/// after the first block differs by the same bits as the second block once mixed.
std::pair<std::string, std::string> textsOfOneHash() {
  constexpr std::uint64_t kSeed = 0xC70F6907;
  const std::uint64_t start = kSeed ^ (16 * kFactor);
  const std::uint64_t one = 0x6161616161616161;
  const std::uint64_t oneNext = 0x6262626262626262;
  const std::uint64_t end = ((start ^ mixed(one)) * kFactor) ^ mixed(oneNext);
  for (std::uint64_t other = one + 1;; ++other) {
    const std::uint64_t otherNext = unmixed(end ^ ((start ^ mixed(other)) * kFactor));
    std::string first(16, '\0');
    std::string second(16, '\0');
    std::memcpy(first.data(), &one, 8);
    std::memcpy(first.data() + 8, &oneNext, 8);
    std::memcpy(second.data(), &other, 8);
    std::memcpy(second.data() + 8, &otherNext, 8);
    if (second.find('\0') == second.npos) return {first, second};
  }
}

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

// Murmur2 with the seed that the standard library hashes texts with: knowing both, anybody can
// send bytes with the hash of another message.
TEST_F(DuplicateFilterTest, AMessageWithTheSameUnkeyedHashIsNoCopy) {
  const auto [first, second] = textsOfOneHash();
  ASSERT_NE(first, second);
  ASSERT_EQ(std::hash<std::string>()(first), std::hash<std::string>()(second));
  for (int save = 0; save < 20; ++save) {
    EXPECT_FALSE(isCopy(kFirst, first.c_str()));
    EXPECT_FALSE(isCopy(kSecond, second.c_str()));
    now_ += 200ms;
  }
}

TEST_F(DuplicateFilterTest, ManyInventedAddressesDoNotMakeAMessageSlow) {
  EXPECT_FALSE(isCopy(kFirst, "a"));
  for (std::uint32_t address = 1; address <= 600'000; ++address) {
    EXPECT_TRUE(isCopy(Ipv4{0x0B000000 + address}, "a"));
  }
  EXPECT_EQ(filter_.waysOf({kFirst, kPort, 2, "a"}), DuplicateFilter::kMaxWays);
  EXPECT_FALSE(isCopy(kFirst, "a")) << "said again by its own way";
}

}  // namespace
