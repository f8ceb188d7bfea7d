#include <atomic>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <optional>
#include <thread>
#include <utility>

#include "tests/bench/Figures.h"
#include "tests/bench/PeerGroup.h"
#include "tests/bench/ProcessBench.h"
#include "tests/bench/ProjectFiles.h"
#include "tests/bench/peer/Payload.h"
#include "tests/bench/peer/Peer.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/LoopbackSender.h"

namespace korvel {

namespace {

constexpr std::size_t kReceivers[] = {1, 4, 16};
constexpr int kRounds = 9;
constexpr std::uint32_t kPaced = 100;                ///< messages of a round, one at a time
constexpr double kPause = 0.002;                     ///< between them
constexpr std::uint32_t kBurst = 10'000;             ///< messages of a round, as fast as can be
constexpr auto kLongest = std::chrono::seconds(40);  ///< for one number of receivers
constexpr int kFirstPort = 27815;
constexpr const char* kBus = "multicast bus (LCM)";
constexpr const char* kDds = "DDS (Cyclone)";
constexpr const char* kNoNames[] = {"station", "sockets"};

/// The station, the bare sockets that are its floor, and what else was built: once as all listen,
/// and once with a sender that does not, which is spared its own messages.
std::vector<Transport> transportsIn(const std::string& programs, BenchTable& table) {
  const std::string sockets = programs + "/bench-sockets";
  std::vector<Transport> found{{kNoNames[0], programs + "/bench-station"},
                               {kNoNames[1], sockets},
                               {"sockets read by one thread", sockets, PeerArguments::kOneThread}};
  const std::pair<const char*, const char*> others[] = {
      {kBus, "bench-lcm"}, {kDds, "bench-dds"}, {"brokerless queue (ZeroMQ)", "bench-zmq"}};
  for (const auto& [name, program] : others) {
    const std::string path = programs + "/" + program;
    if (std::filesystem::exists(path)) {
      found.push_back({name, path});
      found.push_back({name + std::string(", deaf sender"), path, PeerArguments::kDeafSender});
    } else {
      table.leaveOut(name, "its library is not installed, so it was not built");
    }
  }
  return found;
}

/// All transports' peers; those that do not come up are left out.
class Arena {
 public:
  Arena(BenchTable& table, const std::string& programs, const std::vector<Transport>& more = {})
      : table_(table) {
    writeBenchProject(folder_.path(), Board::kMessages);
    writeBenchLongEdit(folder_.path(), kBenchClips);
    std::vector<Transport> transports = transportsIn(programs, table);
    transports.insert(transports.end(), more.begin(), more.end());
    for (const Transport& each : transports) {
      groups_.push_back(std::make_unique<PeerGroup>(each, folder_.path(),
                                                    kFirstPort + static_cast<int>(groups_.size())));
    }
  }

  /// False when the station or its floor has not come up.
  bool growTo(std::size_t receivers) {
    std::erase_if(groups_, [&](const auto& group) {
      if (group->growTo(receivers)) return false;
      table_.leaveOut(group->name() + ", " + std::to_string(receivers) + " receivers",
                      "its processes do not hear each other here");
      return true;
    });
    return groups_.size() >= 2 && groups_[0]->name() == kNoNames[0] &&
           groups_[1]->name() == kNoNames[1];
  }

  [[nodiscard]] std::vector<std::unique_ptr<PeerGroup>>& groups() { return groups_; }

