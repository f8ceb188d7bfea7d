#pragma once

#include <string>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/MessageJudge.h"
#include "station/wire/MessageTable.h"

namespace korvel {

/// A network within the process: it keeps what is sent and delivers what a test hands it.
class LoopNetwork : public iNetworkService {
 public:
  std::vector<std::string> sent;
  std::vector<int> ports;  ///< of each text that was sent

  /// Hands a datagram to the plug-in as another station's.
  void deliver(const std::string& text) {
    if (!receiver_) return;
    const ReceivedMessage message = receivedMessage(text);
    deliverMessage(*receiver_, message);
    noteDelivered(message);
  }

  /// The same after the station has waited for the message's file.
  void deliverWaited(const std::string& text) {
    if (receiver_) deliverAfterWait(*receiver_, receivedMessage(text));
  }

  Kv::Ptr<iUDPBroadcaster> createUDPBroadcaster(int port) override {
    return {new Sender(*this, port)};
  }
  Kv::Ptr<iUDPListener> createUDPListener(int, unsigned, iNetMessageReceiver* receiver) override {
    receiver_ = receiver;
    return {new Listener(receiver_)};
  }

 private:
  class Sender : public iUDPBroadcaster {
   public:
    Sender(LoopNetwork& network, int port) : network_(network), port_(port) {}
    void broadcast(const LightweightString<char>& text) override {
      network_.sent.push_back(text.str());
      network_.ports.push_back(port_);
    }

   private:
    LoopNetwork& network_;
    int port_;
  };

  class Listener : public iUDPListener {
   public:
    explicit Listener(iNetMessageReceiver*& receiver) : receiver_(receiver) {}
    ~Listener() override { receiver_ = nullptr; }

   private:
    iNetMessageReceiver*& receiver_;
  };

  iNetMessageReceiver* receiver_ = nullptr;
};

}  // namespace korvel
