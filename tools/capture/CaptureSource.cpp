#include "tools/capture/CaptureSource.h"

#include <pcap/pcap.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstring>
#include <memory>
#include <thread>
#include <utility>
#include <vector>

#include "station/base/Strings.h"
#include "station/net/Interfaces.h"
#include "station/net/ListenerSocket.h"
#include "station/os/HostOS.h"
#include "tools/capture/HeardMessage.h"

namespace korvel {

void CaptureQueue::add(HeardMessage message) {
  const std::size_t size = sizeof message + message.bytes.size();
  const std::lock_guard lock(mutex_);
  // The thread that hears must never wait for the output: the system would drop datagrams
  // meanwhile.
  if (bytes_ + size > kMaxWaiting) {
    ++byQueue_;
    return;
  }
  bytes_ += size;
  waiting_.push_back(std::move(message));
  // One notification is enough: take() empties the queue.
  if (waiting_.size() == 1) changed_.notify_one();
}

void CaptureQueue::fail(std::string problem) {
  const std::lock_guard lock(mutex_);
  problem_ = std::move(problem);
  changed_.notify_one();
}

std::vector<HeardMessage> CaptureQueue::take(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit,
                    [this] { return !waiting_.empty() || isWoken_ || !problem_.empty(); });
  isWoken_ = false;
  bytes_ = 0;
  return std::exchange(waiting_, {});
}

void CaptureQueue::wake() {
  const std::lock_guard lock(mutex_);
  isWoken_ = true;
  changed_.notify_one();
}

std::string CaptureQueue::problem() const {
  const std::lock_guard lock(mutex_);
  return problem_;
}

namespace {

constexpr int kMillisecondsBetweenCounts = 100;
constexpr int kLongestTurn = 2000;  // batches, more than a socket's buffer: a flood ends
constexpr const char* kEveryNetwork = "255.255.255.255";

/// Open sockets, and the number of the one interface whose messages count (0 for all).
struct Opened {
  std::vector<ListenerSocket> sockets;
  unsigned interface = 0;
};

/// Empties sockets that share the stations' port.
class SharedPort : public iCaptureSource {
 public:
  SharedPort(Opened opened, Hearing hearing, CaptureQueue& queue)
      : opened_(std::move(opened)),
        hearing_(std::move(hearing)),
        queue_(queue),
        wake_(eventfd(0, EFD_CLOEXEC)) {
    thread_ = std::thread([this] { drain(); });
  }
  SharedPort(const SharedPort&) = delete;
  SharedPort& operator=(const SharedPort&) = delete;
  ~SharedPort() override {
    finish();
    close(wake_);
  }

  void finish() override {
    isEnding_ = true;
    eventfd_write(wake_, 1);
    if (thread_.joinable()) thread_.join();
  }

  [[nodiscard]] std::string manner() const override {
    const std::string where = hearing_.listen == "0.0.0.0" ? "" : " at " + hearing_.listen;
    return "port " + std::to_string(hearing_.port) + where +
           ", beside the stations of this machine";
  }

 private:
  void countDropped() {
    std::uint64_t dropped = 0;
    for (const ListenerSocket& socket : opened_.sockets) dropped += socket.droppedBySystem();
    queue_.systemDropped(dropped);
  }

  void drain() {
    std::vector<pollfd> waitFor{{wake_, POLLIN, 0}};
    for (const ListenerSocket& socket : opened_.sockets)
      waitFor.push_back({socket.descriptor(), POLLIN, 0});
    bool isLast = false;
    while (!isLast) {
      poll(waitFor.data(), waitFor.size(), kMillisecondsBetweenCounts);
      isLast = isEnding_;  // read first: datagrams until then are taken
      for (const ListenerSocket& socket : opened_.sockets) takeWhatIsThere(socket);
      countDropped();
    }
  }

  void takeWhatIsThere(const ListenerSocket& socket) {
    int count = 0;
    for (int batch = 0; batch < kLongestTurn && (count = reader_.read(socket.descriptor())) > 0;
         ++batch) {
      for (std::size_t index = 0; index < static_cast<std::size_t>(count); ++index) {
        take(reader_.at(index));
      }
    }
  }

  void take(const Datagram& datagram) {
    // An address of this machine stands for the network of its interface.
    if (opened_.interface != 0 && datagram.interface != opened_.interface) return;
    HeardMessage message;
    message.time = wallClock();
    message.sender = datagram.source;
    message.senderPort = datagram.port;
    message.target = datagram.target;
    message.port = static_cast<std::uint16_t>(hearing_.port);
    message.interface = datagram.interface;
    message.bytes = datagram.bytes;
    queue_.add(std::move(message));
  }

