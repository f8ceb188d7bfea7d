// The same messages through a multicast bus (LCM).

#include <lcm/lcm.h>

#include <cstdio>
#include <cstdlib>
#include <thread>

#include "tests/bench/peer/Payload.h"
#include "tests/bench/peer/Peer.h"

using namespace korvel;

namespace korvel {

namespace {

constexpr const char* kChannel = "edits";

class Bus : public iTransport {
 public:
  explicit Bus(int port)
      // A time to live of 0 keeps the messages on this machine.
      : lcm_(lcm_create(("udpm://239.255.76.67:" + std::to_string(port) + "?ttl=0").c_str())) {
    if (lcm_) return;
    std::fputs("no multicast bus could be had\n", stderr);
    std::exit(1);
  }

  void send(std::uint32_t number) override {
    const std::string bytes = payloadOf(number);
    lcm_publish(lcm_, kChannel, bytes.data(), static_cast<unsigned>(bytes.size()));
  }

  /// Takes messages, for ever.
  void receive(Board& board, std::size_t peer) {
    struct Taker {
      Board& board;
      std::size_t peer;
    } taker{board, peer};
    const auto take = [](const lcm_recv_buf_t* buffer, const char*, void* context) {
      auto* to = static_cast<Taker*>(context);
      to->board.arrived(to->peer,
                        numberOf({static_cast<const char*>(buffer->data), buffer->data_size}));
    };
    lcm_subscription_set_queue_capacity(lcm_subscribe(lcm_, kChannel, take, &taker), 0);
    while (lcm_handle(lcm_) == 0) {
    }
  }

 private:
  lcm_t* lcm_;
};

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  const PeerArguments arguments = readPeerArguments(argc, argv);
  const SharedBoard board(arguments.board);
  Bus bus(arguments.port);
  if (arguments.listens()) {
    std::thread([&] { bus.receive(*board, arguments.number); }).detach();
  }
  obey(*board, bus);
  std::_Exit(0);
}
