#include "tests/bench/OwnNetwork.h"

#include <arpa/inet.h>
#include <net/if.h>
#include <net/route.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstring>

namespace korvel {

namespace {

constexpr char kLoopback[] = "lo";

bool raise(int socket) {
  ifreq request{};
  std::memcpy(request.ifr_name, kLoopback, sizeof kLoopback);
  if (::ioctl(socket, SIOCGIFFLAGS, &request) != 0) return false;
  request.ifr_flags = static_cast<short>(request.ifr_flags | IFF_UP | IFF_RUNNING | IFF_MULTICAST);
  return ::ioctl(socket, SIOCSIFFLAGS, &request) == 0;
}

void setAddress(sockaddr& to, const char* address) {
  sockaddr_in own{};
  own.sin_family = AF_INET;
  ::inet_pton(AF_INET, address, &own.sin_addr);
  std::memcpy(&to, &own, sizeof own);
}

/// Multicast goes by loopback, too.
bool routeMulticast(int socket) {
  char device[] = "lo";
  rtentry route{};
  setAddress(route.rt_dst, "224.0.0.0");
  setAddress(route.rt_genmask, "240.0.0.0");
  route.rt_flags = RTF_UP;
  route.rt_dev = device;
  return ::ioctl(socket, SIOCADDRT, &route) == 0;
}

}  // namespace

bool enterOwnNetwork() {
  if (::unshare(CLONE_NEWNET) != 0) return false;
  const int socket = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  const bool isReady = socket >= 0 && raise(socket) && routeMulticast(socket);
  if (socket >= 0) ::close(socket);
  return isReady;
}

}  // namespace korvel
