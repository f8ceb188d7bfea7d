#pragma once

#include <string>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/MessageJudge.h"
#include "station/wire/MessageTable.h"

namespace korvel {

/// A network that keeps what is sent and delivers what a test hands it.
class LoopNetwork : public iNetworkService {
 public:
  std::vector<std::string> sent;

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

  Kv::Ptr<iUDPBroadcaster> createUDPBroadcaster(int) override { return {new Sender(sent)}; }
  Kv::Ptr<iUDPListener> createUDPListener(int, unsigned, iNetMessageReceiver* receiver) override {
    receiver_ = receiver;
    return {new Listener(receiver_)};
  }

 private:
  class Sender : public iUDPBroadcaster {
   public:
    explicit Sender(std::vector<std::string>& sent) : sent_(sent) {}
    void broadcast(const LightweightString<char>& text) override { sent_.push_back(text.str()); }

   private:
    std::vector<std::string>& sent_;
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
