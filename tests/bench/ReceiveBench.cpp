#include <cstdio>
#include <memory>
#include <string>

#include "ProjectShare/Receiver.h"
#include "app/base/EventSinks.h"
#include "app/base/TextOutput.h"
#include "station/base/Events.h"
#include "station/edit/Edits.h"
#include "station/wire/MessageTable.h"
#include "tests/bench/BenchShare.h"
#include "tests/bench/MicroBench.h"

namespace korvel {

namespace {

/// A datagram's bytes as the plug-in gets them.
class DatagramBytes : public iMemHolder {
 public:
  explicit DatagramBytes(std::string bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] const char* bytes() const override { return bytes_.data(); }
  [[nodiscard]] std::size_t size() const override { return bytes_.size(); }

 private:
  std::string bytes_;
};

/// A message that an edit was saved which is not open here, and who takes it.
struct ReceivedMessages {
  ReceivedMessages() {
    events.addSink(history);
    events.addSink(text);
  }

  const std::string wireText =
      NetMessage(NetMessage::eEditSaved, Cookie("E0001", false)).asString().str();
  Edits edits;
  Kv::Ptr<ProjectSharing::Receiver> receiver{new ProjectSharing::Receiver};
  Waiter waiter;
  EventHistory history{waiter};
  TextOutput text{stderr, stderr};
  EventWriter events;
};

std::unique_ptr<ReceivedMessages> messages;

void receiveAsStation(benchmark::State& state) {
  for (auto _ : state) deliverMessage(*messages->receiver, receivedMessage(messages->wireText));
}

void receiveForTakers(benchmark::State& state) {
  installEvents(&messages->events);
  receiveAsStation(state);
  installEvents(nullptr);
}

/// What the plug-in does, which reads each message twice.
void receiveAsPlugIn(benchmark::State& state) {
  for (auto _ : state) {
    messages->receiver->receive(Kv::Ptr<iMemHolder>(new DatagramBytes(messages->wireText)),
                                nullptr);
  }
}

}  // namespace

void addReceivePairs(MicroBench& to) {
  BenchShare& bench = BenchShare::instance();
  const auto add = [&](const char* what, const Bound& bound, const BenchPair::Body& ours) {
    to.add({what, 0, bound, ours, receiveAsPlugIn, BenchPair::Clock::eProcessor,
            [&bench] {
              bench.use(bench.memory() + "/open");
              messages = std::make_unique<ReceivedMessages>();
            },
            [] { messages.reset(); }});
  };
  add("message received, no taker of events", Bound::atMost(2.0), receiveAsStation);
  add("message received, events kept for commands", Bound::none(), receiveForTakers);
}

}  // namespace korvel
