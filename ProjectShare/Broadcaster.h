#pragma once

#include "host/base/LightweightString.h"
#include "host/base/Ptr.h"
#include "host/net/iNetworkService.h"
#include "host/notify/Notifier.h"
#include "host/project/ProjectListener.h"

class NetMessage;

namespace ProjectSharing {

/// The UDP port to send to and to listen on, where the configuration names no other.
inline constexpr int kDefaultPort = 27015;

/// Keeps registrations with the host's notifiers; a base of its own so that they end after the
/// project listener does.
struct NotificationGuards {
  Vector<Kv::Ptr<Kv::Guard>> guards_;
};

/// Turns local changes of the shared project into messages and sends them to the other stations.
///
///     document changed -> notifier -> handler -> NetMessage -> wire text -> one datagram
///
/// It hears the project listener's events and the notifications of bins, filters, racks and the
/// media cache. Handlers send only while the broadcaster is enabled: from the entry into a project
/// on a machine in network mode until its exit, except while a remote change is applied.
///
/// There is one current broadcaster, the one built last; the static operations work on it and do
/// nothing when there is none. Host thread; sending is done when an operation returns.
class Broadcaster : private NotificationGuards, public ProjectListener, public iObject {
 public:
  /// Registers with the notifiers, opens a sender on the configured port and becomes the current
  /// broadcaster, disabled.
  Broadcaster();

  /// Ends what the constructor began; there is no current broadcaster afterwards, even if another
  /// one had become it.
  ~Broadcaster() override;

  /// Lets the handlers send, if the machine is in network mode; silences them otherwise.
  static void enable();

  /// Silences the handlers.
  static void disable();

  /// Sends one message now, enabled or not, and logs it under "Sent". A failed send is the host's
  /// to report.
  void broadcast(const NetMessage& message);

  /// The current broadcaster's broadcast().
  static void broadcastMessage(const NetMessage& message);

  void handleLogModification(const Cookie& cookie, const EditModification& modification) override;
  void handleLogsDeletion(const CookieVec& cookies, LightweightString<char> reason) override;
  void handleLogDirtied(const Cookie& cookie) override;
  void handleLogStorage(const Cookie& cookie, bool isNew) override;
  void handleProjectEntry() override;
  void handleProjectExit() override;

  /// Notifier callbacks. Each returns 0.
  int handleBinModifications(const NotifyMsg& message);
  int handleFilterModifications(const NotifyMsg& message);
  int handleRackModifications(const NotifyMsg& message);
  int handleMediaAvailability(const NotifyMsg& message);

 private:
  using Handler = int (Broadcaster::*)(const NotifyMsg&);

  void listenTo(NotifierBase& notifier, Handler handler);

  Kv::Ptr<iUDPBroadcaster> udpBroadcaster_;
  bool enabled_ = false;
};

}  // namespace ProjectSharing
