// The same messages through a data distribution service (Cyclone DDS), reliable, over loopback.

#include <dds/dds.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <thread>

#include "BenchText.h"
#include "tests/bench/peer/Payload.h"
#include "tests/bench/peer/Peer.h"

using namespace korvel;

namespace korvel {

namespace {

constexpr const char* kLoopbackAlone =
    "<General><Interfaces><NetworkInterface name=\"lo\" multicast=\"true\"/></Interfaces>"
    "<AllowMulticast>true</AllowMulticast></General>";
constexpr int kDomains = 200;

dds_entity_t require(dds_entity_t entity) {
  if (entity >= 0) return entity;
  std::fprintf(stderr, "no data distribution service could be had: %s\n", dds_strretcode(-entity));
  std::exit(1);
}

class Service : public iTransport {
 public:
  explicit Service(int port) {
    const auto domain = static_cast<dds_domainid_t>(port % kDomains);
    require(dds_create_domain(domain, kLoopbackAlone));
    participant_ = require(dds_create_participant(domain, nullptr, nullptr));
    topic_ = require(dds_create_topic(participant_, &bench_Text_desc, "edits", nullptr, nullptr));
    quality_ = dds_create_qos();
    dds_qset_reliability(quality_, DDS_RELIABILITY_RELIABLE, DDS_SECS(10));
    dds_qset_history(quality_, DDS_HISTORY_KEEP_ALL, 0);
  }

  void openWriter() {
    writer_ = require(dds_create_writer(participant_, topic_, quality_, nullptr));
  }

  void send(std::uint32_t number) override {
    std::string bytes = payloadOf(number);
    bench_Text text{bytes.data()};
    dds_write(writer_, &text);
  }

  /// Takes messages, for ever.
  void receive(Board& board, std::size_t peer) {
    const dds_entity_t reader = require(dds_create_reader(participant_, topic_, quality_, nullptr));
    const dds_entity_t waitSet = require(dds_create_waitset(participant_));
    const dds_entity_t arrived = require(dds_create_readcondition(reader, DDS_ANY_STATE));
    dds_waitset_attach(waitSet, arrived, reader);
    std::array<void*, 64> samples{};
    std::array<dds_sample_info_t, 64> infos{};
    for (;;) {
      const int count =
          dds_take(reader, samples.data(), infos.data(), samples.size(), samples.size());
      for (std::size_t i = 0; count > 0 && i < static_cast<std::size_t>(count); ++i) {
        if (infos[i].valid_data)
          board.arrived(peer, numberOf(static_cast<bench_Text*>(samples[i])->bytes));
      }
      if (count > 0) {
        dds_return_loan(reader, samples.data(), count);
      } else {
        dds_waitset_wait(waitSet, nullptr, 0, DDS_INFINITY);
      }
    }
  }

 private:
  dds_entity_t participant_ = 0;
  dds_entity_t topic_ = 0;
  dds_entity_t writer_ = 0;
  dds_qos_t* quality_ = nullptr;
};

}  // namespace

}  // namespace korvel

int main(int argc, char** argv) {
  const PeerArguments arguments = readPeerArguments(argc, argv);
  const SharedBoard board(arguments.board);
  Service service(arguments.port);
  if (arguments.number == 0) service.openWriter();
  if (arguments.listens()) {
    std::thread([&] { service.receive(*board, arguments.number); }).detach();
  }
  obey(*board, service);
  std::_Exit(0);
}