  Opened opened_;
  Hearing hearing_;
  CaptureQueue& queue_;
  DatagramReader reader_;
  std::atomic<bool> isEnding_{false};
  int wake_;
  std::thread thread_;
};

/// Adds a socket at a broadcast or multicast address. No datagram to a single station arrives
/// there, so the socket takes none from a station.
Result<void> addAt(const std::string& address, int port, Opened& opened) {
  auto socket = ListenerSocket::open(address, port);
  if (!socket) return socket.error();
  const auto where = parseIpv4(address);
  if (where && where->isMulticast()) {
    Interfaces interfaces;
    socket->join(interfaces.destinations({*where}), interfaces);
  }
  opened.sockets.push_back(std::move(*socket));
  return {};
}

/// For a machine without IPv6: adds a socket at each broadcast address. Datagrams to a single
/// address are not heard then.
Result<void> addAtBroadcasts(int port, Opened& opened) {
  std::vector<std::string> addresses{kEveryNetwork};
  for (const NetworkInterface& interface : readNetworkInterfaces()) {
    if (interface.isLoopback) addresses.emplace_back("127.255.255.255");
    if (interface.broadcast != Ipv4{}) addresses.push_back(textOf(interface.broadcast));
  }
  std::sort(addresses.begin(), addresses.end());
  addresses.erase(std::unique(addresses.begin(), addresses.end()), addresses.end());
  for (const std::string& address : addresses) {
    if (auto added = addAt(address, port, opened); !added) return added;
  }
  return {};
}

Result<void> addAtAll(int port, Opened& opened) {
  auto socket = ListenerSocket::openBesideStations(port);
  // This socket is of IPv6; a machine may have none.
  if (!socket && socket.error().code == ErrorCode::eSystem) return addAtBroadcasts(port, opened);
  if (!socket) return socket.error();
  opened.sockets.push_back(std::move(*socket));
  return {};
}

Result<void> add(const Hearing& hearing, Opened& opened) {
  const auto where = parseIpv4(hearing.listen);
  if (!where) {
    return Error{ErrorCode::eUsage,
                 "--listen names " + inQuotes(hearing.listen) + ", which is no IPv4 address",
                 {}};
  }
  if (*where == Ipv4{}) return addAtAll(hearing.port, opened);
  // A socket at an address of this machine hears no broadcasts. So this listens everywhere and
  // filters by the interface.
  for (const NetworkInterface& interface : readNetworkInterfaces()) {
    if (interface.address != *where) continue;
    opened.interface = interface.index;
    return addAtAll(hearing.port, opened);
  }
  return addAt(hearing.listen, hearing.port, opened);
}

}  // namespace

Result<std::unique_ptr<iCaptureSource>> sharePort(const Hearing& hearing, CaptureQueue& queue) {
  Opened opened;
  if (auto added = add(hearing, opened); !added) return added.error();
  return std::unique_ptr<iCaptureSource>(
      std::make_unique<SharedPort>(std::move(opened), hearing, queue));
}

