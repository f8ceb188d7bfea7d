#include "station/net/Interfaces.h"

#include <gtest/gtest.h>

using namespace korvel;

namespace {

TEST(Ipv4, AddressesReadBackAsWritten) {
  for (const char* text : {"0.0.0.0", "127.255.255.255", "192.168.1.7", "255.255.255.255"}) {
    const auto address = parseIpv4(text);
    ASSERT_TRUE(address) << text;
    EXPECT_EQ(textOf(*address), text);
  }
}

TEST(Ipv4, OtherTextsAreNoAddresses) {
  for (const char* text : {"", "1.2.3", "1.2.3.4.5", "1.2.3.256", "::1", "localhost", "1.2.3.4 "})
    EXPECT_FALSE(parseIpv4(text)) << text;
}

TEST(Ipv4, KnowsWhatAnAddressIsFor) {
  EXPECT_TRUE(parseIpv4("224.0.0.1")->isMulticast());
  EXPECT_TRUE(parseIpv4("239.255.255.255")->isMulticast());
  EXPECT_FALSE(parseIpv4("240.0.0.0")->isMulticast());
  EXPECT_TRUE(parseIpv4("127.3.2.1")->isLoopback());
  EXPECT_TRUE(parseIpv4("255.255.255.255")->isLimitedBroadcast());
}

struct NetworkRow {
  const char* network;
  const char* address;
  bool isInside;
};

TEST(Ipv4Network, ContainsTheAddressesThatShareItsPrefix) {
  const NetworkRow rows[] = {
      {"192.168.1.0/24", "192.168.1.255", true}, {"192.168.1.0/24", "192.168.2.0", false},
      {"10.9.8.7/8", "10.0.0.1", true},          {"10.0.0.1", "10.0.0.1", true},
      {"10.0.0.1", "10.0.0.2", false},           {"0.0.0.0/0", "8.8.8.8", true},
      {"10.0.0.1/32", "10.0.0.0", false},        {"128.0.0.0/1", "127.0.0.1", false},
  };
  for (const auto& row : rows) {
    const auto network = parseIpv4Network(row.network);
    ASSERT_TRUE(network) << row.network;
    EXPECT_EQ(network->contains(*parseIpv4(row.address)), row.isInside)
        << row.network << " " << row.address;
  }
}

TEST(Ipv4Network, OtherTextsAreNoNetworks) {
  for (const char* text : {"", "/24", "10.0.0.0/", "10.0.0.0/33", "10.0.0.0/-1", "10.0.0.0/8x"})
    EXPECT_FALSE(parseIpv4Network(text)) << text;
}

}  // namespace