 private:
  BenchTable& table_;
  ScratchFolder folder_{"/dev/shm"};
  std::vector<std::unique_ptr<PeerGroup>> groups_;
};

/// Calls `measure` with each group in turn, round after round; its results by group.
template <typename Result>
std::vector<std::vector<Result>> inTurns(
    Arena& arena, const std::function<std::optional<Result>(PeerGroup&)>& measure) {
  std::vector<std::vector<Result>> results(arena.groups().size());
  const auto deadline = std::chrono::steady_clock::now() + kLongest;
  for (int round = 0; round < kRounds && std::chrono::steady_clock::now() < deadline; ++round) {
    for (std::size_t group = 0; group < results.size(); ++group) {
      if (auto result = measure(*arena.groups()[group])) results[group].push_back(*result);
    }
  }
  return results;
}

struct Latency {
  std::vector<double> middles;
  std::vector<double> all;
};

Latency summed(const std::vector<std::vector<double>>& rounds) {
  Latency latency;
  for (const auto& round : rounds) {
    latency.middles.push_back(median(round));
    latency.all.insert(latency.all.end(), round.begin(), round.end());
  }
  return latency;
}

std::string named(const std::string& figure, const PeerGroup& group) {
  return figure + ", " + group.name();
}

/// What a group's messages took, beside the bare sockets'.
void addLatency(BenchTable& table, const PeerGroup& by, std::size_t receivers,
                const Latency& latency, const Latency& floor) {
  const auto add = [&](const char* figure, double ours, double least, double most) {
    const bool isStation = by.name() == kNoNames[0];
    table.add({named(figure, by),
               static_cast<double>(receivers),
               Unit::eSeconds,
               ours,
               least,
               isStation ? Bound::atMost(most) : Bound::none(),
               {}});
  };
  add("latency p50", median(latency.middles), median(floor.middles), 1.25);
  add("latency p99", percentile(latency.all, 0.99), percentile(floor.all, 0.99), 1.5);
}

/// Those whom a station is to be ahead of.
bool isRival(const PeerGroup& group) { return group.name() == kBus || group.name() == kDds; }

/// What a station's messages took beside a rival's.
void addMiddle(BenchTable& table, const PeerGroup& rival, std::size_t receivers,
               const Latency& station, const Latency& theirs) {
  table.add({"p50 of a station by that of " + rival.name(),
             static_cast<double>(receivers),
             Unit::eSeconds,
             median(station.middles),
             median(theirs.middles),
             Bound::atMost(1.0),
             {}});
}

bool complain(const char* what) {
  std::fprintf(stderr, "%s: the stations or the bare sockets did not come up\n", what);
  return false;
}

}  // namespace

bool measureLatency(BenchTable& table, const std::string& programs) {
  Arena arena(
      table, programs,
      {{"station, 2000 clips open", programs + "/bench-station", PeerArguments::kLongEdit}});
  for (const std::size_t receivers : kReceivers) {
    if (!arena.growTo(receivers)) return complain("latency");
    const auto rounds = inTurns<std::vector<double>>(
        arena, [](PeerGroup& group) { return group.latencies(kPaced, kPause); });
    const Latency station = summed(rounds[0]);
    const Latency floor = summed(rounds[1]);
    for (std::size_t group = 0; group < rounds.size(); ++group) {
      const PeerGroup& by = *arena.groups()[group];
      if (group != 1) addLatency(table, by, receivers, summed(rounds[group]), floor);
      if (isRival(by)) addMiddle(table, by, receivers, station, summed(rounds[group]));
    }
  }
  return true;
}

bool measureRate(BenchTable& table, const std::string& programs) {
  Arena arena(table, programs);
  for (const std::size_t receivers : kReceivers) {
    if (!arena.growTo(receivers)) return complain("rate");
    const auto rounds = inTurns<double>(arena, [](PeerGroup& group) { return group.rate(kBurst); });
    for (std::size_t group = 0; group < rounds.size(); ++group) {
      if (group == 1) continue;
      table.add({named("messages a second", *arena.groups()[group]),
                 static_cast<double>(receivers),
                 Unit::ePerSecond,
                 median(rounds[group]),
                 median(rounds[1]),
                 group == 0 ? Bound::atLeast(0.9) : Bound::none(),
                 {}});
    }
  }
  return true;
}

namespace {

constexpr double kFloodRate = 100'000;     ///< messages a second
constexpr std::uint32_t kFloodBatch = 50;  ///< sent at once
constexpr double kFloodBound = 0.010;      ///< seconds, of p99
constexpr int kFloodRounds = 20;

/// A stranger who announces owners of objects that there are not: each message that is taken makes
/// a station look for a file.
class Flood {
 public:
  explicit Flood(int port) : sender_(port), thread_([this] { send(); }) {}
  Flood(const Flood&) = delete;
  Flood& operator=(const Flood&) = delete;
  ~Flood() {
    isEnding_ = true;
    thread_.join();
  }

  [[nodiscard]] double perSecond() const {
    const std::chrono::duration<double> time = std::chrono::steady_clock::now() - begin_;
    return static_cast<double>(sent_) / time.count();
  }

 private:
  void send() {
    auto due = begin_;
    while (!isEnding_) {
      for (std::uint32_t each = 0; each < kFloodBatch; ++each, ++number_) {
        sent_ += sender_.send({"d", "5", kBenchProject, cookie(), "MALLORY"}) ? 1 : 0;
      }
      due += std::chrono::nanoseconds(static_cast<long long>(kFloodBatch * 1e9 / kFloodRate));
      std::this_thread::sleep_until(due);
    }
  }

  [[nodiscard]] std::string cookie() const {
    char text[34];
    std::snprintf(text, sizeof text, "Ebad%029x", number_);
    return text;
  }

  LoopbackSender sender_;
  std::uint32_t number_ = 0;
  std::atomic<long> sent_{0};
  std::atomic<bool> isEnding_{false};
  const std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
  std::thread thread_;
};

}  // namespace

bool measureFlood(BenchTable& table, const std::string& programs) {
  constexpr int kPort = kFirstPort + 100;
  ScratchFolder folder("/dev/shm");
  writeBenchProject(folder.path(), Board::kMessages);
  ::setenv(kReceiveLimitVariable, "500", 1);
  PeerGroup stations({"station", programs + "/bench-station"}, folder.path(), kPort);
  const bool isUp = stations.growTo(1);
  ::unsetenv(kReceiveLimitVariable);
  if (!isUp) return complain("flood");
  std::vector<std::vector<double>> quiet;
  std::vector<std::vector<double>> flooded;
  int lost = 0;
  for (int round = 0; round < kFloodRounds; ++round) {
    if (auto times = stations.latencies(kPaced, kPause)) quiet.push_back(std::move(*times));
  }
  double rate = 0;
  {
    const Flood flood(kPort);
    for (int round = 0; round < kFloodRounds; ++round) {
      auto times = stations.latencies(kPaced, kPause);
      lost += times ? 0 : 1;
      if (times) flooded.push_back(std::move(*times));
    }
    rate = flood.perSecond();
  }
  char note[160];
  std::snprintf(note, sizeof note, "%.0f k/s sent by the stranger; %d of %d rounds lost a message",
                rate / 1000, lost, kFloodRounds);
  const Latency ours = summed(flooded);
  const Latency floor = summed(quiet);
  // A round in which a message was lost has no times: it counts as a second.
  const double p99 = lost == 0 ? percentile(ours.all, 0.99) : 1.0;
  table.add({"latency p50 in a flood",
             0,
             Unit::eSeconds,
             median(ours.all),
             median(floor.all),
             Bound::none(),
             {}});
  table.add({"latency p99 in a flood", 0, Unit::eSeconds, p99, percentile(floor.all, 0.99),
             Bound::timeAtMost(kFloodBound), note});
  return true;
}

}  // namespace korvel