namespace {

constexpr int kMillisecondsToWait = 100;
/// The largest IPv4 packet, and room for the header of its link.
constexpr int kLargestPacket = 65'535 + 64;
constexpr int kBufferBytes = 16 << 20;
constexpr int kLongestRest = 200'000;  // packets, more than the buffer: a flood ends

struct Closer {
  void operator()(pcap_t* capture) const { pcap_close(capture); }
};
using Handle = std::unique_ptr<pcap_t, Closer>;

Error captureRefusal(const std::string& why) {
  return {ErrorCode::eNoRights,
          "packets cannot be captured (" + shownText(why) +
              "): run kv-share as root, or give it the right: setcap cap_net_raw+ep with its path",
          {}};
}

Result<Handle> openCapture(const Hearing& hearing) {
  char why[PCAP_ERRBUF_SIZE] = {};
  Handle capture(pcap_create("any", why));
  if (!capture) return captureRefusal(why);
  pcap_set_snaplen(capture.get(), kLargestPacket);
  pcap_set_timeout(capture.get(), kMillisecondsToWait);
  // Otherwise packets are held back until a block is full or the timeout is over.
  pcap_set_immediate_mode(capture.get(), 1);
  pcap_set_buffer_size(capture.get(), kBufferBytes);
  pcap_set_tstamp_precision(capture.get(), PCAP_TSTAMP_PRECISION_NANO);
  if (const int failed = pcap_activate(capture.get()); failed < 0) {
    const char* const more = pcap_geterr(capture.get());
    return captureRefusal(more && *more ? more : pcap_statustostr(failed));
  }
  const std::string wanted = "ip and udp dst port " + std::to_string(hearing.port);
  bpf_program filter{};
  const bool isReady = pcap_compile(capture.get(), &filter, wanted.c_str(), 1, 0) == 0 &&
                       pcap_setfilter(capture.get(), &filter) == 0 &&
                       pcap_setnonblock(capture.get(), 0, why) == 0;
  pcap_freecode(&filter);
  if (!isReady) return captureRefusal(pcap_geterr(capture.get()));
  return capture;
}

/// Captures the packets to a port. A packet that leaves this machine may come back as a copy: the
/// system hands over one of the two.
class PacketCapture : public iCaptureSource {
 public:
  PacketCapture(Handle capture, Hearing hearing, CaptureQueue& queue)
      : capture_(std::move(capture)), hearing_(std::move(hearing)), queue_(queue) {
    thread_ = std::thread([this] { drain(); });
  }
  PacketCapture(const PacketCapture&) = delete;
  PacketCapture& operator=(const PacketCapture&) = delete;
  ~PacketCapture() override { finish(); }

  void finish() override {
    if (!thread_.joinable()) return;
    isEnding_ = true;
    pcap_breakloop(capture_.get());
    isBroken_ = true;
    isBroken_.notify_all();
    thread_.join();
  }

  [[nodiscard]] std::string manner() const override {
    return "captured packets to port " + std::to_string(hearing_.port);
  }

 private:
  void drain() {
    pcap_pkthdr* header = nullptr;
    const unsigned char* bytes = nullptr;
    while (!isEnding_) {
      const int state = pcap_next_ex(capture_.get(), &header, &bytes);
      if (state == 1) take(*header, bytes);
      if (state == PCAP_ERROR) {
        queue_.fail("capturing ended (" + shownText(pcap_geterr(capture_.get())) + ")");
        return;
      }
      count();
    }
    // takeTheRest() closes the descriptor with which pcap_breakloop() wakes this thread: wait until
    // that call has returned.
    isBroken_.wait(false);
    takeTheRest();
  }

  /// Takes the packets that were captured before the end and still lie in the buffer.
  void takeTheRest() {
    char why[PCAP_ERRBUF_SIZE] = {};
    pcap_pkthdr* header = nullptr;
    const unsigned char* bytes = nullptr;
    if (pcap_setnonblock(capture_.get(), 1, why) != 0) return;
    for (int left = kLongestRest; left > 0; --left) {
      if (pcap_next_ex(capture_.get(), &header, &bytes) != 1) break;
      take(*header, bytes);
    }
    count();
  }

  void take(const pcap_pkthdr& header, const unsigned char* bytes) {
    const std::string_view frame(reinterpret_cast<const char*>(bytes), header.caplen);
    auto message = datagramInFrame(pcap_datalink(capture_.get()), frame);
    if (!message) return;
    message->time = header.ts.tv_sec * kNanosecondsASecond + header.ts.tv_usec;
    queue_.add(std::move(*message));
  }

  void count() {
    pcap_stat statistics{};
    // libpcap counts from the start of the capture, as systemDropped() expects.
    if (pcap_stats(capture_.get(), &statistics) == 0) queue_.systemDropped(statistics.ps_drop);
  }

  Handle capture_;
  Hearing hearing_;
  CaptureQueue& queue_;
  std::atomic<bool> isEnding_{false};
  std::atomic<bool> isBroken_{false};  ///< pcap_breakloop() has returned
  std::thread thread_;
};

}  // namespace

Result<std::unique_ptr<iCaptureSource>> capturePackets(const Hearing& hearing,
                                                       CaptureQueue& queue) {
  auto capture = openCapture(hearing);
  if (!capture) return capture.error();
  return std::unique_ptr<iCaptureSource>(
      std::make_unique<PacketCapture>(std::move(*capture), hearing, queue));
}

