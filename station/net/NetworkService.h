#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "host/net/iNetworkService.h"
#include "station/base/HostThread.h"
#include "station/base/Result.h"
#include "station/net/Interfaces.h"
#include "station/net/NetworkHooks.h"
#include "station/net/UdpBroadcaster.h"
#include "station/seal/Seals.h"

namespace korvel {

/// The station's datagrams: where they go and where they are heard is what settings() say. Host
/// thread.
class NetworkService : public iNetworkService {
 public:
  /// Delivers on `hostThread`, which must outlive the service and what it creates.
  explicit NetworkService(HostThread& hostThread);

  /// With other interfaces than this machine's.
  NetworkService(HostThread& hostThread, Interfaces::Reader reader);

  Kv::Ptr<iUDPBroadcaster> createUDPBroadcaster(int port) override;
  Kv::Ptr<iUDPListener> createUDPListener(int port, unsigned flags,
                                          iNetMessageReceiver* receiver) override;

  /// Tells an observer of what those hear and send that are created from now on.
  void observe(std::shared_ptr<iTrafficObserver> observer) { observer_ = std::move(observer); }

  /// What is done with messages beside the plug-in, by listeners that are created from now on.
  void hookBy(DeliveryHooks hooks) { hooks_ = std::move(hooks); }

  /// Seals what those send that are created from now on, and judges what they hear.
  void sealBy(std::shared_ptr<Seals> seals) { seals_ = std::move(seals); }

  /// The port that messages leave from; 0 while there is none.
  [[nodiscard]] std::uint16_t senderPort() const { return sender_->port(); }

  /// Why the listener created last hears nothing; success while it hears, or when there was none.
  [[nodiscard]] const Result<void>& listening() const { return listening_; }

 private:
  HostThread& hostThread_;
  std::shared_ptr<Interfaces> interfaces_;
  std::shared_ptr<SenderSocket> sender_;
  std::vector<Ipv4> sendTo_;
  std::shared_ptr<iTrafficObserver> observer_;
  DeliveryHooks hooks_;
  std::shared_ptr<Seals> seals_;
  Result<void> listening_;
};

}  // namespace korvel
