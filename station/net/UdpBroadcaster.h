#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/net/Interfaces.h"
#include "station/net/NetworkHooks.h"
#include "station/seal/Seals.h"

namespace korvel {

/// Tells a network problem, as an event and as a line of the log. Any thread.
void tellNetworkProblem(const std::string& problem, std::uint64_t dropped = 0);

/// The problems of sending: each is told once until it changes, so that a cable that is out does
/// not fill the log. Any thread.
class SendErrors {
 public:
  /// A datagram for `destination` did not leave, for the reason in `problem`. Told when it differs
  /// from the last one of this destination, counted otherwise.
  void failed(const std::string& destination, const std::string& problem);

  /// Whether any destination has a problem that is not over.
  [[nodiscard]] bool areThere() const { return areThere_; }

  /// A datagram left; tells that it works again, and how many were lost without a word meanwhile.
  void succeeded(const std::string& destination);

 private:
  struct State {
    std::string told;
    std::uint64_t untold = 0;  ///< datagrams lost since
  };

  std::mutex mutex_;
  std::map<std::string, State> states_;
  std::atomic<bool> areThere_{false};
};

/// The one socket by which this station sends. It is bound once to a port that the system chooses
/// and keeps it for life: by that port the station knows its own datagrams. Any thread.
class SenderSocket {
 public:
  /// The largest text that one datagram can carry, in bytes.
  static constexpr std::size_t kMaxBytes = 65'507;

  /// Opens the socket; where that fails, every send tries again.
  SenderSocket();
  SenderSocket(const SenderSocket&) = delete;
  SenderSocket& operator=(const SenderSocket&) = delete;
  ~SenderSocket();

  /// The port that the socket is bound to; 0 while there is none.
  [[nodiscard]] std::uint16_t port() const { return port_; }

  /// How many datagrams were sent, or were tried to be, modulo 2^32.
  [[nodiscard]] std::uint32_t sent() const { return sent_; }

  /// How many of them the system has finished sending, or has refused.
  [[nodiscard]] std::uint32_t delivered() const { return delivered_; }

  /// Sends one datagram. 0, or the errno value that tells why it did not leave. Waits a few
  /// milliseconds at most where the system's own queue is full.
  int send(const Destination& destination, std::uint16_t port, std::string_view bytes);

 private:
  int open();

  std::mutex mutex_;
  std::atomic<int> socket_{-1};
  std::atomic<std::uint16_t> port_{0};
  std::atomic<std::uint32_t> sent_{0};
  std::atomic<std::uint32_t> delivered_{0};
};

/// Sends each text as one datagram to every destination. A text that left for no destination is not
/// told as a sent message. Any thread.
class UdpBroadcaster : public iUDPBroadcaster {
 public:
  /// Is told of each text that left for one destination at least.
  using Sent = std::function<void(const std::string& wireText)>;

  /// `addresses` as Interfaces::destinations takes them; the observer may be null, the seals, and
  /// `sent`.
  UdpBroadcaster(int port, std::vector<Ipv4> addresses, std::shared_ptr<SenderSocket> socket,
                 std::shared_ptr<Interfaces> interfaces,
                 std::shared_ptr<iTrafficObserver> observer = nullptr,
                 std::shared_ptr<Seals> seals = nullptr, Sent sent = {});

  void broadcast(const LightweightString<char>& text) override;

 private:
  struct Failure {
    Destination destination;
    int error;
  };

  [[nodiscard]] bool canCarry(std::size_t bytes);

  /// Sends to each destination and returns how many datagrams left. Failures are appended.
  std::size_t sendTo(const std::vector<Destination>& destinations, std::string_view text,
                     std::vector<Failure>& failures);

  /// After failures: the machine's interfaces may have changed, so the list is read again, and what
  /// is new on it is sent to as well. Failures of destinations that have gone are forgotten.
  std::size_t followMachine(const std::vector<Destination>& tried, std::string_view text,
                            std::vector<Failure>& failures);
  [[nodiscard]] std::string nameOf(const Destination& destination) const;
  void tell(const Failure& failure);

  int port_;
  std::vector<Ipv4> addresses_;
  std::shared_ptr<SenderSocket> socket_;
  std::shared_ptr<Interfaces> interfaces_;
  std::shared_ptr<iTrafficObserver> observer_;
  std::shared_ptr<Seals> seals_;
  Sent sent_;
  SendErrors problems_;
};

}  // namespace korvel
