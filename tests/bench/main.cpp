#include <array>

#include "tests/bench/BenchTable.h"

// Repetitions of all benchmarks take turns, so that whatever else the machine does meets each pair
// alike.
int main(int argc, char** argv) {
  std::vector<char*> words{argv[0]};
  std::array<std::string, 3> options{"--benchmark_repetitions=12",
                                     "--benchmark_enable_random_interleaving=true",
                                     "--benchmark_min_time=0.1"};
  for (std::string& option : options) words.push_back(option.data());
  words.insert(words.end(), argv + 1, argv + argc);
  int count = static_cast<int>(words.size());
  benchmark::Initialize(&count, words.data());
  if (benchmark::ReportUnrecognizedArguments(count, words.data())) return 2;
  BenchTable table;
  benchmark::RunSpecifiedBenchmarks(&table);
  return table.print() ? 0 : 1;
}
