#include "station/net/NetworkService.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <latch>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "station/base/StationSettings.h"
#include "station/net/DeliveryLanes.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

/// Notes what arrives, with the origin that changes would have meanwhile.
class Receiver : public iNetMessageReceiver {
 public:
  int receive(const Kv::Ptr<iMemHolder>& buffer, iTCPReceiveContext* context) override {
    texts.emplace_back(buffer->bytes(), buffer->size());
    origins.push_back(currentOrigin());
    contexts.push_back(context);
    return 1;
  }

  std::vector<std::string> texts;
  std::vector<Origin> origins;
  std::vector<iTCPReceiveContext*> contexts;
};

sockaddr_in addressOf(const char* address, int port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(static_cast<std::uint16_t>(port));
  inet_pton(AF_INET, address, &result.sin_addr);
  return result;
}

/// A UDP socket of some other program.
class ForeignSocket {
 public:
  explicit ForeignSocket(const char* address = "127.0.0.1", int port = 0)
      : socket_(socket(AF_INET, SOCK_DGRAM, 0)) {
    const int on = 1;
    setsockopt(socket_, SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
    const auto own = addressOf(address, port);
    isBound_ = bind(socket_, reinterpret_cast<const sockaddr*>(&own), sizeof own) == 0;
  }
  ForeignSocket(const ForeignSocket&) = delete;
  ForeignSocket& operator=(const ForeignSocket&) = delete;
  ~ForeignSocket() { close(socket_); }

  [[nodiscard]] bool isBound() const { return isBound_; }
  [[nodiscard]] int port() const {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    getsockname(socket_, reinterpret_cast<sockaddr*>(&own), &size);
    return ntohs(own.sin_port);
  }
  bool send(const std::string& bytes, int port) const {
    const auto to = addressOf("127.255.255.255", port);
    return sendto(socket_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to),
                  sizeof to) == static_cast<ssize_t>(bytes.size());
  }

 private:
  int socket_;
  bool isBound_ = false;
};

/// A port that nobody uses now.
int freePort() { return ForeignSocket("0.0.0.0").port(); }

std::vector<NetworkInterface> loopbackAlone() {
  return {{"lo", 1, *parseIpv4("127.0.0.1"), {}, true}};
}

/// One station's network on loopback; its host thread runs when the test lets it.
struct Station {
  HostThread hostThread;
  NetworkService service{hostThread, loopbackAlone};
  Receiver receiver;
  Kv::Ptr<iUDPListener> listener;
  Kv::Ptr<iUDPBroadcaster> broadcaster;

  explicit Station(int port)
      : listener(service.createUDPListener(port, 0, &receiver)),
        broadcaster(service.createUDPBroadcaster(port)) {}

  /// Runs the host thread until this many texts have arrived.
  bool receives(std::size_t count) {
    return becomesTrue([&] {
      hostThread.runPending();
      return receiver.texts.size() >= count;
    });
  }
};

class NetworkServiceTest : public ::testing::Test {
 protected:
  /// A station with settings that keep it on loopback.
  Station& station(const std::vector<std::string>& sendTo = {"127.255.255.255"},
                   const std::string& networks = {}) {
    StationSettings with;
    with.sendTo = sendTo;
    with.config["receive_limit"] = limit_;
    if (!networks.empty()) with.config["accept_networks"] = networks;
    with.config.insert(config_.begin(), config_.end());
    installSettings(with);
    stations_.push_back(std::make_unique<Station>(port_));
    return *stations_.back();
  }

  RecordedEvents events_;
  std::string limit_ = "0";  ///< messages a second that are taken of one source; 0 for no limit
  std::map<std::string, std::string> config_;  ///< further values of the configuration
  int port_ = freePort();
  std::vector<std::unique_ptr<Station>> stations_;
};

