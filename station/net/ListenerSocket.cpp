#include "station/net/ListenerSocket.h"

#include <arpa/inet.h>
#include <linux/filter.h>
#include <linux/sock_diag.h>
#include <sodium.h>
#include <sys/socket.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <utility>

#include "station/base/Strings.h"
#include "station/net/UdpBroadcaster.h"

namespace korvel {

DuplicateFilter::DuplicateFilter() : secret_() {
  if (sodium_init() < 0) std::abort();  // without random bytes nothing here is safe
  randombytes_buf(secret_.data(), secret_.size());
}

bool DuplicateFilter::isDuplicate(const Datagram& datagram, Time now) {
  forgetBefore(now - kWindow);
  const Key key = keyOf(datagram);
  Message& message = messages_[key];
  const Way way{datagram.source, datagram.interface};
  auto counter = std::find_if(message.brought.begin(), message.brought.end(),
                              [&](const auto& entry) { return entry.first == way; });
  if (counter == message.brought.end()) {
    if (message.brought.size() == kMaxWays) return true;
    counter = message.brought.insert(counter, {way, message.forgotten});
  }
  const std::size_t times = message.forgotten + message.taken;
  counter->second = std::max(counter->second, message.forgotten);
  if (counter->second++ < times) return true;
  ++message.taken;
  ages_.emplace_back(now, key);
  if (ages_.size() > kMaxRemembered) forgetOldest();
  return false;
}

std::size_t DuplicateFilter::waysOf(const Datagram& datagram) const {
  const auto found = messages_.find(keyOf(datagram));
  return found == messages_.end() ? 0 : found->second.brought.size();
}

DuplicateFilter::Key DuplicateFilter::keyOf(const Datagram& datagram) const {
  crypto_generichash_state state;
  Key key{};
  crypto_generichash_init(&state, secret_.data(), secret_.size(), sizeof key);
  const auto add = [&state](const void* bytes, std::size_t size) {
    crypto_generichash_update(&state, static_cast<const unsigned char*>(bytes), size);
  };
  // The port and not the address: copies over two networks differ in the address alone.
  add(&datagram.port, sizeof datagram.port);
  add(datagram.bytes.data(), datagram.bytes.size());
  crypto_generichash_final(&state, reinterpret_cast<unsigned char*>(key.data()), sizeof key);
  return key;
}

void DuplicateFilter::forgetBefore(Time time) {
  while (!ages_.empty() && ages_.front().first < time) forgetOldest();
}

void DuplicateFilter::forgetOldest() {
  const auto found = messages_.find(ages_.front().second);
  ages_.pop_front();
  ++found->second.forgotten;
  if (--found->second.taken == 0) messages_.erase(found);
}

namespace {

/// The sender of a datagram. An IPv6 socket gives IPv4 addresses in the last four bytes of its own.
sockaddr_in senderOf(const sockaddr_in6& from) {
  sockaddr_in sender{};
  if (from.sin6_family == AF_INET6) {
    sender.sin_port = from.sin6_port;
    std::memcpy(&sender.sin_addr, &from.sin6_addr.s6_addr[12], sizeof sender.sin_addr);
  } else {
    std::memcpy(&sender, &from, sizeof sender);
  }
  return sender;
}

}  // namespace

DatagramReader::DatagramReader()
    : buffers_(kBatch * kBufferBytes), slots_(kBatch), headers_(kBatch) {}

int DatagramReader::read(int socket) {
  prepare();
  // Many datagrams a call: the system drops what its buffer cannot hold while this thread is busy.
  const int count = recvmmsg(socket, headers_.data(), kBatch, MSG_DONTWAIT, nullptr);
  used_ = count < 0 ? 0 : static_cast<std::size_t>(count);
  if (count < 0) return -errno;
  for (int index = 0; index < count; ++index) readControl(static_cast<std::size_t>(index));
  return count;
}

Datagram DatagramReader::at(std::size_t index) const {
  const Slot& slot = slots_[index];
  const sockaddr_in sender = senderOf(slot.from);
  return {Ipv4{ntohl(sender.sin_addr.s_addr)},
          ntohs(sender.sin_port),
          slot.interface,
          {static_cast<const char*>(slot.bytes.iov_base), headers_[index].msg_len},
          slot.target};
}

bool DatagramReader::wasCut(std::size_t index) const {
  return (headers_[index].msg_hdr.msg_flags & MSG_TRUNC) != 0;
}

void DatagramReader::prepare() {
  for (std::size_t index = 0; index < used_; ++index) {
    Slot& slot = slots_[index];
    slot.bytes = {buffers_.data() + index * kBufferBytes, kBufferBytes};
    slot.interface = 0;
    slot.target = {};
    msghdr& header = headers_[index].msg_hdr;
    header = {};
    header.msg_name = &slot.from;
    header.msg_namelen = sizeof slot.from;
    header.msg_iov = &slot.bytes;
    header.msg_iovlen = 1;
    header.msg_control = slot.control;
    header.msg_controllen = sizeof slot.control;
  }
}

void DatagramReader::readControl(std::size_t index) {
  msghdr* const header = &headers_[index].msg_hdr;
  for (cmsghdr* item = CMSG_FIRSTHDR(header); item; item = CMSG_NXTHDR(header, item)) {
    if (item->cmsg_level == IPPROTO_IP && item->cmsg_type == IP_PKTINFO) {
      in_pktinfo info{};
      std::memcpy(&info, CMSG_DATA(item), sizeof info);
      slots_[index].interface = static_cast<unsigned>(info.ipi_ifindex);
      slots_[index].target = Ipv4{ntohl(info.ipi_addr.s_addr)};
    } else if (item->cmsg_level == SOL_SOCKET && item->cmsg_type == SO_RXQ_OVFL) {
      std::memcpy(&dropped_, CMSG_DATA(item), sizeof dropped_);
    }
  }
}

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

/// The usual buffer holds 256 short datagrams, and bursts of 10 000 were received without loss only
/// with a buffer of this size. Without the right to exceed the system's limit, as much as the limit
/// allows.
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
                   "--listen names " + inQuotes(address) + ", which is no IPv4 address");
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
  // An IPv6 socket that hears IPv4 as well, for which the system prefers every IPv4 socket.
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
  // Every program of this machine that sets this on the port hears each broadcast.
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

