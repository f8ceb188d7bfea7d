// The same messages through a brokerless queue (ZeroMQ): one publishes, the others subscribe.

#include <zmq.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "tests/bench/peer/Payload.h"
#include "tests/bench/peer/Peer.h"

using namespace korvel;

namespace korvel {

namespace {

class Queue : public iTransport {
 public:
  Queue(int port, std::size_t peer)
      : socket_(zmq_socket(zmq_ctx_new(), peer == 0 ? ZMQ_PUB : ZMQ_SUB)) {
    const int unlimited = 0;
    zmq_setsockopt(socket_, ZMQ_SNDHWM, &unlimited, sizeof unlimited);
    zmq_setsockopt(socket_, ZMQ_RCVHWM, &unlimited, sizeof unlimited);
    const std::string where = "tcp://127.0.0.1:" + std::to_string(port);
    const int joined =
        peer == 0 ? zmq_bind(socket_, where.c_str()) : zmq_connect(socket_, where.c_str());
    if (peer != 0) zmq_setsockopt(socket_, ZMQ_SUBSCRIBE, "", 0);
    if (joined == 0) return;
    std::fprintf(stderr, "%s: %s\n", where.c_str(), zmq_strerror(zmq_errno()));
    std::exit(1);
  }

  void send(std::uint32_t number) override {
    const std::string bytes = payloadOf(number);
    zmq_send(socket_, bytes.data(), bytes.size(), 0);
  }

  /// Takes messages, for ever.
  void receive(Board& board, std::size_t peer) {
    std::array<char, 2048> bytes{};
    for (;;) {
      const int count = zmq_recv(socket_, bytes.data(), bytes.size(), 0);
      if (count < 0) continue;
      board.arrived(peer, numberOf({bytes.data(), static_cast<std::size_t>(count)}));
    }
  }

 private:
  void* socket_;
};

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  const PeerArguments arguments = readPeerArguments(argc, argv);
  const SharedBoard board(arguments.board);
  Queue queue(arguments.port, arguments.number);
  if (arguments.listens()) {
    std::thread([&] {
      if (arguments.number > 0) queue.receive(*board, arguments.number);
      Queue(arguments.port, 1).receive(*board, arguments.number);  // the sender's own ear
    }).detach();
  }
  obey(*board, queue);
  std::_Exit(0);
}
