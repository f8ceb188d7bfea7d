#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/net/Interfaces.h"
#include "station/net/NetworkHooks.h"
#include "station/net/SendErrors.h"
#include "station/net/SenderSocket.h"

namespace korvel {

/// Sends each text as one datagram to every destination. A text that no destination could be sent
/// is no event of a sent message. Any thread.
class UdpBroadcaster : public iUDPBroadcaster {
 public:
  /// `addresses` as Interfaces::destinations takes them; the observer may be null.
  UdpBroadcaster(int port, std::vector<Ipv4> addresses, std::shared_ptr<SenderSocket> socket,
                 std::shared_ptr<Interfaces> interfaces,
                 std::shared_ptr<iTrafficObserver> observer = nullptr);

  void broadcast(const LightweightString<char>& text) override;

 private:
  struct Failure {
    Destination destination;
    int error;
  };

  [[nodiscard]] bool canCarry(std::string_view text);

  /// Sends to each destination; those that failed are appended. How many did not.
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
  SendErrors problems_;
};

}  // namespace korvel
