#pragma once

#include <atomic>
#include <memory>
#include <thread>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/base/HostThread.h"
#include "station/net/AcceptedNetworks.h"
#include "station/net/DatagramReader.h"
#include "station/net/DuplicateFilter.h"
#include "station/net/Interfaces.h"
#include "station/net/ListenerSocket.h"
#include "station/net/LossReport.h"
#include "station/net/SenderSocket.h"
#include "station/net/iTrafficObserver.h"

namespace korvel {

/// A listener without a socket: the port could not be had.
class NullListener : public iUDPListener {};

/// Hears datagrams and hands them to a receiver.
///
///     socket --reader thread--> the host thread's queue --host thread--> receiver
///
/// The reader thread empties the socket at once, whatever the host thread is busy with, and drops
/// what is not for this station: its own datagrams, copies over another network, senders that are
/// not taken. The queue is bounded; what it refuses, and what the system dropped before, is counted
/// and told. Destroying it, on the host thread, ends delivery at once.
class UdpListener : public iUDPListener {
 public:
  /// What a listener needs to know of the rest of the network service.
  struct Dependencies {
    HostThread& hostThread;
    std::shared_ptr<Interfaces> interfaces;
    std::shared_ptr<SenderSocket> ownSender;
    std::vector<Ipv4> groups;  ///< multicast addresses to take part in
    AcceptedNetworks accepted;
    std::shared_ptr<iTrafficObserver> observer;  ///< or null
  };

  UdpListener(ListenerSocket socket, Dependencies surroundings, iNetMessageReceiver* receiver);
  ~UdpListener() override;

 private:
  /// What the queued deliveries share with the listener, and what outlives it with them.
  struct DeliveryTarget {
    std::atomic<bool> isOpen{true};
    iNetMessageReceiver* receiver;
  };

  static void deliver(const DeliveryTarget& outlet, std::string bytes);

  void drain();

  /// Takes datagrams until none waits; how many.
  std::size_t takeWhatIsThere();
  std::size_t takeBatch(std::size_t count);
  void take(const Datagram& datagram, LossReport::Time now);
  void joinGroups();
  void tellObserver(const Datagram& datagram);
  [[nodiscard]] bool isOwn(const Datagram& datagram);
  [[nodiscard]] int millisecondsToWait() const;
  void tellBrokenRead(int error);
  void waitForMore();

  ListenerSocket socket_;
  Dependencies surroundings_;
  std::shared_ptr<DeliveryTarget> outlet_;
  DatagramReader reader_;
  DuplicateFilter duplicates_;
  LossReport losses_;
  int toldError_ = 0;
  std::atomic<bool> isEnding_{false};
  int wake_;
  std::thread thread_;
};

}  // namespace korvel
