#pragma once

#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
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

/// Tells what the system lost from what its filter left out because this station had sent it: it
/// counts both in one number. It loses datagrams only while the socket's buffer is full, and all
/// that lay in a full buffer is read before what came after. So where the reader has not just
/// read half a buffer's worth without a pause, nothing was lost. One thread.
class DropCount {
 public:
  explicit DropCount(std::size_t bufferBytes) : bufferBytes_(bufferBytes) {}

  /// A batch was read: so many datagrams of so many bytes in all, all that there were or not.
  void wasRead(std::size_t datagrams, std::size_t bytes);

  /// Nothing waited any more; the system was done with `delivered` of this station's own datagrams
  /// before that was asked.
  void wasEmptied(std::uint32_t delivered);

  [[nodiscard]] bool mayHaveBeenFull() const { return backlog_ >= bufferBytes_ / 2; }

  /// How many were lost since the beginning, modulo 2^32, while the system's count stands at
  /// `total`, perhaps a while ago, and this station has sent `sent`.
  std::uint32_t lost(std::uint32_t total, std::uint32_t sent);

 private:
  std::size_t bufferBytes_;
  std::size_t backlog_ = 0;  ///< an estimate of the memory that was read since a pause
  std::uint32_t total_ = 0;
  std::uint32_t lost_ = 0;
  std::uint32_t deliveredWhenEmpty_ = 0;
  std::uint32_t accounted_ = 0;  ///< of what was sent, those that total_ holds or never will
};

/// Has the system leave out this station's own datagrams, as its addresses come and go. Any thread.
class OwnFilter {
 public:
  /// Makes the socket's filter fit; does nothing where it does.
  void follow(ListenerSocket& socket, std::uint16_t ownPort, std::vector<Ipv4Network> own);

 private:
  std::mutex mutex_;
  std::uint16_t port_ = 0;
  std::vector<Ipv4Network> own_;
};

/// Which of two threads reads a listener's socket.
///
///     host thread waits ----its wait is over----> host thread works, nobody reads
///            ^  ^                                        |         |
///            |  '-------------its next wait--------------'         | after its patience, by
///            |                                                     v the alarm, or at once
///            '---once it waits, and nothing is lost----- reader thread reads
///
/// The host thread reads only what it finds when it had nothing to do: a message then reaches it
/// without another thread, and nothing that it does later can hold up the socket. While it works
/// for a moment the system's buffer keeps what comes. The reader thread sleeps meanwhile: it is
/// woken once in that time while the station is busy, and not at all while it does little.
///
/// The thread whose turn it is uses the socket and what belongs to reading alone; the mutex puts
/// the turns in order. The host thread calls beginWait() and endWait(), the reader thread next();
/// neither waits for the other.
class ReadingTurn {
 public:
  using Time = std::chrono::steady_clock::time_point;
  using Duration = std::chrono::nanoseconds;

  /// How long a buffer of so many bytes holds what a busy network brings.
  static Duration patienceFor(std::size_t bufferBytes);

  explicit ReadingTurn(Duration patience);
  ReadingTurn(const ReadingTurn&) = delete;
  ReadingTurn& operator=(const ReadingTurn&) = delete;
  ~ReadingTurn();

  /// Whether the host thread reads during the wait that begins; else it is as soon as it can be.
  bool beginWait(Time now);

  /// The wait is over. `passesOn`: the reader thread is to go on at once.
  void endWait(Time now, bool passesOn);

  enum class Reader {
    eReads,
    eSleeps,
    eGaveBack,  ///< the host thread, which waits, is to wait anew
  };

  /// What the reader thread does now; it gives the socket back only where it `mayGiveBack`.
  Reader next(Time now, bool mayGiveBack);

  /// Wakes the reader thread once, now.
  void wakeReader();

  /// Readable when the reader thread is to call next(); -1 where the system had none, and the
  /// reader thread reads all the time.
  [[nodiscard]] int alarm() const { return alarm_; }

  /// Makes the alarm unreadable. Reader thread.
  void quietAlarm() const;

 private:
  enum class State { eReaderReads, eHostWorks, eHostWaits };

  void setAlarm(Duration in);
  void setAlarmOff();

  const Duration patience_;
  const int alarm_;
  std::mutex mutex_;
  State state_ = State::eReaderReads;
  Time waitsSince_;
  Time worksSince_;
  bool isAlarmSet_ = false;
  bool isAskedFor_ = false;  ///< the host thread waits, and would read
  bool isKept_ = false;      ///< the reader thread must not give it back yet
};

}  // namespace korvel
