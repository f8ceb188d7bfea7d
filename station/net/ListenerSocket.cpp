#include "station/net/ListenerSocket.h"

#include <arpa/inet.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <utility>

#include "station/net/SendErrors.h"

namespace korvel {

namespace {

Error refusal(ErrorCode code, const std::string& what) { return {code, what, {}}; }

Error errorOfBind(int number, const std::string& address, int port) {
  const std::string where = "UDP port " + std::to_string(port);
  switch (number) {
    case EADDRINUSE:
      return refusal(ErrorCode::eHeld,
                     where +
                         " is in use by another program that does not share it, so no messages "
                         "can be received: end that program, or set shared_projects_udp_port "
                         "to another port on every station");
    case EADDRNOTAVAIL:
      return refusal(ErrorCode::eUsage,
                     "--listen names " + address +
                         ", which is no address of this machine: name one that is, or 0.0.0.0 for "
                         "all of them");
    case EACCES:
    case EPERM:
      return refusal(ErrorCode::eNoRights,
                     where +
                         " may not be used by this user: set shared_projects_udp_port to one "
                         "above 1023 on every station");
    default:
      return refusal(ErrorCode::eSystem, where + " at " + address + " cannot be listened to (" +
                                             std::strerror(number) +
                                             "): look into the system's log");
  }
}

void setOn(int socket, int level, int option) {
  const int on = 1;
  setsockopt(socket, level, option, &on, sizeof on);
}

/// Without the right to go beyond the system's limit, as much as the limit allows.
void enlargeBuffer(int socket) {
  const int bytes = ListenerSocket::kBufferBytes;
  if (setsockopt(socket, SOL_SOCKET, SO_RCVBUFFORCE, &bytes, sizeof bytes) == 0) return;
  setsockopt(socket, SOL_SOCKET, SO_RCVBUF, &bytes, sizeof bytes);
}

}  // namespace

Result<ListenerSocket> ListenerSocket::open(const std::string& address, int port) {
  const auto where = parseIpv4(address);
  if (!where) {
    return refusal(ErrorCode::eUsage,
                   "--listen names \"" + address + "\", which is no IPv4 address");
  }
  if (port < 1 || port > 65535) {
    return refusal(ErrorCode::eUsage,
                   "nothing can be received at port " + std::to_string(port) +
                       ": set shared_projects_udp_port to a number from 1 to 65535");
  }
  ListenerSocket listener(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (listener.socket_ < 0) return errorOfBind(errno, address, port);
  listener.prepare();
  sockaddr_in own{};
  own.sin_family = AF_INET;
  own.sin_port = htons(static_cast<std::uint16_t>(port));
  own.sin_addr.s_addr = htonl(where->value);
  if (bind(listener.socket_, reinterpret_cast<sockaddr*>(&own), sizeof own) != 0) {
    return errorOfBind(errno, address, port);
  }
  return listener;
}

Result<ListenerSocket> ListenerSocket::openBesideStations(int port) {
  ListenerSocket listener(socket(AF_INET6, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (listener.socket_ < 0) return errorOfBind(errno, "all addresses", port);
  listener.prepare();
  const int off = 0;
  setsockopt(listener.socket_, IPPROTO_IPV6, IPV6_V6ONLY, &off, sizeof off);
  sockaddr_in6 own{};
  own.sin6_family = AF_INET6;
  own.sin6_port = htons(static_cast<std::uint16_t>(port));
  if (bind(listener.socket_, reinterpret_cast<sockaddr*>(&own), sizeof own) != 0) {
    return errorOfBind(errno, "all addresses", port);
  }
  return listener;
}

void ListenerSocket::prepare() {
  setOn(socket_, SOL_SOCKET, SO_REUSEADDR);
  setOn(socket_, SOL_SOCKET, SO_RXQ_OVFL);
  setOn(socket_, IPPROTO_IP, IP_PKTINFO);
  enlargeBuffer(socket_);
}

ListenerSocket::ListenerSocket(ListenerSocket&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)), joined_(std::move(other.joined_)) {}

ListenerSocket::~ListenerSocket() {
  if (socket_ >= 0) close(socket_);
}

void ListenerSocket::join(const std::vector<Destination>& groups, Interfaces& interfaces) {
  for (const Destination& group : groups) {
    if (!joined_.insert(group).second) continue;
    ip_mreqn request{};
    request.imr_multiaddr.s_addr = htonl(group.address.value);
    request.imr_ifindex = static_cast<int>(group.interface);
    if (setsockopt(socket_, IPPROTO_IP, IP_ADD_MEMBERSHIP, &request, sizeof request) == 0) continue;
    tellNetworkProblem("the multicast group " + textOf(group.address) + " could not be joined on " +
                       interfaces.nameOf(group.interface) + " (" + std::strerror(errno) +
                       "): messages sent to it there are not heard");
  }
}

std::uint32_t ListenerSocket::droppedBySystem() const {
  std::uint32_t memory[SK_MEMINFO_VARS] = {};
  socklen_t size = sizeof memory;
  if (getsockopt(socket_, SOL_SOCKET, SO_MEMINFO, memory, &size) != 0) return 0;
  return memory[SK_MEMINFO_DROPS];
}

}  // namespace korvel
