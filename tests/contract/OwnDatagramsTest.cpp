// A station's own datagrams come back to it: the system leaves them out, so that they wake nobody.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <linux/filter.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "station/base/HostThread.h"
#include "station/net/UdpListener.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

/// A UDP socket at a loopback address, and at a port of the system's choice where none is named.
class Peer {
 public:
  explicit Peer(const char* address, int port = 0) : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
    const sockaddr_in own = addressOf(address, port);
    EXPECT_EQ(bind(socket_, reinterpret_cast<const sockaddr*>(&own), sizeof own), 0);
  }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;
  ~Peer() { close(socket_); }

  [[nodiscard]] std::uint16_t port() const {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
  }

  void send(const std::string& text, int port) const {
    const sockaddr_in to = addressOf("127.0.0.1", port);
    EXPECT_EQ(sendto(socket_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                     sizeof to),
              ssize_t(text.size()));
  }

 private:
  static sockaddr_in addressOf(const char* address, int port) {
    sockaddr_in result{};
    result.sin_family = AF_INET;
    result.sin_port = htons(static_cast<std::uint16_t>(port));
    inet_pton(AF_INET, address, &result.sin_addr);
    return result;
  }

  int socket_;
};

int portOfNobody() { return Peer("127.0.0.1").port(); }

Ipv4Network network(const char* text) { return *parseIpv4Network(text); }

class OwnFilterTest : public ::testing::Test {
 protected:
  /// All texts that the socket gives out now, joined.
  std::string heard() {
    DatagramReader reader;
    std::string all;
    const int count = reader.read(socket_->descriptor());
    for (int each = 0; each < count; ++each) {
      all += reader.at(static_cast<std::size_t>(each)).bytes;
    }
    return all;
  }

  /// Two addresses with one port, and a third sender that shares the first's address.
  void sendFromAll() const {
    first_.send("1", port_);
    second_.send("2", port_);
    neighbour_.send("n", port_);
  }

  const int port_ = portOfNobody();
  const Peer first_{"127.0.0.5"};
  const Peer second_{"127.0.0.6", first_.port()};
  const Peer neighbour_{"127.0.0.5"};
  Result<ListenerSocket> socket_ = ListenerSocket::open("127.0.0.1", port_);
};

TEST_F(OwnFilterTest, LeavesOutWhatThisPortSendsFromAnOwnAddressAndNothingElse) {
  EXPECT_TRUE(socket_->leaveOut(first_.port(), {network("127.0.0.5")}));
  sendFromAll();
  EXPECT_EQ(heard(), "2n");
}

TEST_F(OwnFilterTest, FollowsTheAddresses) {
  OwnFilter filter;
  filter.follow(*socket_, first_.port(), {network("127.0.0.5")});
  filter.follow(*socket_, first_.port(), {network("127.0.0.6"), network("10.0.0.1")});
  sendFromAll();
  EXPECT_EQ(heard(), "1n");
  filter.follow(*socket_, first_.port(), {network("127.0.0.0/8")});
  sendFromAll();
  EXPECT_EQ(heard(), "n");
  filter.follow(*socket_, 0, {});
  sendFromAll();
  EXPECT_EQ(heard(), "12n");
}

TEST_F(OwnFilterTest, WhereTheSystemRefusesAllIsHeard) {
  const int on = 1;
  setsockopt(socket_->descriptor(), SOL_SOCKET, SO_LOCK_FILTER, &on, sizeof on);
  EXPECT_FALSE(socket_->leaveOut(first_.port(), {network("127.0.0.5")}));
  sendFromAll();
  EXPECT_EQ(heard(), "12n");
}

TEST_F(OwnFilterTest, MoreAddressesThanTheSystemTakesLeaveOutNothing) {
  EXPECT_TRUE(socket_->leaveOut(first_.port(), {network("127.0.0.5")}));
  EXPECT_FALSE(socket_->leaveOut(first_.port(), std::vector(1000, network("127.0.0.5"))));
  sendFromAll();
  EXPECT_EQ(heard(), "12n");
}

/// Notes what a listener hands on.
class Texts : public iNetMessageReceiver {
 public:
  int receive(const Kv::Ptr<iMemHolder>& buffer, iTCPReceiveContext*) override {
    all.emplace_back(buffer->bytes(), buffer->size());
    return 1;
  }

  std::vector<std::string> all;
};

class OwnDatagramsTest : public ::testing::Test {
 protected:
  /// A listener whose own sender is `own_`; with the system's filter, or without.
  UdpListener& listen(bool isFilterRefused = false) {
    auto socket = ListenerSocket::open("0.0.0.0", port_);
    descriptor_ = socket->descriptor();
    const int refused = isFilterRefused ? 1 : 0;
    setsockopt(descriptor_, SOL_SOCKET, SO_LOCK_FILTER, &refused, sizeof refused);
    listener_ = std::make_unique<UdpListener>(
        std::move(*socket),
        UdpListener::Dependencies{
            hostThread_, interfaces_, own_, {}, AcceptedNetworks(""), nullptr},
        &texts_);
    return *listener_;
  }