Result<std::unique_ptr<iCaptureSource>> openEar(const Hearing& hearing, CaptureQueue& queue) {
  if (hearing.onlyCaptures) return capturePackets(hearing, queue);
  auto shared = sharePort(hearing, queue);
  // Capturing needs rights that most users do not have. It is tried only where the port cannot be
  // shared.
  if (shared || shared.error().code != ErrorCode::eHeld) return shared;
  auto captured = capturePackets(hearing, queue);
  if (captured) return captured;
  return Error{captured.error().code,
               "port " + std::to_string(hearing.port) +
                   " is held by a program that does not share it, and " + captured.error().message,
               {}};
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kLongestWait = std::chrono::milliseconds(200);

/// Runs one capture from its begin to its end, on the thread that called listen(). The source adds
/// messages on a thread of its own.
class Hearer {
 public:
  Hearer(const ListenRequest& request, MessageFilter filter, iHeardSink& sink)
      : request_(request), filter_(std::move(filter)), sink_(sink), signals_([this] {
          isEnding_ = true;
          queue_.wake();
        }) {
    if (request.seconds > 0) {
      deadline_ = Clock::now() + std::chrono::duration_cast<Clock::duration>(
                                     std::chrono::duration<double>(request.seconds));
    }
  }

  Result<std::uint64_t> run() {
    const auto ear = openEar(request_.hearing, queue_);
    if (!ear) return ear.error();
    if (auto begun = sink_.begin((*ear)->manner()); !begun) return begun.error();
    while (!isOver()) {
      if (auto taken = takeWhatIsThere(); !taken) return taken.error();
      if (!sink_.pause(queue_.missed())) return taken_;
    }
    // Messages that arrived before the end belong to the result.
    (*ear)->finish();
    if (auto taken = takeWhatIsThere(); !taken) return taken.error();
    sink_.pause(queue_.missed());
    if (const std::string problem = queue_.problem(); !problem.empty()) {
      return Error{ErrorCode::eSystem, problem, {}};
    }
    return taken_;
  }

 private:
  [[nodiscard]] bool hasEnough() const { return request_.count > 0 && taken_ >= request_.count; }

  [[nodiscard]] bool isOver() const {
    return isEnding_ || hasEnough() || Clock::now() >= deadline_ || !queue_.problem().empty();
  }

  Result<void> takeWhatIsThere() {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline_ - Clock::now());
    // Even without messages the sink's pause() is called a few times a second.
    const auto limit = isOver() ? kLongestWait.zero() : std::min(left, kLongestWait);
    for (const HeardMessage& message : queue_.take(limit)) {
      if (hasEnough()) break;
      if (auto taken = take(message); !taken) return taken;
    }
    return {};
  }

  Result<void> take(const HeardMessage& message) {
    const MessageFields fields = readMessage(message.bytes);
    // Filtered first: copies of messages that are not shown are not counted either.
    if (!filter_.takes(message, fields)) return {};
    const Datagram datagram{message.sender, message.senderPort, message.interface, message.bytes};
    const DuplicateFilter::Time time{std::chrono::nanoseconds(message.time)};
    if (duplicates_.isDuplicate(datagram, time)) return sink_.takeCopy(message);
    ++taken_;
    return sink_.take(message, fields);
  }

  const ListenRequest& request_;
  MessageFilter filter_;
  iHeardSink& sink_;
  CaptureQueue queue_;
  DuplicateFilter duplicates_;
  Clock::time_point deadline_ = Clock::time_point::max();
  std::uint64_t taken_ = 0;
  std::atomic<bool> isEnding_{false};
  Signals signals_;
};

}  // namespace

void declareListening(CommandOptions& options, ListenRequest& request) {
  declareFilter(options, request.filter);
  options.number("--port", "N", request.hearing.port, 1, 65535, "The stations' UDP port");
  options.text("--listen", "ADDR", request.hearing.listen,
               "A multicast group, a broadcast address, or this machine's address in one network");
  options.flag("--capture", request.hearing.onlyCaptures,
               "Capture the packets rather than share the port: also shows those to one station");
  options.number("--count", "N", request.count, 1, "End after so many messages");
  options.number("--for", "S", request.seconds, 0.001, 1e8, "End after so many seconds");
}

Result<std::uint64_t> listen(const ListenRequest& request, iHeardSink& sink) {
  auto filter = MessageFilter::of(request.filter);
  if (!filter) return filter.error();
  return Hearer(request, std::move(*filter), sink).run();
}

std::int64_t wallClock() {
  return std::chrono::duration_cast<std::chrono::nanoseconds>(
             std::chrono::system_clock::now().time_since_epoch())
      .count();
}

}  // namespace korvel
