#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <vector>

#include "station/net/DuplicateFilter.h"

namespace korvel {

/// Reads IPv4 datagrams from a socket of either family in batches, into buffers that hold the
/// largest that there can be. One thread.
class DatagramReader {
 public:
  static constexpr std::size_t kBatch = 64;
  static constexpr std::size_t kBufferBytes = 65'536;

  DatagramReader();
  DatagramReader(const DatagramReader&) = delete;
  DatagramReader& operator=(const DatagramReader&) = delete;

  /// Reads what is there, up to a batch, without waiting: how many, or minus an errno value.
  int read(int socket);

  /// A datagram of the batch read last; its bytes are valid until the next read.
  [[nodiscard]] Datagram at(std::size_t index) const;

  /// Whether it was larger than the buffer, and so was cut.
  [[nodiscard]] bool wasCut(std::size_t index) const;

  /// The system's count of dropped datagrams as the batches so far have carried it.
  [[nodiscard]] std::uint32_t droppedBySystem() const { return dropped_; }

 private:
  /// Where one datagram and what the system says about it are put.
  struct Slot {
    sockaddr_in6 from;  ///< or a sockaddr_in, which is smaller
    iovec bytes;
    alignas(cmsghdr) char control[CMSG_SPACE(sizeof(in_pktinfo)) + CMSG_SPACE(sizeof(int))];
    unsigned interface;
    Ipv4 target;
  };

  /// Makes the slots that the last batch used ready for the next.
  void prepare();
  void readControl(std::size_t index);

  std::vector<char> buffers_;
  std::vector<Slot> slots_;
  std::vector<mmsghdr> headers_;
  std::size_t used_ = kBatch;
  std::uint32_t dropped_ = 0;
};

}  // namespace korvel