TEST_F(NetworkServiceTest, ABroadcastReachesEveryOtherStationOfTheMachineOnce) {
  Station& sender = station();
  Station& second = station();
  Station& third = station();
  sender.broadcaster->broadcast("hello");
  sender.broadcaster->broadcast("end");
  EXPECT_TRUE(second.receives(2));
  EXPECT_TRUE(third.receives(2));
  const std::vector<std::string> wanted{"hello", "end"};
  EXPECT_EQ(second.receiver.texts, wanted);
  EXPECT_EQ(third.receiver.texts, wanted);
}

TEST_F(NetworkServiceTest, AStationDoesNotHearItself) {
  Station& sender = station();
  sender.broadcaster->broadcast("mine");
  ForeignSocket().send("another's", port_);
  EXPECT_TRUE(sender.receives(1));
  EXPECT_EQ(sender.receiver.texts, std::vector<std::string>{"another's"});
}

TEST_F(NetworkServiceTest, ALineSaidTwiceIsReceivedTwice) {
  Station& sender = station();
  Station& other = station();
  sender.broadcaster->broadcast("again");
  sender.broadcaster->broadcast("again");
  EXPECT_TRUE(other.receives(2));
}

TEST_F(NetworkServiceTest, ADeliveryIsARemoteChangeAndIsAnEventBefore) {
  Station& sender = station();
  Station& other = station();
  sender.broadcaster->broadcast("hello");
  ASSERT_TRUE(other.receives(1));
  EXPECT_EQ(other.receiver.origins, std::vector<Origin>{Origin::eRemote});
  EXPECT_EQ(other.receiver.contexts, std::vector<iTCPReceiveContext*>{nullptr});
  EXPECT_EQ(events_.receivedTexts, std::vector<std::string>{"hello"});
  EXPECT_EQ(events_.sentTexts, std::vector<std::string>{"hello"});
  EXPECT_EQ(currentOrigin(), Origin::eLocal);
}

