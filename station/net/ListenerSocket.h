#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "station/base/Result.h"
#include "station/net/Interfaces.h"

namespace korvel {

/// One received datagram. The bytes belong to the reader that returned it.
struct Datagram {
  Ipv4 source;
  std::uint16_t port = 0;  ///< the sender's
  unsigned interface = 0;  ///< the one by which it came
  std::string_view bytes;
  Ipv4 target{};  ///< the address it was sent to; 0.0.0.0 where the system did not say
};

/// Recognises the copies of one message that two networks in common deliver: the same bytes from
/// the same sender's port by another way (source address or interface) within 100 ms. The same
/// bytes by the same way are a message said again, however fast. One thread.
///
/// Messages are told apart by a hash of 128 bits with a random key of this object. So a stranger
/// cannot make bytes that pass for a copy of another message, or that make the table slow.
class DuplicateFilter {
 public:
  using Time = std::chrono::steady_clock::time_point;
  static constexpr auto kWindow = std::chrono::milliseconds(100);

  /// More messages than this within the window, and the oldest are forgotten early.
  static constexpr std::size_t kMaxRemembered = 65'536;

  /// More ways than any facility has. What comes by further ones, of a message that was taken, is a
  /// copy: a stranger that invents addresses does not make each message slower than the last.
  static constexpr std::size_t kMaxWays = 16;

  DuplicateFilter();

  /// Whether the datagram is a copy of a message that was taken already; else it is a message, and
  /// is remembered.
  bool isDuplicate(const Datagram& datagram, Time now);

  [[nodiscard]] std::size_t remembered() const { return ages_.size(); }

  /// How many ways are remembered of the message whose copy the datagram is.
  [[nodiscard]] std::size_t waysOf(const Datagram& datagram) const;

 private:
  using Way = std::pair<Ipv4, unsigned>;
  using Key = std::array<std::uint64_t, 2>;

  /// The key's bits are as good as random already.
  struct HashOfKey {
    std::size_t operator()(const Key& key) const { return key[0]; }
  };

  /// How often a message was taken, and how many of these each way has brought.
  struct Message {
    std::size_t forgotten = 0;  ///< times taken that are out of the window
    std::size_t taken = 0;      ///< times taken within it
    std::vector<std::pair<Way, std::size_t>> brought;
  };

  [[nodiscard]] Key keyOf(const Datagram& datagram) const;
  void forgetBefore(Time time);
  void forgetOldest();

  std::array<unsigned char, 32> secret_;
  std::unordered_map<Key, Message, HashOfKey> messages_;
  std::deque<std::pair<Time, Key>> ages_;
};

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

  /// Has the system leave out what is sent from one port of these networks, so that it wakes
  /// nobody; it counts each as dropped. What was left out before is heard again, as is all where
  /// the system refuses (false), or for port 0.
  bool leaveOut(std::uint16_t port, const std::vector<Ipv4Network>& networks);

  /// The bytes of memory that waiting datagrams may take; beyond it the system drops them.
  [[nodiscard]] std::size_t bufferBytes() const;

  /// How many datagrams the system has dropped at this socket since it was opened, modulo 2^32.
  [[nodiscard]] std::uint32_t droppedBySystem() const;

 private:
  explicit ListenerSocket(int socket) : socket_(socket) {}

  void prepare();

  int socket_;
  std::set<Destination> joined_;
};

}  // namespace korvel
