#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "station/base/Result.h"
#include "station/net/DuplicateFilter.h"
#include "station/net/Interfaces.h"

namespace korvel {

/// The socket by which a station hears the others: shared with every other program that shares its
/// port, with a buffer as large as the system gives. One thread at a time.
class ListenerSocket {
 public:
  static constexpr int kBufferBytes = 8 << 20;

  /// Binds to a port at an IPv4 address. Failure: what, where and what to do about it.
  static Result<ListenerSocket> open(const std::string& address, int port);

  /// Binds to a port at all addresses, and takes nothing from the stations of this machine: of a
  /// datagram to one address, which the system gives to one socket alone, it hears only what no
  /// station there would have got. Failure: as open().
  ///
  /// It is an IPv6 socket that hears IPv4 as well, to which the system prefers every IPv4 socket.
  static Result<ListenerSocket> openBesideStations(int port);

  ListenerSocket(ListenerSocket&& other) noexcept;
  ListenerSocket(const ListenerSocket&) = delete;
  ListenerSocket& operator=(const ListenerSocket&) = delete;
  ~ListenerSocket();

  [[nodiscard]] int descriptor() const { return socket_; }

  /// Takes part in multicast groups; those already joined are left alone. A group that cannot be
  /// joined is told once as a network problem.
  void join(const std::vector<Destination>& groups, Interfaces& interfaces);

  /// How many datagrams the system has dropped at this socket since it was opened, modulo 2^32.
  [[nodiscard]] std::uint32_t droppedBySystem() const;

 private:
  explicit ListenerSocket(int socket) : socket_(socket) {}

  void prepare();

  int socket_;
  std::set<Destination> joined_;
};

}  // namespace korvel
