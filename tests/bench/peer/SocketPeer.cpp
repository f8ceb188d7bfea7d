// The floor of every measurement between processes: broadcast datagrams by bare sockets, a thread
// that drains the socket, a queue, and a thread that takes from it. Of the kind with one thread
// that thread takes what it reads: the limit of what can be done.

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>

#include <array>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <deque>
#include <mutex>
#include <thread>
#include <vector>

#include "tests/bench/peer/Payload.h"
#include "tests/bench/peer/Peer.h"

using namespace korvel;

namespace korvel {

namespace {

constexpr int kBufferBytes = 8 << 20;
constexpr std::size_t kBatch = 64;
constexpr std::size_t kDatagramBytes = 2048;
constexpr std::uint32_t kThisMachineAlone = 0x7FFFFFFF;  // 127.255.255.255

sockaddr_in addressOf(std::uint32_t address, int port) {
  sockaddr_in result{};
  result.sin_family = AF_INET;
  result.sin_port = htons(static_cast<std::uint16_t>(port));
  result.sin_addr.s_addr = htonl(address);
  return result;
}

int require(int result, const char* what) {
  if (result >= 0) return result;
  std::perror(what);
  std::exit(1);
}

void setOption(int socket, int option, int value) {
  ::setsockopt(socket, SOL_SOCKET, option, &value, sizeof value);
}

int boundSocket(int port) {
  const int made = require(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0), "socket");
  setOption(made, SO_REUSEADDR, 1);
  setOption(made, SO_BROADCAST, 1);
  setOption(made, SO_RCVBUF, kBufferBytes);
  setOption(made, SO_RCVBUFFORCE, kBufferBytes);
  const sockaddr_in own = addressOf(INADDR_ANY, port);
  require(::bind(made, reinterpret_cast<const sockaddr*>(&own), sizeof own), "bind");
  return made;
}

/// What the draining thread hands to the taking one.
class Queue {
 public:
  void put(std::string bytes) {
    {
      const std::lock_guard lock(mutex_);
      waiting_.push_back(std::move(bytes));
    }
    wake_.notify_one();
  }

  std::string take() {
    std::unique_lock lock(mutex_);
    wake_.wait(lock, [this] { return !waiting_.empty(); });
    std::string first = std::move(waiting_.front());
    waiting_.pop_front();
    return first;
  }

 private:
  std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<std::string> waiting_;
};

class Sockets : public iTransport {
 public:
  explicit Sockets(int port)
      : listener_(boundSocket(port)),
        sender_(boundSocket(0)),
        to_(addressOf(kThisMachineAlone, port)) {
    sockaddr_in own{};
    socklen_t size = sizeof own;
    ::getsockname(sender_, reinterpret_cast<sockaddr*>(&own), &size);
    ownPort_ = own.sin_port;
  }

  void send(std::uint32_t number) override {
    const std::string bytes = payloadOf(number);
    ::sendto(sender_, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to_),
             sizeof to_);
  }

  /// Reads datagrams into the queue until the process ends.
  void drain() {
    read([this](std::string bytes) { queue_.put(std::move(bytes)); });
  }

  /// Takes from the queue until the process ends.
  void take(Board& board, std::size_t peer) {
    for (;;) board.arrived(peer, numberOf(queue_.take()));
  }

  /// Takes what it reads until the process ends.
  void takeAtOnce(Board& board, std::size_t peer) {
    read([&](const std::string& bytes) { board.arrived(peer, numberOf(bytes)); });
  }

 private:
  /// Hands datagrams on until the process ends; this peer's own are dropped.
  template <typename HandOn>
  void read(const HandOn& handOn) {
    std::vector<std::array<char, kDatagramBytes>> buffers(kBatch);
    std::vector<sockaddr_in> senders(kBatch);
    std::vector<iovec> pieces(kBatch);
    std::vector<mmsghdr> headers(kBatch);
    for (std::size_t i = 0; i < kBatch; ++i) {
      pieces[i] = {buffers[i].data(), kDatagramBytes};
      headers[i].msg_hdr = {&senders[i], sizeof senders[i], &pieces[i], 1, nullptr, 0, 0};
    }
    for (;;) {
      const int count = ::recvmmsg(listener_, headers.data(), kBatch, MSG_WAITFORONE, nullptr);
      for (int i = 0; i < count; ++i) {
        const auto at = static_cast<std::size_t>(i);
        if (senders[at].sin_port == ownPort_) continue;
        handOn(std::string(buffers[at].data(), headers[at].msg_len));
      }
    }
  }

  int listener_;
  int sender_;
  sockaddr_in to_;
  in_port_t ownPort_ = 0;
  Queue queue_;
};

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  const PeerArguments arguments = readPeerArguments(argc, argv);
  const SharedBoard board(arguments.board);
  static Sockets sockets(arguments.port);
  if (arguments.kind == PeerArguments::kOneThread) {
    std::thread([&] { sockets.takeAtOnce(*board, arguments.number); }).detach();
  } else {
    std::thread([] { sockets.drain(); }).detach();
    std::thread([&] { sockets.take(*board, arguments.number); }).detach();
  }
  obey(*board, sockets);
  std::_Exit(0);
}
