#include "station/net/UdpBroadcaster.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstring>
#include <thread>
#include <utility>

#include "host/base/Log.h"
#include "station/base/Events.h"

namespace korvel {

void tellNetworkProblem(const std::string& problem, std::uint64_t dropped) {
  Log("Network: %s\n", problem);
  events().network(problem, dropped);
}

void SendErrors::failed(const std::string& destination, const std::string& problem) {
  std::uint64_t dropped = 1;
  {
    const std::lock_guard lock(mutex_);
    State& state = states_[destination];
    areThere_ = true;
    ++state.untold;
    if (state.told == problem) return;
    state.told = problem;
    dropped = state.untold;
    state.untold = 0;
  }
  tellNetworkProblem(problem, dropped);
}

void SendErrors::succeeded(const std::string& destination) {
  std::uint64_t lost = 0;
  {
    const std::lock_guard lock(mutex_);
    const auto found = states_.find(destination);
    if (found == states_.end()) return;
    lost = found->second.untold;
    states_.erase(found);
    areThere_ = !states_.empty();
  }
  tellNetworkProblem("sending to " + destination + " works again; " + std::to_string(lost) +
                         " more messages did not reach it meanwhile",
                     lost);
}

namespace {

// The sender, often the host thread, waits meanwhile. A full queue must not hold it up for longer.
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

/// Without an interface to name, sendto() does the same for less work.
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
    // ENOBUFS is a full queue of the network device. The socket stays writable, so poll() does not
    // wait.
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
  // Before it leaves: the listener must never find more of them left out than were sent.
  ++sent_;
  const Header header(destination, port, bytes);
  int error = sendOnce(socket_, header.get());
  if (isQueueFull(error)) error = keepSending(socket_, header.get(), error);
  ++delivered_;
  return error;
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

namespace {

/// What a user can do about a failed send.
std::string remedyFor(int error, int port) {
  switch (error) {
    case ENETUNREACH:
    case ENETDOWN:
    case EHOSTUNREACH:
    case EADDRNOTAVAIL:
    case ENODEV:
    case ENXIO:
      return "check that the network is connected, or name other destinations with --send-to";
    case EPERM:
    case EACCES:
      return "allow outgoing datagrams to UDP port " + std::to_string(port) +
             " in this machine's firewall";
    case EAGAIN:
    case ENOBUFS:
      return "the network is slower than the messages come; other stations see the change when "
             "they read the project again";
    default:
      return "look into the system's log";
  }
}

bool contains(const std::vector<Destination>& list, const Destination& wanted) {
  return std::find(list.begin(), list.end(), wanted) != list.end();
}

}  // namespace

UdpBroadcaster::UdpBroadcaster(int port, std::vector<Ipv4> addresses,
                               std::shared_ptr<SenderSocket> socket,
                               std::shared_ptr<Interfaces> interfaces,
                               std::shared_ptr<iTrafficObserver> observer,
                               std::shared_ptr<Seals> seals, Sent sent)
    : port_(port),
      addresses_(std::move(addresses)),
      socket_(std::move(socket)),
      interfaces_(std::move(interfaces)),
      observer_(std::move(observer)),
      seals_(std::move(seals)),
      sent_(std::move(sent)) {}

void UdpBroadcaster::broadcast(const LightweightString<char>& text) {
  const std::string datagram = seals_ ? seals_->outgoing(text.view()) : text.str();
  if (!canCarry(datagram.size())) return;
  const auto destinations = interfaces_->destinations(addresses_);
  std::vector<Failure> failures;
  std::size_t left = sendTo(destinations, datagram, failures);
  // A cable or a private network may have changed since the list was read. Only new failures count.
  if (!failures.empty()) left += followMachine(destinations, datagram, failures);
  for (const Failure& failure : failures) tell(failure);
  if (observer_) observer_->reached(failures.empty() && left > 0);
  if (left == 0) return;
  if (observer_) observer_->sent();
  events().sent(text.str());
  if (sent_) sent_(text.str());
}

bool UdpBroadcaster::canCarry(std::size_t bytes) {
  if (port_ < 1 || port_ > 65535) {
    problems_.failed("port", "nothing can be sent to port " + std::to_string(port_) +
                                 ": set shared_projects_udp_port to a number from 1 to 65535");
    return false;
  }
  if (bytes <= SenderSocket::kMaxBytes) return true;
  tellNetworkProblem(
      "a message of " + std::to_string(bytes) + " bytes was not sent: a datagram carries " +
          std::to_string(SenderSocket::kMaxBytes) + " at most; use a shorter text or name",
      1);
  return false;
}

std::size_t UdpBroadcaster::sendTo(const std::vector<Destination>& destinations,
                                   std::string_view text, std::vector<Failure>& failures) {
  std::size_t left = 0;
  for (const Destination& destination : destinations) {
    const int error = socket_->send(destination, static_cast<std::uint16_t>(port_), text);
    if (error != 0) {
      failures.push_back({destination, error});
      continue;
    }
    ++left;
    if (problems_.areThere()) problems_.succeeded(nameOf(destination));
  }
  return left;
}

std::size_t UdpBroadcaster::followMachine(const std::vector<Destination>& tried,
                                          std::string_view text, std::vector<Failure>& failures) {
  interfaces_->reread();
  const auto now = interfaces_->destinations(addresses_);
  std::vector<Destination> fresh;
  for (const Destination& destination : now) {
    if (!contains(tried, destination)) fresh.push_back(destination);
  }
  std::erase_if(failures,
                [&](const Failure& failed) { return !contains(now, failed.destination); });
  return sendTo(fresh, text, failures);
}

std::string UdpBroadcaster::nameOf(const Destination& destination) const {
  std::string name = textOf(destination.address) + " port " + std::to_string(port_);
  const std::string interface = interfaces_->nameOf(destination.interface);
  return interface.empty() ? name : name + " over " + interface;
}

void UdpBroadcaster::tell(const Failure& failure) {
  const std::string name = nameOf(failure.destination);
  problems_.failed(name, "a message could not be sent to " + name + " (" +
                             std::strerror(failure.error) +
                             "): " + remedyFor(failure.error, port_));
}

}  // namespace korvel
