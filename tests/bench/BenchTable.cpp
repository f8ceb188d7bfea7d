#include "tests/bench/BenchTable.h"

#include <array>
#include <cstdio>
#include <string_view>

namespace {

/// What an operation may cost: a ratio to the same by hand, or a time where there is no such.
struct Limit {
  std::string_view operation;
  double ratio;
  double nanoseconds;
};

constexpr std::array kLimits{Limit{"take and release", 1.3, 0}, Limit{"isProjectOccupied", 1.5, 0},
                             Limit{"getProjectLockOwner", 1.5, 0},
                             Limit{"getNumActiveUsers, 10 000 of 100 000 files", 0, 100e6}};

const Limit& limitOf(std::string_view operation) {
  for (const Limit& limit : kLimits) {
    if (limit.operation == operation) return limit;
  }
  static constexpr Limit kNone{"", 0, 0};
  return kNone;
}

std::string timeText(double nanoseconds) {
  if (nanoseconds <= 0) return "-";
  char text[32];
  const bool isLong = nanoseconds >= 1e6;
  std::snprintf(text, sizeof text, "%.1f %s", nanoseconds / (isLong ? 1e6 : 1e3),
                isLong ? "ms" : "us");
  return text;
}

std::string ratioText(double ratio) {
  if (ratio <= 0) return "-";
  char text[32];
  std::snprintf(text, sizeof text, "%.2f", ratio);
  return text;
}

constexpr const char* kLayout = "%-44s %10s %10s %6s %9s  %s\n";

}  // namespace

bool BenchTable::ReportContext(const Context&) { return true; }

void BenchTable::ReportRuns(const std::vector<Run>& runs) {
  for (const Run& run : runs) {
    if (run.error_occurred) {
      std::fprintf(stderr, "%s: %s\n", run.benchmark_name().c_str(), run.error_message.c_str());
      hasFailed_ = true;
    }
    const std::string name = run.run_name.function_name;
    const std::size_t cut = name.rfind('/');
    if (run.error_occurred || run.run_type != Run::RT_Iteration || cut == std::string::npos)
      continue;
    Costs& costs = costs_[name.substr(0, cut)];
    double& least = name.substr(cut + 1) == "ours" ? costs.ours : costs.byHand;
    const double taken = run.GetAdjustedRealTime();
    if (least == 0 || taken < least) least = taken;
  }
}

bool BenchTable::print() const {
  bool isWithin = !hasFailed_ && !costs_.empty();
  std::printf(kLayout, "operation", "ours", "by hand", "ratio", "at most", "");
  for (const auto& [operation, costs] : costs_) {
    const Limit& limit = limitOf(operation);
    const double ratio = costs.byHand > 0 ? costs.ours / costs.byHand : 0;
    const bool isMissed = (limit.ratio > 0 && (ratio <= 0 || ratio > limit.ratio)) ||
                          (limit.nanoseconds > 0 && costs.ours > limit.nanoseconds);
    std::printf(kLayout, operation.c_str(), timeText(costs.ours).c_str(),
                timeText(costs.byHand).c_str(), ratioText(ratio).c_str(),
                (limit.ratio > 0 ? ratioText(limit.ratio) : timeText(limit.nanoseconds)).c_str(),
                isMissed ? "MISSED" : "");
    isWithin = isWithin && !isMissed;
  }
  return isWithin;
}