  void sendOwn(int count) {
    for (int each = 0; each < count; ++each) {
      own_->send({*parseIpv4("127.255.255.255"), 0}, static_cast<std::uint16_t>(port_), "own");
    }
  }

  bool hears(std::size_t count) {
    return becomesTrue([&] {
      hostThread_.runPending();
      return texts_.all.size() >= count;
    });
  }

  [[nodiscard]] int filterLength() const {
    socklen_t length = 0;
    getsockopt(descriptor_, SOL_SOCKET, SO_GET_FILTER, nullptr, &length);
    return static_cast<int>(length);
  }

  RecordedEvents events_;
  const int port_ = portOfNobody();
  HostThread hostThread_;
  std::atomic<bool> hasNewAddress_{false};
  std::shared_ptr<Interfaces> interfaces_ = std::make_shared<Interfaces>([this] {
    std::vector<NetworkInterface> list{{"lo", 1, *parseIpv4("127.0.0.1"), {}, true}};
    if (hasNewAddress_) list.push_back({"eth0", 2, *parseIpv4("192.0.2.1"), {}, false});
    return list;
  });
  std::shared_ptr<SenderSocket> own_ = std::make_shared<SenderSocket>();
  Texts texts_;
  int descriptor_ = -1;
  std::unique_ptr<UdpListener> listener_;
};

TEST_F(OwnDatagramsTest, NoneIsReadWhileThoseOfOthersAre) {
  const UdpListener& listener = listen();
  sendOwn(1000);
  Peer("127.0.0.1").send("another's", port_);
  EXPECT_TRUE(hears(1));
  EXPECT_EQ(listener.datagramsRead(), 1u);
}

TEST_F(OwnDatagramsTest, AreNoLoss) {
  listen();
  sendOwn(50'000);
  const Peer other("127.0.0.1");
  // More than would fill half of the socket's buffer, so that losses are looked for.
  constexpr std::size_t kOthers = 10'000;
  for (std::size_t each = 0; each < kOthers; ++each) {
    if (each % 10 == 0) sendOwn(1);
    other.send("another's " + std::to_string(each), port_);
  }
  EXPECT_TRUE(becomesTrue([&] {
    hostThread_.runPending();
    return texts_.all.size() + events_.dropped() >= kOthers;
  }));
  listener_.reset();  // tells all losses
  EXPECT_EQ(texts_.all.size() + events_.dropped(), kOthers) << events_.told();
}

TEST_F(OwnDatagramsTest, WhereTheSystemRefusesAFilterTheListenerDropsThem) {
  const UdpListener& listener = listen(true);
  sendOwn(10);
  Peer("127.0.0.1").send("another's", port_);
  EXPECT_TRUE(hears(1));
  EXPECT_EQ(texts_.all, std::vector<std::string>{"another's"});
  EXPECT_EQ(listener.datagramsRead(), 11u);
}

TEST_F(OwnDatagramsTest, ANewAddressOfThisMachineIsFilteredSoon) {
  listen();
  const int before = filterLength();
  hasNewAddress_ = true;
  EXPECT_TRUE(becomesTrue([&] { return filterLength() > before; }));
  hasNewAddress_ = false;
  EXPECT_TRUE(becomesTrue([&] { return filterLength() == before; }));
}

TEST(DropCountTest, CountsWhatIsLostWhileTheBufferIsFullAndNotWhatIsFiltered) {
  DropCount drops(1'000'000);
  drops.wasRead(1, 100);
  EXPECT_EQ(drops.lost(7, 7), 0u) << "filtered";
  EXPECT_EQ(drops.lost(9, 7), 0u) << "nothing is lost while the buffer is nearly empty";
  drops.wasRead(64, 500'000);
  EXPECT_TRUE(drops.mayHaveBeenFull());
  EXPECT_EQ(drops.lost(29, 12), 15u) << "of 20 dropped 5 were filtered";
  EXPECT_EQ(drops.lost(25, 12), 15u) << "an older count";
  EXPECT_EQ(drops.lost(31, 20), 15u);
  drops.wasEmptied(20);
  EXPECT_FALSE(drops.mayHaveBeenFull());
  EXPECT_EQ(drops.lost(40, 30), 15u) << "9 were filtered";
  drops.wasRead(64, 500'000);
  EXPECT_EQ(drops.lost(60, 30), 28u) << "of 20 dropped 7 were filtered, what was sent before the "
                                        "socket was empty being accounted for";
}

TEST(DropCountTest, WhatWasFilteredAsAFloodBeganHidesNoLoss) {
  DropCount drops(1'000'000);
  drops.wasEmptied(1);
  drops.wasRead(1, 100);
  EXPECT_EQ(drops.lost(2, 2), 0u) << "both came back, the second after the socket was empty";
  drops.wasRead(64, 500'000);
  EXPECT_EQ(drops.lost(12, 2), 10u);
}

}  // namespace
