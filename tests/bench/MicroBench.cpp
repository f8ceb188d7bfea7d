#include "tests/bench/MicroBench.h"

#include <cstdio>
#include <map>

#include "tests/bench/Figures.h"

namespace korvel {

namespace {

/// Keeps the repetitions' times by benchmark.
class Repetitions : public benchmark::BenchmarkReporter {
 public:
  explicit Repetitions(BenchPair::Clock clock)
      : usesCpuTime(clock == BenchPair::Clock::eProcessor) {}

  bool ReportContext(const Context&) override { return true; }

  void ReportRuns(const std::vector<Run>& runs) override {
    for (const Run& run : runs) {
      if (run.error_occurred) {
        std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
        hasFailed = true;
      } else if (run.run_type == Run::RT_Iteration) {
        const double time = usesCpuTime ? run.GetAdjustedCPUTime() : run.GetAdjustedRealTime();
        seconds[run.run_name.function_name].push_back(time / 1e9);
      }
    }
  }

  std::map<std::string, std::vector<double>> seconds;
  bool usesCpuTime;
  bool hasFailed = false;
};

void initialise() {
  std::vector<std::string> words{
      "kv-bench", "--benchmark_repetitions=" + std::to_string(MicroBench::kRepetitions),
      "--benchmark_enable_random_interleaving=true", "--benchmark_min_time=0.02"};
  std::vector<char*> arguments;
  for (std::string& word : words) arguments.push_back(word.data());
  int count = static_cast<int>(arguments.size());
  benchmark::Initialize(&count, arguments.data());
}

}  // namespace

bool MicroBench::run(BenchTable& table) const {
  initialise();
  bool isWhole = true;
  for (const BenchPair& pair : pairs_) {
    benchmark::ClearRegisteredBenchmarks();
    benchmark::RegisterBenchmark("ours", pair.ours);
    benchmark::RegisterBenchmark("floor", pair.byHand);
    Repetitions measured(pair.clock);
    pair.prepare();
    benchmark::RunSpecifiedBenchmarks(&measured, "all");
    pair.cleanUp();
    isWhole = isWhole && !measured.hasFailed;
    if (measured.hasFailed) continue;
    table.add({pair.what,
               pair.size,
               Unit::eSeconds,
               median(measured.seconds["ours"]),
               median(measured.seconds["floor"]),
               pair.bound,
               {}});
  }
  return isWhole;
}

}  // namespace korvel
