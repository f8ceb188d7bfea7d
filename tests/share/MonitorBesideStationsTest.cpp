#include <signal.h>

#include <chrono>
#include <thread>

#include "tests/share/SharedStations.h"
#include "tests/support/LoopbackSender.h"
#include "tests/support/Slowdown.h"
#include "tests/support/ToolRun.h"

using namespace korvel;

namespace {

constexpr int kMessages = 5'000 / kSlowdown;
constexpr int kBurst = 100;
constexpr auto kBetweenBursts = std::chrono::milliseconds(10);  // 10 000 messages a second

class MonitorBesideStations : public SharedStations {
 protected:
  /// Sends numbered messages for nobody, and one that says it is the last.
  void sendAll() const {
    const LoopbackSender sender(port_);
    auto next = std::chrono::steady_clock::now();
    for (int number = 0; number < kMessages; ++number) {
      if (number % kBurst == 0) std::this_thread::sleep_until(next += kBetweenBursts);
      ASSERT_TRUE(sender.send({"d", "10", "", "FLOOD", "NOBODY", std::to_string(number)}));
    }
    ASSERT_TRUE(sender.send({"d", "10", "", "FLOOD", "NOBODY", "last"}));
  }

  static std::size_t floodHeardBy(const StationProcess& station) {
    const auto all = station.events("received");
    return static_cast<std::size_t>(std::count_if(
        all.begin(), all.end(),
        [](const JsonValue& event) { return event["source"].asString() == "FLOOD"; }));
  }
};

TEST_F(MonitorBesideStations, TheStationsLoseNothingAndTheMonitorSaysWhatItMissed) {
  StationProcess& anna = start("anna", 11);
  StationProcess& ben = start("ben", 12);
  BackgroundTool monitor(
      {"monitor", "--json", "--stats", "--port", std::to_string(port_), "--user", "FLOOD"});
  ASSERT_TRUE(monitor.hasWritten("hearing"));
  sendAll();
  for (StationProcess* const station : {&anna, &ben}) {
    EXPECT_TRUE(station->waitFor("received", {{"data", "last"}}, StationProcess::Seconds(60)));
    EXPECT_EQ(floodHeardBy(*station), kMessages + 1u);
  }
  monitor.signal(SIGINT);
  const ToolRun run = monitor.finish();
  EXPECT_EQ(run.status, 0) << run.err;
  const auto counts = parseJson(run.out.substr(run.out.rfind("{\"event\":\"counts\"")));
  ASSERT_TRUE(counts);
  EXPECT_EQ((*counts)["messages"].asLong() + (*counts)["missed_by_system"].asLong() +
                (*counts)["missed_by_reader"].asLong(),
            kMessages + 1);
}

}  // namespace
