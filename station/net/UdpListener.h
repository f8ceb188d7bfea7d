#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/base/HostThread.h"
#include "station/net/DeliveryLanes.h"
#include "station/net/Interfaces.h"
#include "station/net/ListenerSocket.h"
#include "station/net/NetworkHooks.h"
#include "station/net/UdpBroadcaster.h"
#include "station/seal/Seals.h"

namespace korvel {

/// The networks from which this station takes datagrams, as the configuration's "accept_networks"
/// names them: "192.168.1.0/24, 10.0.0.0/8". An absent or empty value takes all. One thread.
class AcceptedNetworks {
 public:
  /// A word that is no network is told as a network problem, and lets nothing in.
  explicit AcceptedNetworks(const std::string& configured);

  /// Whether datagrams from this address are taken. A sender that is refused is told once.
  bool accepts(Ipv4 sender);

 private:
  void tellOnce(Ipv4 sender);

  bool takesAll_ = true;
  std::vector<Ipv4Network> networks_;
  std::set<Ipv4> told_;
};

/// The stations that this one listens to, as the configuration's "accept_stations" names them, by
/// their users, hosts or the senders in their seals: "ANNA, BEN, 9f86d081884c7d65". An absent or
/// empty value takes all. Of a message without a seal the address tells whose it is, as far as that
/// is known; addresses can be forged. Host thread.
class AcceptedStations {
 public:
  explicit AcceptedStations(const std::string& configured);

  /// Whether a message is taken. A station that is refused is told once.
  bool accepts(const DeliveryLanes::Item& item, const DeliveryHooks& hooks);

 private:
  void tellOnce(const DeliveryLanes::Item& item, const std::vector<std::string>& names);

  bool takesAll_ = true;
  std::set<std::string> names_;  ///< in capitals
  std::set<std::uint64_t> senders_;
  std::set<std::string> told_;
};

/// Counts datagrams that this station lost, by why, and tells each kind in one event when a flood
/// is over. One thread.
class LossReport {
 public:
  using Time = std::chrono::steady_clock::time_point;

  /// A flood is over when nothing was lost for this long.
  static constexpr auto kQuiet = std::chrono::milliseconds(200);

  /// A flood that does not end is told this often.
  static constexpr auto kLongest = std::chrono::seconds(10);

  /// A datagram was larger than any can be, and is dropped whole.
  void wasTooLarge(Time now);

  /// The system's count of what it dropped stands at `total` (modulo 2^32); counts stand still or
  /// rise.
  void systemDropped(std::uint32_t total, Time now);

  [[nodiscard]] bool isPending() const { return tooLarge_ + system_ > 0; }

  /// Tells what is pending if its flood is over.
  void tellIfOver(Time now);

  /// Tells what is pending.
  void tell();

 private:
  void note(Time now);

  std::uint64_t tooLarge_ = 0;
  std::uint64_t system_ = 0;
  std::uint32_t systemTotal_ = 0;
  Time first_;
  Time last_;
};

/// A listener without a socket: the port could not be had.
class NullListener : public iUDPListener {};

/// Hears datagrams and hands them to a receiver.
///
///     socket --host thread or reader thread--> lanes --host thread--> receiver
///
/// The system leaves out this station's own datagrams, so that they wake nobody. An idle host
/// thread reads the socket itself; the reader thread empties it while the host thread is busy
/// (ReadingTurn). Dropped is what is not for this station: own datagrams that the system has let
/// through, copies over another network, and those of senders that are not taken. The others wait
/// in a lane for each source. Datagrams that find no room there, are beyond the source's limits, or
/// were dropped by the system before, are counted and reported. Destroying the listener, on the
/// host thread, ends delivery at once.
class UdpListener : public iUDPListener, private iIdleSource {
 public:
  /// What a listener needs to know of the rest of the network service.
  struct Dependencies {
    HostThread& hostThread;
    std::shared_ptr<Interfaces> interfaces;
    std::shared_ptr<SenderSocket> ownSender;
    std::vector<Ipv4> groups;  ///< multicast addresses to take part in
    AcceptedNetworks accepted;
    std::shared_ptr<iTrafficObserver> observer;  ///< or null
    SourceLimits limits{};
    DeliveryHooks hooks{};
    std::shared_ptr<Seals> seals{};            ///< or null: seals are not looked at
    AcceptedStations stations{std::string()};  ///< whom it listens to
  };

