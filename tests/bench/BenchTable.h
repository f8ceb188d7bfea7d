#pragma once

#include <benchmark/benchmark.h>

#include <map>
#include <string>

/// Collects what benchmarks cost, the least of their repetitions, and prints each operation with
/// the same done by hand, if there is such a one, and what it may cost at most.
///
///     operation            ours     by hand   ratio   at most
///     take and release   61.0 us    57.8 us    1.06      1.30
class BenchTable : public benchmark::BenchmarkReporter {
 public:
  bool ReportContext(const Context& context) override;
  void ReportRuns(const std::vector<Run>& runs) override;

  /// Prints the table; false when something failed or costs more than it may.
  [[nodiscard]] bool print() const;

 private:
  struct Costs {
    double ours = 0;
    double byHand = 0;  ///< 0 where nothing is written by hand
  };

  std::map<std::string, Costs> costs_;  ///< nanoseconds, by operation
  bool hasFailed_ = false;
};
