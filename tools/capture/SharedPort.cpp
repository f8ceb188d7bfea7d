#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <thread>
#include <utility>
#include <vector>

#include "station/net/DatagramReader.h"
#include "station/net/Interfaces.h"
#include "station/net/ListenerSocket.h"
#include "tools/capture/Listening.h"

namespace korvel {

namespace {

constexpr int kMillisecondsBetweenCounts = 100;
constexpr int kLongestTurn = 2000;  // batches, more than a buffer holds: a flood ends, too
constexpr const char* kEveryNetwork = "255.255.255.255";

/// What is listened to: sockets, and the number of the interface whose messages alone are meant (0
/// for all).
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
      isLast = isEnding_;  // asked before: what came until then is taken
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

/// A socket at a broadcast or multicast address, to which no datagram for one station comes.
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

/// Where a machine has no IPv6: a socket at each broadcast address. A datagram for one address is
/// not heard then.
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
  if (!socket && socket.error().code == ErrorCode::eSystem) return addAtBroadcasts(port, opened);
  if (!socket) return socket.error();
  opened.sockets.push_back(std::move(*socket));
  return {};
}

Result<void> add(const Hearing& hearing, Opened& opened) {
  const auto where = parseIpv4(hearing.listen);
  if (!where) {
    return Error{ErrorCode::eUsage,
                 "--listen names \"" + hearing.listen + "\", which is no IPv4 address",
                 {}};
  }
  if (*where == Ipv4{}) return addAtAll(hearing.port, opened);
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

}  // namespace korvel