TEST_F(NetworkServiceTest, BytesArriveAsTheyAre) {
  Station& sender = station();
  Station& other = station();
  const std::vector<std::string> texts{std::string(), "d", std::string("a\0b", 3), "\xFF\xAC\xC3",
                                       std::string(65'507, 'x')};
  for (const auto& text : texts)
    sender.broadcaster->broadcast(LightweightString<char>(std::string_view(text)));
  EXPECT_TRUE(other.receives(texts.size()));
  EXPECT_EQ(other.receiver.texts, texts);
}

TEST_F(NetworkServiceTest, ATextLargerThanADatagramIsRefusedAndTold) {
  Station& sender = station();
  const std::string text(65'508, 'x');
  sender.broadcaster->broadcast(LightweightString<char>(std::string_view(text)));
  EXPECT_NE(events_.told().find("a message of 65508 bytes was not sent"), std::string::npos);
  EXPECT_TRUE(events_.sentTexts.empty());
}

TEST_F(NetworkServiceTest, ReleasingTheListenerEndsDeliveryAtOnceEvenOfWhatIsQueued) {
  limit_ = "0.01";  // one at once: the second's refusal shows that the first is queued
  Station& sender = station();
  Station& other = station();
  sender.broadcaster->broadcast("queued");
  sender.broadcaster->broadcast("refused");
  ASSERT_TRUE(becomesTrue([&] { return events_.dropped() == 1; }));
  other.listener.reset();
  other.hostThread.runPending();
  EXPECT_TRUE(other.receiver.texts.empty());
}

TEST_F(NetworkServiceTest, AReleasedListenerMakesRoomForANewOne) {
  Station& sender = station();
  Station& other = station();
  for (int time = 0; time < 20; ++time) {
    other.listener = nullptr;
    other.listener = other.service.createUDPListener(port_, 0, &other.receiver);
  }
  sender.broadcaster->broadcast("hello");
  EXPECT_TRUE(other.receives(1));
}

TEST_F(NetworkServiceTest, APortHeldByAProgramThatDoesNotShareItIsTold) {
  const ForeignSocket holder("0.0.0.0", port_);
  ASSERT_TRUE(holder.isBound());
  Station& deaf = station();
  ASSERT_TRUE(deaf.listener);
  ASSERT_FALSE(deaf.service.listening());
  EXPECT_EQ(deaf.service.listening().error().code, ErrorCode::eHeld);
  EXPECT_NE(events_.told().find("UDP port " + std::to_string(port_) + " is in use by another"),
            std::string::npos);
}

TEST_F(NetworkServiceTest, AStationThatHearsSaysSo) {
  EXPECT_TRUE(station().service.listening());
  EXPECT_EQ(events_.told(), "");
}

struct RefusedRow {
  const char* listen;
  int port;
  const char* told;
};

TEST_F(NetworkServiceTest, AnAddressOrPortThatCannotBeHadIsTold) {
  const RefusedRow rows[] = {{"192.0.2.1", 0, "no address of this machine"},
                             {"localhost", 0, "no IPv4 address"},
                             {"127.0.0.1", 70'000, "1 to 65535"},
                             {"127.0.0.1", -1, "1 to 65535"}};
  for (const auto& row : rows) {
    StationSettings with;
    with.listen = row.listen;
    installSettings(with);
    Station deaf(row.port == 0 ? port_ : row.port);
    ASSERT_FALSE(deaf.service.listening()) << row.listen;
    EXPECT_NE(deaf.service.listening().error().message.find(row.told), std::string::npos)
        << deaf.service.listening().error().message;
  }
}

TEST_F(NetworkServiceTest, APortThatCannotBeSentToIsToldOnce) {
  Station& sender = station();
  sender.broadcaster = sender.service.createUDPBroadcaster(70'000);
  for (int time = 0; time < 3; ++time) sender.broadcaster->broadcast("hello");
  ASSERT_EQ(events_.problems().size(), 1u);
  EXPECT_NE(events_.told().find("nothing can be sent to port 70000"), std::string::npos);
  EXPECT_TRUE(events_.sentTexts.empty());
}

TEST_F(NetworkServiceTest, OnlyTheNetworksNamedInTheConfigurationAreHeard) {
  Station& picky = station({"127.255.255.255"}, "127.0.0.1/32");
  ForeignSocket("127.0.0.2").send("refused", port_);
  ForeignSocket("127.0.0.2").send("refused again", port_);
  ForeignSocket("127.0.0.1").send("taken", port_);
  EXPECT_TRUE(picky.receives(1));
  EXPECT_EQ(picky.receiver.texts, std::vector<std::string>{"taken"});
  ASSERT_EQ(events_.problems().size(), 1u);
  EXPECT_NE(events_.told().find("a sender refused: datagrams from 127.0.0.2"), std::string::npos);
  EXPECT_EQ(events_.audits(), std::vector<std::string>{"refused"});
}

TEST_F(NetworkServiceTest, OnlyTheStationsNamedInTheConfigurationAreHeard) {
  config_["accept_stations"] = " anna , 00000000000000ff";
  Station& picky = station();
  const ForeignSocket anna("127.0.0.1");
  const ForeignSocket ben("127.0.0.1");
  const std::map<int, std::string> users{{anna.port(), "ANNA"}, {ben.port(), "BEN"}};
  DeliveryHooks hooks;
  hooks.namesOf = [&users](Ipv4, std::uint16_t port, std::uint64_t) {
    const auto found = users.find(port);
    return found == users.end() ? std::vector<std::string>() : std::vector{found->second};
  };
  picky.service.hookBy(hooks);
  picky.listener = nullptr;
  picky.listener = picky.service.createUDPListener(port_, 0, &picky.receiver);
  ben.send("refused", port_);
  ForeignSocket("127.0.0.1").send("nobody's", port_);
  ben.send("refused again", port_);
  anna.send("taken", port_);
  EXPECT_TRUE(picky.receives(1));
  EXPECT_EQ(picky.receiver.texts, std::vector<std::string>{"taken"});
  const auto problems = events_.problems();
  ASSERT_EQ(problems.size(), 2U) << events_.told();
  EXPECT_NE(problems.front().text.find("(BEN) sends is not taken, since accept_stations"),
            std::string::npos)
      << problems.front().text;
  EXPECT_EQ(events_.audits(), (std::vector<std::string>{"refused", "refused"}));
}

TEST_F(NetworkServiceTest, AMulticastGroupIsJoinedAndSentTo) {
  Station& sender = station({"239.255.77.77"});
  Station& other = station({"239.255.77.77"});
  sender.broadcaster->broadcast("to the group");
  EXPECT_TRUE(other.receives(1)) << events_.told();
  EXPECT_EQ(events_.told(), "");
}

TEST_F(NetworkServiceTest, SeveralDestinationsMakeOneSentEvent) {
  Station& sender = station({"127.255.255.255", "127.0.0.1"});
  sender.broadcaster->broadcast("hello");
  EXPECT_EQ(events_.sentTexts.size(), 1u);
}

/// An interface that this machine does not have (any more).
NetworkInterface unpluggedInterface() {
  return {"gone0", 987'654, *parseIpv4("127.0.0.1"), *parseIpv4("127.255.255.255"), false};
}

TEST_F(NetworkServiceTest, AMessageThatCannotLeaveIsToldOnce) {
  HostThread hostThread;
  installSettings({});
  NetworkService service(hostThread, [] { return std::vector{unpluggedInterface()}; });
  const auto broadcaster = service.createUDPBroadcaster(port_);
  for (int time = 0; time < 3; ++time) broadcaster->broadcast("hello");
  ASSERT_EQ(events_.problems().size(), 1u) << events_.told();
  EXPECT_NE(events_.told().find("could not be sent to 127.255.255.255 port"), std::string::npos);
  EXPECT_NE(events_.told().find("over gone0"), std::string::npos);
  EXPECT_TRUE(events_.sentTexts.empty());
}

TEST_F(NetworkServiceTest, AFailedSendMakesTheStationLookForWhatIsPluggedInNow) {
  Station& other = station();
  installSettings({});
  auto machine = std::vector{unpluggedInterface()};
  HostThread hostThread;
  NetworkService service(hostThread, [&] { return machine; });
  const auto broadcaster = service.createUDPBroadcaster(port_);
  broadcaster->broadcast("lost");
  machine = loopbackAlone();
  // Not for luck: a list stays for 20 ms even after a failure, and for a second without one.
  // However long this machine takes, the first is over; and well before the second, where all is
  // well.
  std::this_thread::sleep_for(std::chrono::milliseconds(50));
  broadcaster->broadcast("hello");
  EXPECT_TRUE(other.receives(1));
  EXPECT_EQ(other.receiver.texts, std::vector<std::string>{"hello"});
}

TEST_F(NetworkServiceTest, AWordThatIsNoAddressKeepsMessagesOnThisMachine) {
  Station& other = station();
  Station& sender = station({"nonsense"});
  sender.broadcaster->broadcast("hello");
  EXPECT_TRUE(other.receives(1));
  EXPECT_NE(events_.told().find("--send-to names \"nonsense\""), std::string::npos);
}

/// Three senders at once, as fast as they can, each with its own numbered texts.
class FloodTest : public NetworkServiceTest {
 protected:
  static constexpr int kSenders = 3;

  void flood(int each, std::size_t bytes) {
    std::vector<std::thread> senders;
    for (int sender = 0; sender < kSenders; ++sender) {
      senders.emplace_back([=, this] {
        const ForeignSocket socket;
        for (int number = 0; number < each; ++number) {
          std::string text = std::to_string(sender) + ":" + std::to_string(number) + ":";
          text.resize(std::max(bytes, text.size()), '.');
          while (!socket.send(text, port_)) std::this_thread::yield();
        }
      });
    }
    for (auto& sender : senders) sender.join();
  }

  /// Runs the host thread until what arrived and what is told as dropped make up what was sent.
  bool addsUp(Station& receiver, std::size_t sent) {
    return becomesTrue([&] {
      receiver.hostThread.runPending();
      return receiver.receiver.texts.size() + events_.dropped() >= sent;
    });
  }

  static void expectOrder(const std::vector<std::string>& texts) {
    int last[kSenders] = {-1, -1, -1};
    for (const auto& text : texts) {
      const int sender = text[0] - '0';
      const int number = std::stoi(text.substr(2));
      ASSERT_GT(number, last[sender]);
      last[sender] = number;
    }
  }
};

TEST_F(FloodTest, AHundredThousandMessagesWhileTheHostThreadIsBusyArriveOrAreTold) {
  constexpr int kEach = 33'334;
  Station& receiver = station();
  std::latch isBlocked(1);
  std::latch mayGoOn(1);
  receiver.hostThread.post([&] {
    isBlocked.count_down();
    mayGoOn.wait();
  });
  std::thread hostThread([&] { receiver.hostThread.runPending(); });
  isBlocked.wait();
  flood(kEach, 120);
  mayGoOn.count_down();
  hostThread.join();
  EXPECT_TRUE(addsUp(receiver, kSenders * kEach));
  EXPECT_EQ(receiver.receiver.texts.size() + events_.dropped(), std::size_t{kSenders * kEach});
  expectOrder(receiver.receiver.texts);
}

TEST_F(FloodTest, OfLargeDatagramsArrivesOrIsTold) {
  constexpr int kEach = 600;
  Station& receiver = station();
  flood(kEach, 60'000);
  EXPECT_TRUE(addsUp(receiver, kSenders * kEach));
  EXPECT_EQ(receiver.receiver.texts.size() + events_.dropped(), std::size_t{kSenders * kEach});
  expectOrder(receiver.receiver.texts);
}

TEST_F(FloodTest, WhatAFullLaneRefusesIsToldInOneEventOfItsSource) {
  constexpr std::size_t kMost = 1500;
  Station& receiver = station();
  const ForeignSocket stranger;
  const std::string text(60'000, '.');
  ASSERT_GT(kMost * text.size(), 2 * DeliveryLanes::kMaxLaneBytes);
  std::size_t sent = 0;
  // A few at a time, so that the system's own buffer is not what is full.
  ASSERT_TRUE(becomesTrue([&] {
    for (int more = 0; more < 4 && sent < kMost; ++more) sent += stranger.send(text, port_) ? 1 : 0;
    return events_.told().find("full queue") != std::string::npos;
  })) << events_.told();
  EXPECT_TRUE(addsUp(receiver, sent));
  EXPECT_EQ(receiver.receiver.texts.size() + events_.dropped(), sent);
  EXPECT_NE(events_.told().find("of 127.0.0.1 port " + std::to_string(stranger.port())),
            std::string::npos);
}

TEST_F(FloodTest, WhatASourceSendsBeyondItsLimitIsDroppedAndTold) {
  limit_ = "10";
  Station& receiver = station();
  const ForeignSocket stranger;
  for (int number = 0; number < 2000; ++number) {
    while (!stranger.send(std::to_string(number), port_)) std::this_thread::yield();
  }
  EXPECT_TRUE(addsUp(receiver, 2000));
  EXPECT_EQ(receiver.receiver.texts.size() + events_.dropped(), 2000u);
  EXPECT_GE(receiver.receiver.texts.size(), 400u) << "so many may come at once";
  EXPECT_GT(events_.dropped(), 0u);
  EXPECT_NE(events_.told().find("of 127.0.0.1 port " + std::to_string(stranger.port()) +
                                " dropped, since it sends more"),
            std::string::npos)
      << events_.told();
}

TEST_F(NetworkServiceTest, ALimitThatIsNoNumberIsTold) {
  limit_ = "many";
  station();
  EXPECT_NE(events_.told().find("receive_limit is \"many\""), std::string::npos);
}

}  // namespace
