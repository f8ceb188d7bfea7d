#pragma once

// How a plug-in reaches its like on other machines. It holds a sender and a listener from its
// initialisation to its shutdown, and knows nothing of addresses: where datagrams go is the host's
// configuration.
//
//     plug-in: broadcast(text) -> one datagram to each destination -> every station on the port
//     one datagram arrives     -> the host's queue -> host thread: receive(bytes) of the plug-in
//
// Nothing here promises that a datagram arrives, arrives once, or arrives in order. A station does
// not get its own datagrams back; two stations on one machine hear each other. Bytes come from
// anybody on the network, and are to be read with that in mind.

#include <cstddef>

#include "host/base/HostApi.h"
#include "host/base/LightweightString.h"
#include "host/base/Ptr.h"

// The host's private network service, reached through OSPrivate(): datagrams out and datagrams in.

/// A block of received bytes; holds them until the last reference is released.
class KV_HOST_API iMemHolder : public virtual iObject {
 public:
  ~iMemHolder() override = default;

  /// The first byte, valid for as long as the block is held. A datagram may hold zero bytes.
  [[nodiscard]] virtual const char* bytes() const = 0;

  /// The number of bytes; 0 for an empty datagram.
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

/// Makes senders and listeners. One of each is enough for a station.
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
