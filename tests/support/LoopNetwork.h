#pragma once

#include <string>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/base/Events.h"

namespace korvel {

/// A network that keeps what is sent and delivers what a test hands it.
class LoopNetwork : public iNetworkService {
 public:
  std::vector<std::string> sent;

  /// Hands a datagram to the plug-in as another station's.
  void deliver(const std::string& text) {
    const RemoteChangeScope remote;
    if (receiver_) receiver_->receive(Kv::Ptr<iMemHolder>(new Bytes(text)), nullptr);
  }

  Kv::Ptr<iUDPBroadcaster> createUDPBroadcaster(int) override { return {new Sender(sent)}; }
  Kv::Ptr<iUDPListener> createUDPListener(int, unsigned, iNetMessageReceiver* receiver) override {
    receiver_ = receiver;
    return {new Listener(receiver_)};
  }

 private:
  class Bytes : public iMemHolder {
   public:
    explicit Bytes(const std::string& text) : text_(text) {}
    [[nodiscard]] const char* bytes() const override { return text_.data(); }
    [[nodiscard]] std::size_t size() const override { return text_.size(); }

   private:
    std::string text_;
  };

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
