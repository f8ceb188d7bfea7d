#include "station/net/DatagramReader.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cstring>

namespace korvel {

namespace {

/// The sender of a datagram as the socket's family tells it: an IPv6 socket has IPv4 addresses in
/// the last four bytes of its own.
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

}  // namespace korvel
