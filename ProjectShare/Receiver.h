#pragma once

#include "ProjectShare/NetMessage.h"
#include "host/base/Cookie.h"
#include "host/base/LightweightString.h"
#include "host/base/Ptr.h"
#include "host/net/iNetworkService.h"

namespace ProjectSharing {

/// Takes the other stations' datagrams and applies them to this station's host.
///
///     datagram -> wire text -> NetMessage -> for this station and its project? -> host managers
///
/// It receives from construction until it is released. While a message is applied the broadcaster
/// is disabled, so that what the host then notifies of is not sent back out. Everything runs on the
/// thread that delivers, which file waits block; one datagram at a time.
class Receiver : public iNetMessageReceiver {
 public:
  /// Opens a listener on the configured port.
  Receiver();

  /// Takes one datagram. What is foreign, faulty or not for this station is dropped. Returns 1 in
  /// every case, and never throws; `context` is not used.
  int receive(const Kv::Ptr<iMemHolder>& buffer, iTCPReceiveContext* context) override;

  /// Whether this station listens to the message at all: to remote commands in every case, to
  /// others in network mode.
  static bool isAcceptable(const NetMessage& message);

  /// Whether messages of a type concern the stations alone that have the same project open.
  static bool isProjectDependentMessage(NetMessage::Type type);

  /// Logs a message under "Received", if the configuration asks for it
  /// ("log_incoming_net_messages", read once, when the first message arrives).
  static void log(const NetMessage& message);

  /// Waits until a file is visible here, for about a second at most. False, with a line in the log,
  /// when it does not appear. Blocks.
  static bool waitForFile(const LightweightString<wchar_t>& path);

  /// A log or edit was created elsewhere: opens it once its file is there, and lets the host
  /// announce it here.
  static void handleLogCreation(const Cookie& cookie);

  /// A log or edit was saved elsewhere: reads it again, if it is open here, and takes its owner.
  /// Blocks until no thumbnail is being rendered.
  static void handleLogModification(const Cookie& cookie);

  /// A bin or rack was rewritten, changed or destroyed elsewhere.
  static void handleContainerModification(const Cookie& cookie,
                                          const ContainerModification& modification);

  /// A project filter was changed elsewhere: all filters are read again.
  static void handleFilterModification(const Cookie& cookie,
                                       const ContainerModification& modification);

 private:
  static void take(const LightweightString<char>& wireText);
  static void apply(const NetMessage& message, const LightweightString<char>& wireText);

  Kv::Ptr<iUDPListener> listener_;
};

}  // namespace ProjectSharing
