#include "station/net/Interfaces.h"

#include <gtest/gtest.h>

using namespace korvel;

namespace {

Ipv4 ip(const char* text) { return *parseIpv4(text); }

NetworkInterface loopback() { return {"lo", 1, ip("127.0.0.1"), {}, true}; }
NetworkInterface wired() { return {"eth0", 2, ip("10.0.0.5"), ip("10.0.0.255"), false}; }
NetworkInterface wireless() { return {"wlan0", 3, ip("10.9.0.5"), ip("10.9.255.255"), false}; }
NetworkInterface tunnel() { return {"tun0", 4, ip("10.8.0.2"), {}, false}; }

using List = std::vector<NetworkInterface>;
using Destinations = std::vector<Destination>;

TEST(Interfaces, EachThatCanBroadcastIsADestination) {
  Interfaces interfaces([] { return List{loopback(), wired(), wireless(), tunnel()}; });
  const Destinations wanted{{ip("10.0.0.255"), 2}, {ip("10.9.255.255"), 3}};
  EXPECT_EQ(interfaces.destinations({}), wanted);
}

TEST(Interfaces, ASecondAddressOfTheSameNetworkIsNoSecondDestination) {
  NetworkInterface alias = wired();
  alias.address = ip("10.0.0.6");
  Interfaces interfaces([&] { return List{wired(), alias}; });
  EXPECT_EQ(interfaces.destinations({}), (Destinations{{ip("10.0.0.255"), 2}}));
}

TEST(Interfaces, LoopbackIsADestinationOnlyWhereThereIsNoOther) {
  const Destinations wanted{{ip("127.255.255.255"), 0}};
  EXPECT_EQ(Interfaces([] { return List{loopback(), tunnel()}; }).destinations({}), wanted);
  EXPECT_EQ(Interfaces([] { return List{}; }).destinations({}), wanted);
}

TEST(Interfaces, MulticastAndLimitedBroadcastLeaveByEachOfThem) {
  for (const char* text : {"239.1.2.3", "255.255.255.255"}) {
    Interfaces interfaces([] { return List{loopback(), wired(), tunnel()}; });
    const Destinations wanted{{ip(text), 2}, {ip(text), 4}};
    EXPECT_EQ(interfaces.destinations({ip(text)}), wanted) << text;
  }
}

TEST(Interfaces, MulticastLeavesByLoopbackWhereThereIsNoOther) {
  Interfaces interfaces([] { return List{loopback()}; });
  EXPECT_EQ(interfaces.destinations({ip("239.1.2.3")}), (Destinations{{ip("239.1.2.3"), 1}}));
}

TEST(Interfaces, ANamedAddressIsSentToOnce) {
  Interfaces interfaces([] { return List{wired(), wireless()}; });
  const std::vector<Ipv4> named{ip("10.0.0.9"), ip("10.0.0.9"), ip("10.0.0.255")};
  const Destinations wanted{{ip("10.0.0.9"), 0}, {ip("10.0.0.255"), 0}};
  EXPECT_EQ(interfaces.destinations(named), wanted);
}

TEST(Interfaces, OwnAddressesAreTheInterfacesAndAllOfLoopback) {
  Interfaces interfaces([] { return List{wired()}; });
  EXPECT_TRUE(interfaces.isOwn(ip("10.0.0.5")));
  EXPECT_TRUE(interfaces.isOwn(ip("127.4.5.6")));
  EXPECT_FALSE(interfaces.isOwn(ip("10.0.0.6")));
}

TEST(Interfaces, AreReadOnceInASecondHoweverOftenTheyAreAskedFor) {
  int reads = 0;
  Interfaces interfaces([&] { return ++reads, List{wired()}; });
  for (int time = 0; time < 1000; ++time) interfaces.isOwn(ip("10.0.0.5"));
  EXPECT_LE(reads, 2);
}

TEST(Interfaces, AreReadAgainAfterAFailedSend) {
  List machine{wired()};
  Interfaces interfaces([&] { return machine; });
  interfaces.destinations({});
  machine = {wireless()};
  const auto isNew = [&] {
    interfaces.reread();
    return interfaces.destinations({}) == Destinations{{ip("10.9.255.255"), 3}};
  };
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(800);
  while (!isNew()) ASSERT_LT(std::chrono::steady_clock::now(), deadline);
}

TEST(Interfaces, OfThisMachineIncludeLoopback) {
  bool hasLoopback = false;
  for (const auto& interface : readNetworkInterfaces()) {
    EXPECT_GT(interface.index, 0u) << interface.name;
    hasLoopback = hasLoopback || (interface.isLoopback && interface.address.isLoopback());
  }
  EXPECT_TRUE(hasLoopback);
}

}  // namespace