  UdpListener(ListenerSocket socket, Dependencies surroundings, iNetMessageReceiver* receiver);
  ~UdpListener() override;

  /// How many datagrams were read from the socket, wanted or not. Any thread.
  [[nodiscard]] std::uint64_t datagramsRead() const { return datagramsRead_; }

 private:
  /// The receiver, and whether it still takes messages: not after the listener ended.
  struct Taker {
    std::atomic<bool> isOpen{true};
    iNetMessageReceiver* receiver;
  };

  /// What queued deliveries share with the listener. They may run after the listener has gone.
  struct DeliveryTarget {
    DeliveryTarget(iNetMessageReceiver* receiver, const Dependencies& surroundings);

    std::atomic<bool> isDue{false};       ///< a delivery is queued
    std::atomic<bool> tellsLines{false};  ///< tellLeftOutLines() will be called
    std::shared_ptr<Taker> taker;
    HostThread& hostThread;
    std::shared_ptr<Seals> seals;
    DeliveryHooks hooks;
    DeliveryLanes lanes;
    AcceptedStations stations;
    Impostors impostors;
    std::shared_ptr<AwaitedFiles> awaited;
  };

  /// Queues the delivery of the next message, unless one is queued.
  static void queueDelivery(const std::shared_ptr<DeliveryTarget>& outlet);
  static void deliverNext(const std::shared_ptr<DeliveryTarget>& outlet);

  /// Warns of a message whose sender is not the one that it names. Host thread.
  static void judgeSender(DeliveryTarget& outlet, const DeliveryLanes::Item& item,
                          ReceivedMessage& message);

  /// Has it logged how many lines were left out, once their source is quiet. Host thread.
  static void tellLeftOutLines(const std::shared_ptr<DeliveryTarget>& outlet);

  int beginWait() override;
  void endWait(bool isReadable) override;

  /// What the reader thread does.
  void drain();

  /// Whether something must be told or tried again later, which the host thread does not wait for.
  [[nodiscard]] bool needsReader() const;

  /// Takes datagrams until none waits.
  void takeWhatIsThere();

  /// Takes a batch; whether more may wait.
  bool takeBatch();
  void noteDrops(LossReport::Time now, bool isEmptied);
  void take(Datagram datagram, LossReport::Time now);
  [[nodiscard]] std::optional<std::uint64_t> passSeal(Datagram& datagram,
                                                      DeliveryLanes::Source& lane,
                                                      LossReport::Time now);
  void followInterfaces();
  void joinGroups();
  [[nodiscard]] DeliveryLanes::Source laneOf(const Datagram& datagram) const;
  void tellLosses(LossReport::Time now);
  void tellObserver(const Datagram& datagram);
  [[nodiscard]] bool isOwn(const Datagram& datagram);
  [[nodiscard]] int millisecondsToWait() const;
  [[nodiscard]] std::chrono::milliseconds betweenLooks() const;
  void tellBrokenRead(int error);
  void waitForMore(bool reads);

  ListenerSocket socket_;
  Dependencies surroundings_;
  std::shared_ptr<DeliveryTarget> outlet_;
  DatagramReader reader_;
  DuplicateFilter duplicates_;
  DropCount drops_;
  LossReport losses_;
  OwnFilter filter_;
  LossReport::Time nextLook_;
  std::atomic<std::uint64_t> datagramsRead_{0};
  int toldError_ = 0;
  std::atomic<bool> isEnding_{false};
  ReadingTurn turn_;
  std::thread thread_;
};

}  // namespace korvel
