#include "station/net/SenderSocket.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>

namespace korvel {

namespace {

constexpr auto kPatience = std::chrono::milliseconds(10);

/// One datagram's header, with the interface by which it is to leave.
class Header {
 public:
  Header(const Destination& destination, std::uint16_t port, std::string_view bytes) {
    to_.sin_family = AF_INET;
    to_.sin_port = htons(port);
    to_.sin_addr.s_addr = htonl(destination.address.value);
    bytes_ = {const_cast<char*>(bytes.data()), bytes.size()};  // sendmsg leaves them as they are
    header_.msg_name = &to_;
    header_.msg_namelen = sizeof to_;
    header_.msg_iov = &bytes_;
    header_.msg_iovlen = 1;
    if (destination.interface != 0) nameInterface(destination.interface);
  }
  Header(const Header&) = delete;
  Header& operator=(const Header&) = delete;

  [[nodiscard]] const msghdr& get() const { return header_; }

 private:
  void nameInterface(unsigned index) {
    header_.msg_control = control_;
    header_.msg_controllen = sizeof control_;
    cmsghdr* const item = CMSG_FIRSTHDR(&header_);
    item->cmsg_level = IPPROTO_IP;
    item->cmsg_type = IP_PKTINFO;
    item->cmsg_len = CMSG_LEN(sizeof(in_pktinfo));
    in_pktinfo info{};
    info.ipi_ifindex = static_cast<int>(index);
    std::memcpy(CMSG_DATA(item), &info, sizeof info);
  }

  sockaddr_in to_{};
  iovec bytes_{};
  msghdr header_{};
  alignas(cmsghdr) char control_[CMSG_SPACE(sizeof(in_pktinfo))] = {};
};

bool isQueueFull(int error) { return error == EAGAIN || error == ENOBUFS; }

/// Without an interface to name, sendto does the same for less.
bool leaves(int socket, const msghdr& header) {
  constexpr int kFlags = MSG_DONTWAIT | MSG_NOSIGNAL;
  if (header.msg_controllen != 0) return sendmsg(socket, &header, kFlags) >= 0;
  return sendto(socket, header.msg_iov->iov_base, header.msg_iov->iov_len, kFlags,
                static_cast<const sockaddr*>(header.msg_name), header.msg_namelen) >= 0;
}

int sendOnce(int socket, const msghdr& header) {
  for (;;) {
    if (leaves(socket, header)) return 0;
    if (errno != EINTR) return errno;
  }
}

/// Tries again, for a few milliseconds, what a full queue refused with this error.
int keepSending(int socket, const msghdr& header, int error) {
  const auto deadline = std::chrono::steady_clock::now() + kPatience;
  while (isQueueFull(error) && std::chrono::steady_clock::now() < deadline) {
    pollfd writable{socket, POLLOUT, 0};
    poll(&writable, 1, 1);
    // A full device queue (ENOBUFS) is no matter of the socket, which stays writable meanwhile.
    if (error == ENOBUFS) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    error = sendOnce(socket, header);
  }
  return error;
}

/// Binds to a port of the system's choice; that port, or 0 with errno set.
std::uint16_t bindAnywhere(int socket) {
  sockaddr_in own{};
  own.sin_family = AF_INET;
  socklen_t size = sizeof own;
  const int on = 1;
  if (setsockopt(socket, SOL_SOCKET, SO_BROADCAST, &on, sizeof on) != 0 ||
      bind(socket, reinterpret_cast<sockaddr*>(&own), size) != 0 ||
      getsockname(socket, reinterpret_cast<sockaddr*>(&own), &size) != 0) {
    return 0;
  }
  return ntohs(own.sin_port);
}

}  // namespace

SenderSocket::SenderSocket() { open(); }

SenderSocket::~SenderSocket() {
  if (socket_ >= 0) close(socket_);
}

int SenderSocket::send(const Destination& destination, std::uint16_t port, std::string_view bytes) {
  if (const int error = open()) return error;
  const Header header(destination, port, bytes);
  const int error = sendOnce(socket_, header.get());
  return isQueueFull(error) ? keepSending(socket_, header.get(), error) : error;
}

int SenderSocket::open() {
  if (socket_ >= 0) return 0;
  const std::lock_guard lock(mutex_);
  if (socket_ >= 0) return 0;
  const int opened = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
  if (opened < 0) return errno;
  const std::uint16_t port = bindAnywhere(opened);
  if (port == 0) {
    const int error = errno;
    close(opened);
    return error;
  }
  port_ = port;
  socket_ = opened;
  return 0;
}

}  // namespace korvel
