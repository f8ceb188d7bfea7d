#pragma once

#include <benchmark/benchmark.h>

#include <functional>
#include <string>
#include <vector>

#include "tests/bench/BenchTable.h"

namespace korvel {

/// An operation of ours and the same by hand, to be measured in turns by Google Benchmark.
struct BenchPair {
  using Body = std::function<void(benchmark::State&)>;

  /// Whether time counts while others have the processor; what waits for a disk needs it to.
  enum class Clock { eWall, eProcessor };

  std::string what;
  double size = 0;  ///< 0 where there is none
  Bound bound;
  Body ours;
  Body byHand;
  Clock clock = Clock::eProcessor;
  std::function<void()> prepare = [] {};  ///< run before the pair's turns
  std::function<void()> cleanUp = [] {};  ///< run after them
};

/// Measures pairs one after the other; within a pair the repetitions take turns, so that whatever
/// else the machine does meets both alike, and the medians are compared.
class MicroBench {
 public:
  static constexpr int kRepetitions = 9;

  void add(BenchPair pair) { pairs_.push_back(std::move(pair)); }

  /// False when something failed, which is told on standard error.
  bool run(BenchTable& table) const;

 private:
  std::vector<BenchPair> pairs_;
};

// What there is to measure in this process.
void addMessagePairs(MicroBench& bench);
void addLockPairs(MicroBench& bench);
void addPermissionPairs(MicroBench& bench);
void addReceivePairs(MicroBench& bench);
void addSealPairs(MicroBench& bench);

}  // namespace korvel