namespace {

/// Far more addresses than any machine has, and within what the system takes.
constexpr std::size_t kMostNetworks = 250;

/// A filter as the system runs it for each datagram: it returns how many bytes are to be kept.
std::vector<sock_filter> filterOf(std::uint16_t port, const std::vector<Ipv4Network>& networks) {
  constexpr std::uint32_t kAll = 0xFFFFFFFF;
  // What a filter of a UDP socket sees begins with the UDP header, and that with the sender's port.
  // The sender's address is in the IP header.
  constexpr std::uint32_t kPort = 0;
  constexpr std::uint32_t kAddress = static_cast<std::uint32_t>(SKF_NET_OFF) + 12;
  std::vector<sock_filter> program{BPF_STMT(BPF_LD | BPF_H | BPF_ABS, kPort),
                                   BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, port, 1, 0),
                                   BPF_STMT(BPF_RET | BPF_K, kAll)};
  for (const Ipv4Network& each : networks) {
    const std::uint32_t first = each.address.value & each.mask();
    program.push_back(BPF_STMT(BPF_LD | BPF_W | BPF_ABS, kAddress));
    program.push_back(BPF_STMT(BPF_ALU | BPF_AND | BPF_K, each.mask()));
    program.push_back(BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, first, 0, 1));
    program.push_back(BPF_STMT(BPF_RET | BPF_K, 0));
  }
  program.push_back(BPF_STMT(BPF_RET | BPF_K, kAll));
  return program;
}

}  // namespace

bool ListenerSocket::leaveOut(std::uint16_t port, const std::vector<Ipv4Network>& networks) {
  if (port != 0 && networks.size() <= kMostNetworks) {
    std::vector<sock_filter> program = filterOf(port, networks);
    const sock_fprog filter{static_cast<unsigned short>(program.size()), program.data()};
    if (setsockopt(socket_, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) == 0) return true;
  }
  // An older filter could leave out what is no longer this station's own.
  const int none = 0;
  setsockopt(socket_, SOL_SOCKET, SO_DETACH_FILTER, &none, sizeof none);
  return false;
}

std::size_t ListenerSocket::bufferBytes() const {
  int bytes = 0;
  socklen_t size = sizeof bytes;
  getsockopt(socket_, SOL_SOCKET, SO_RCVBUF, &bytes, &size);
  return static_cast<std::size_t>(std::max(bytes, 0));
}

std::uint32_t ListenerSocket::droppedBySystem() const {
  std::uint32_t memory[SK_MEMINFO_VARS] = {};
  socklen_t size = sizeof memory;
  if (getsockopt(socket_, SOL_SOCKET, SO_MEMINFO, memory, &size) != 0) return 0;
  return memory[SK_MEMINFO_DROPS];
}

void DropCount::wasRead(std::size_t datagrams, std::size_t bytes) {
  // What the system counts for a datagram is more than its bytes; network cards fill whole pages.
  constexpr std::size_t kBesideBytes = 2048;
  backlog_ += datagrams * kBesideBytes + bytes;
}

