#include "tests/fakes/FakeNetwork.h"

#include <algorithm>

#include "tests/fakes/FakeHost.h"

namespace korvel {

class FakeNetwork::Sender : public iUDPBroadcaster {
 public:
  explicit Sender(int port) : port_(port) {}
  ~Sender() override { FakeHost::current().journal.did("iUDPBroadcaster::close", {port_}); }

  void broadcast(const LightweightString<char>& text) override {
    FakeNetwork& network = FakeHost::current().network;
    network.sent.push_back(text.str());
    network.sentPorts.push_back(port_);
    network.journal_.did("iUDPBroadcaster::broadcast", {text});
  }

 private:
  int port_;
};

class FakeNetwork::Listener : public iUDPListener {
 public:
  Listener(int port, iNetMessageReceiver* receiver) : port_(port), receiver_(receiver) {}
  ~Listener() override {
    FakeHost& host = FakeHost::current();
    host.journal.did("iUDPListener::close", {port_});
    auto& all = host.network.listeners;
    const auto mine = std::find_if(all.begin(), all.end(), [this](const Listening& each) {
      return each.port == port_ && each.receiver == receiver_;
    });
    if (mine != all.end()) all.erase(mine);
  }

 private:
  int port_;
  iNetMessageReceiver* receiver_;
};

void FakeNetwork::deliver(std::string_view datagram) {
  const Kv::Ptr<iMemHolder> buffer(new FakeMemHolder(datagram));
  for (const Listening& each : std::vector(listeners)) each.receiver->receive(buffer, nullptr);
}

Kv::Ptr<iUDPBroadcaster> FakeNetwork::createUDPBroadcaster(int port) {
  journal_.did("iNetworkService::createUDPBroadcaster", {port});
  return new Sender(port);
}

Kv::Ptr<iUDPListener> FakeNetwork::createUDPListener(int port, unsigned flags,
                                                     iNetMessageReceiver* receiver) {
  journal_.did("iNetworkService::createUDPListener", {port, flags});
  listeners.push_back({port, flags, receiver});
  return new Listener(port, receiver);
}

}  // namespace korvel
