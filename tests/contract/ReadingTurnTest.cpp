// Who reads a listener's socket: an idle host thread, or another thread while that one is busy.

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <latch>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "station/base/HostThread.h"
#include "station/net/UdpListener.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;
using namespace std::chrono_literals;

namespace {

class ReadingTurnTest : public ::testing::Test {
 protected:
  using Reader = ReadingTurn::Reader;

  /// As the reader thread does once the host thread waits for the first time.
  void giveBack() {
    ASSERT_FALSE(turn_.beginWait(now_));
    ASSERT_EQ(turn_.next(now_, true), Reader::eGaveBack);
    turn_.endWait(now_, false);
    ASSERT_TRUE(turn_.beginWait(now_));
  }

  /// Whether the alarm goes off, which is then quiet again.
  bool isWoken(int milliseconds = 10'000) {
    pollfd alarm{turn_.alarm(), POLLIN, 0};
    const bool isOff = poll(&alarm, 1, milliseconds) == 1;
    turn_.quietAlarm();
    return isOff;
  }

  ReadingTurn turn_{5ms};
  ReadingTurn::Time now_{1h};
};

TEST_F(ReadingTurnTest, IsTheReadersUntilTheHostThreadWaits) {
  EXPECT_EQ(turn_.next(now_, true), Reader::eReads);
  EXPECT_FALSE(turn_.beginWait(now_));
  EXPECT_TRUE(isWoken());
  EXPECT_EQ(turn_.next(now_, true), Reader::eGaveBack);
  turn_.endWait(now_, false);
  EXPECT_TRUE(turn_.beginWait(now_));
  EXPECT_EQ(turn_.next(now_, true), Reader::eSleeps);
}

TEST_F(ReadingTurnTest, IsTheReadersAgainWhenTheHostThreadWorksForLong) {
  giveBack();
  turn_.endWait(now_, false);
  EXPECT_TRUE(isWoken());
  EXPECT_EQ(turn_.next(now_ + 4ms, true), Reader::eSleeps);
  EXPECT_TRUE(isWoken()) << "for the rest of the time";
  EXPECT_EQ(turn_.next(now_ + 5ms, true), Reader::eReads);
  EXPECT_FALSE(turn_.beginWait(now_));
}

TEST_F(ReadingTurnTest, ShortWorkWakesTheReaderOnceAtMost) {
  giveBack();
  for (int each = 0; each < 1000; ++each) {
    turn_.endWait(now_, false);
    EXPECT_TRUE(turn_.beginWait(now_));
  }
  EXPECT_TRUE(isWoken());
  EXPECT_EQ(turn_.next(now_, true), Reader::eSleeps);
  EXPECT_FALSE(isWoken(50));
}

TEST_F(ReadingTurnTest, RareWorkDoesNotWakeTheReader) {
  giveBack();
  for (int each = 0; each < 3; ++each) {
    turn_.endWait(now_ += 2s, false);
    EXPECT_TRUE(turn_.beginWait(now_));
  }
  EXPECT_FALSE(isWoken(50));
}

TEST_F(ReadingTurnTest, WhatMustBeToldKeepsItWithTheReader) {
  giveBack();
  turn_.endWait(now_, true);
  EXPECT_TRUE(isWoken());
  EXPECT_FALSE(turn_.beginWait(now_));
  EXPECT_FALSE(isWoken(50)) << "it was woken already";
  turn_.endWait(now_, false);
  EXPECT_EQ(turn_.next(now_, false), Reader::eReads);
  EXPECT_FALSE(turn_.beginWait(now_));
  EXPECT_FALSE(isWoken(50)) << "asking again and again would cost more than it gains";
  EXPECT_EQ(turn_.next(now_, false), Reader::eReads);
  EXPECT_EQ(turn_.next(now_, true), Reader::eGaveBack);
}

TEST_F(ReadingTurnTest, IsNotGivenBackToAHostThreadThatWorks) {
  EXPECT_FALSE(turn_.beginWait(now_));
  turn_.endWait(now_, false);
  EXPECT_EQ(turn_.next(now_, true), Reader::eReads);
}

TEST_F(ReadingTurnTest, PatienceIsLessWhereTheBufferIsSmall) {
  EXPECT_EQ(ReadingTurn::patienceFor(16 << 20), 10ms);
  EXPECT_EQ(ReadingTurn::patienceFor(425'984), 2770us);
  EXPECT_EQ(ReadingTurn::patienceFor(0), 1ms);
}

/// Notes which thread read each datagram.
class ReadingThreads : public iTrafficObserver {
 public:
  void heard(Ipv4, std::uint16_t) override { last_ = std::this_thread::get_id(); }
  void sent() override {}

  [[nodiscard]] std::thread::id last() const { return last_; }

 private:
  std::atomic<std::thread::id> last_;
};

/// Counts what arrives, and what arrives out of its order.
class NumberedTexts : public iNetMessageReceiver {
 public:
  int receive(const Kv::Ptr<iMemHolder>& buffer, iTCPReceiveContext*) override {
    const int number = std::stoi(std::string(buffer->bytes() + kStart, buffer->size() - kStart));
    if (number != count) ++misplaced;
    ++count;
    return 1;
  }

  static constexpr std::size_t kStart = 2;  ///< the wire's version and its separator
  std::atomic<int> count{0};
  std::atomic<int> misplaced{0};
};

/// A listener whose host thread runs, and somebody who sends to it.
class ReadingThreadTest : public ::testing::Test {
 protected:
  ReadingThreadTest() {
    auto socket = ListenerSocket::open("127.0.0.1", portOfNone());
    listener_ = std::make_unique<UdpListener>(
        std::move(*socket),
        UdpListener::Dependencies{hostThread_,
                                  std::make_shared<Interfaces>(),
                                  std::make_shared<SenderSocket>(),
                                  {},
                                  AcceptedNetworks(""),
                                  readers_,
                                  SourceLimits{{0, 0}, {0, 0}, {0, 0}}},
        &texts_);
    host_ = std::thread([this] { hostThread_.run(); });
  }

  ~ReadingThreadTest() override {
    hostThread_.stop();
    host_.join();
    listener_.reset();
  }

  int portOfNone() {
    const int probe = socket(AF_INET, SOCK_DGRAM, 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    own.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    bind(probe, reinterpret_cast<const sockaddr*>(&own), sizeof own);
    socklen_t size = sizeof own;
    getsockname(probe, reinterpret_cast<sockaddr*>(&own), &size);
    close(probe);
    return port_ = ntohs(own.sin_port);
  }

  void send(int count = 1) {
    for (int each = 0; each < count; ++each) {
      const std::string text = "d\xAC" + std::to_string(sent_++);
      const Destination here{*parseIpv4("127.0.0.1"), 0};
      while (sender_.send(here, static_cast<std::uint16_t>(port_), text) != 0) {
        std::this_thread::yield();
      }
    }
  }

  bool allArrive() {
    return becomesTrue([this] { return texts_.count >= sent_; });
  }

  /// Sends one at a time until one was read by the host thread.
  bool hostThreadReads() {
    return becomesTrue([this] {
      send();
      return allArrive() && readers_->last() == host_.get_id();
    });
  }

  RecordedEvents events_;
  HostThread hostThread_;
  std::shared_ptr<ReadingThreads> readers_ = std::make_shared<ReadingThreads>();
  NumberedTexts texts_;
  int port_ = 0;
  SenderSocket sender_;
  int sent_ = 0;
  std::unique_ptr<UdpListener> listener_;
  std::thread host_;
};

TEST_F(ReadingThreadTest, AnIdleHostThreadReadsItself) {
  EXPECT_TRUE(hostThreadReads());
  send(100);
  EXPECT_TRUE(allArrive());
  EXPECT_EQ(texts_.misplaced, 0);
}

TEST_F(ReadingThreadTest, AHundredThousandMessagesWhileTheHostThreadIsBusyAreReadByAnother) {
  ASSERT_TRUE(hostThreadReads());
  std::latch isBusy(1);
  std::latch mayGoOn(1);
  hostThread_.post([&] {
    isBusy.count_down();
    mayGoOn.wait();
  });
  isBusy.wait();
  const auto before = listener_->datagramsRead();
  send();
  EXPECT_TRUE(becomesTrue([&] { return listener_->datagramsRead() > before; }));
  EXPECT_NE(readers_->last(), host_.get_id());
  for (int batch = 0; batch < 1000; ++batch) {
    send(100);
    // No faster than they are read: what the system's buffer holds is another test's.
    ASSERT_TRUE(
        becomesTrue([&] { return listener_->datagramsRead() + 5000 > std::size_t(sent_); }));
  }
  mayGoOn.count_down();
  EXPECT_TRUE(allArrive());
  EXPECT_EQ(texts_.misplaced, 0);
  EXPECT_EQ(events_.told(), "");
  EXPECT_TRUE(hostThreadReads()) << "again, once it is idle";
}

TEST_F(ReadingThreadTest, NoMessageIsLostOrOutOfOrderWhileItIsHandedToAndFro) {
  std::atomic<bool> isOver{false};
  std::thread work([&] {
    for (int each = 0; !isOver; ++each) {
      std::latch isDone(1);
      hostThread_.post([&isDone, each] {
        // Shorter and longer than the host thread may work before another reads.
        std::this_thread::sleep_for(std::chrono::milliseconds(each % 25));
        isDone.count_down();
      });
      isDone.wait();
      // And idle for long enough to read itself, while the other's alarm may still go off.
      std::this_thread::sleep_for(std::chrono::milliseconds(each % 13));
    }
  });
  for (int burst = 0; burst < 200; ++burst) {
    send(burst % 80);
    if (burst % 3 == 0) std::this_thread::yield();
    ASSERT_TRUE(burst % 10 != 0 || allArrive());
  }
  EXPECT_TRUE(allArrive());
  isOver = true;
  work.join();
  EXPECT_EQ(texts_.misplaced, 0);
  EXPECT_EQ(events_.told(), "");
}

}  // namespace
