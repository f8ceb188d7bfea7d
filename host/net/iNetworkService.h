#pragma once

#include <cstddef>

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"
#include "host/base/Ptr.h"

// The host's private network service, reached through OSPrivate(): datagrams out and datagrams in.

/// A block of received bytes; holds them until the last reference is released.
class KV_HOST_API iMemHolder : public virtual iObject {
 public:
  ~iMemHolder() override = default;
  [[nodiscard]] virtual const char* bytes() const = 0;
  [[nodiscard]] virtual std::size_t size() const = 0;
};

/// Where a delivery came from; datagrams are delivered with null.
class KV_HOST_API iTCPReceiveContext {
 public:
  virtual ~iTCPReceiveContext() = default;
};

/// Takes what a listener receives.
class KV_HOST_API iNetMessageReceiver : public virtual iObject {
 public:
  ~iNetMessageReceiver() override = default;

  /// One received datagram, whole. Called on the host thread, one at a time. The result is ignored.
  /// Must not throw.
  virtual int receive(const Kv::Ptr<iMemHolder>& buffer, iTCPReceiveContext* context) = 0;
};

/// Sends datagrams on one port.
class KV_HOST_API iUDPBroadcaster : public virtual iObject {
 public:
  ~iUDPBroadcaster() override = default;

  /// Sends the bytes as one datagram to every configured destination, synchronously, on the calling
  /// thread. A failure is told to the host's user and log, never to the caller, and never blocks.
  virtual void broadcast(const LightweightString<char>& text) = 0;
};

/// Delivers datagrams to a receiver for as long as it is held: releasing the last reference stops
/// delivery at once.
class KV_HOST_API iUDPListener : public virtual iObject {
 public:
  ~iUDPListener() override = default;
};

class KV_HOST_API iNetworkService {
 public:
  virtual ~iNetworkService() = default;

  /// A sender for `port` (1 to 65535). Never null; a port that cannot be used shows in the sender's
  /// failures.
  virtual Kv::Ptr<iUDPBroadcaster> createUDPBroadcaster(int port) = 0;

  /// A listener on `port` that hands each datagram to `receiver`, which must outlive it and is not
  /// referenced by it. `flags` is 0. Never null; a port that cannot be had is told to the host's
  /// user and log, and delivers nothing.
  virtual Kv::Ptr<iUDPListener> createUDPListener(int port, unsigned flags,
                                                  iNetMessageReceiver* receiver) = 0;
};