std::uint32_t DropCount::lost(std::uint32_t total, std::uint32_t sent) {
  const std::uint32_t more = total - total_;
  // A count carried by a datagram may be older than the one asked for last.
  if (more > 0x7FFFFFFF) return lost_;
  total_ = total;
  if (mayHaveBeenFull()) {
    const std::uint32_t own = std::min(more, sent - accounted_);
    accounted_ += own;
    lost_ += more - own;
  } else {
    // Nothing was lost: all that was counted was filtered. What was sent before the socket was
    // empty is accounted for whether or not it came back.
    const auto isBehind = [](std::uint32_t one, std::uint32_t other) {
      return other - one - 1 < 0x7FFFFFFF;
    };
    accounted_ += more;
    if (isBehind(accounted_, deliveredWhenEmpty_)) accounted_ = deliveredWhenEmpty_;
    if (isBehind(sent, accounted_)) accounted_ = sent;
  }
  return lost_;
}

void DropCount::wasEmptied(std::uint32_t delivered) {
  backlog_ = 0;
  deliveredWhenEmpty_ = delivered;
}

ReadingTurn::Duration ReadingTurn::patienceFor(std::size_t bufferBytes) {
  // A short datagram takes 768 bytes of it, and no network of stations brings 100 000 a second for
  // long. Half of the buffer is left for the time until the reader thread runs.
  constexpr Duration kBetweenDatagrams = std::chrono::microseconds(10);
  constexpr std::size_t kDatagramBytes = 768;
  const auto datagrams = static_cast<Duration::rep>(bufferBytes / 2 / kDatagramBytes);
  return std::clamp<Duration>(datagrams * kBetweenDatagrams, std::chrono::milliseconds(1),
                              std::chrono::milliseconds(10));
}

ReadingTurn::ReadingTurn(Duration patience)
    : patience_(patience),
      alarm_(timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC | TFD_NONBLOCK)),
      isKept_(alarm_ < 0) {}

ReadingTurn::~ReadingTurn() {
  if (alarm_ >= 0) close(alarm_);
}

bool ReadingTurn::beginWait(Time now) {
  const std::lock_guard lock(mutex_);
  if (state_ == State::eReaderReads) {
    if (!std::exchange(isAskedFor_, true) && !isKept_) setAlarm({});
    return false;
  }
  // Where little happens the reader thread sleeps on. Where much does, an alarm that goes off now
  // and then costs less than one that is set and taken back at each message.
  if (isAlarmSet_ && worksSince_ - waitsSince_ > patience_) setAlarmOff();
  state_ = State::eHostWaits;
  waitsSince_ = now;
  return true;
}

void ReadingTurn::endWait(Time now, bool passesOn) {
  const std::lock_guard lock(mutex_);
  isAskedFor_ = false;
  if (state_ != State::eHostWaits) return;
  if (passesOn) {
    state_ = State::eReaderReads;
    isKept_ = true;
    return setAlarm({});
  }
  state_ = State::eHostWorks;
  worksSince_ = now;
  if (!isAlarmSet_) setAlarm(patience_);
}

ReadingTurn::Reader ReadingTurn::next(Time now, bool mayGiveBack) {
  const std::lock_guard lock(mutex_);
  isAlarmSet_ = false;
  switch (state_) {
    case State::eHostWaits:
      return Reader::eSleeps;
    case State::eHostWorks:
      if (now - worksSince_ < patience_) {
        setAlarm(patience_ - (now - worksSince_));
        return Reader::eSleeps;
      }
      state_ = State::eReaderReads;
      isKept_ = false;
      return Reader::eReads;
    case State::eReaderReads:
      break;
  }
  isKept_ = !mayGiveBack || alarm_ < 0;
  if (isKept_ || !isAskedFor_) return Reader::eReads;
  state_ = State::eHostWorks;
  worksSince_ = now;
  setAlarm(patience_);
  return Reader::eGaveBack;
}

void ReadingTurn::wakeReader() {
  const std::lock_guard lock(mutex_);
  setAlarm({});
}

void ReadingTurn::quietAlarm() const {
  std::uint64_t times = 0;
  if (read(alarm_, &times, sizeof times) < 0) return;  // it was quiet
}

void ReadingTurn::setAlarm(Duration in) {
  isAlarmSet_ = true;
  itimerspec when{};
  // A time of 0 would switch it off.
  when.it_value.tv_nsec = std::max<Duration::rep>(in.count(), 1);
  timerfd_settime(alarm_, 0, &when, nullptr);
}

void ReadingTurn::setAlarmOff() {
  isAlarmSet_ = false;
  const itimerspec never{};
  timerfd_settime(alarm_, 0, &never, nullptr);
}

void OwnFilter::follow(ListenerSocket& socket, std::uint16_t ownPort,
                       std::vector<Ipv4Network> own) {
  const std::lock_guard lock(mutex_);
  if (ownPort == port_ && own == own_) return;
  port_ = ownPort;
  own_ = std::move(own);
  // Where the system refuses, own datagrams are read, and dropped by the listener.
  static_cast<void>(socket.leaveOut(port_, own_));
}

}  // namespace korvel
