#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "host/net/iNetworkService.h"
#include "tests/fakes/Journal.h"

namespace korvel {

/// Received bytes in a test's hand.
class FakeMemHolder : public iMemHolder {
 public:
  explicit FakeMemHolder(std::string_view bytes) : bytes_(bytes) {}
  [[nodiscard]] const char* bytes() const override { return bytes_.data(); }
  [[nodiscard]] std::size_t size() const override { return bytes_.size(); }

 private:
  std::string bytes_;
};

/// Keeps what was sent and who listens; nothing leaves the process.
class FakeNetwork : public iNetworkService {
 public:
  explicit FakeNetwork(Journal& journal) : journal_(journal) {}

  /// The texts sent so far, and by which port.
  std::vector<std::string> sent;
  std::vector<int> sentPorts;

  struct Listening {
    int port;
    unsigned flags;
    iNetMessageReceiver* receiver;
  };
  std::vector<Listening> listeners;  ///< those that are still held

  /// Hands a datagram to every listener, as the host does.
  void deliver(std::string_view datagram);

  Kv::Ptr<iUDPBroadcaster> createUDPBroadcaster(int port) override;
  Kv::Ptr<iUDPListener> createUDPListener(int port, unsigned flags,
                                          iNetMessageReceiver* receiver) override;

 private:
  class Sender;
  class Listener;

  Journal& journal_;
};

}  // namespace korvel
