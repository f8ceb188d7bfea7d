#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <optional>
#include <string>
#include <vector>

#include "tests/bench/PeerProcess.h"
#include "tests/bench/ProcessBench.h"

namespace korvel {

namespace {

constexpr char kSecondsARow[] = "4";                  ///< a row
constexpr auto kUntilTold = std::chrono::minutes(2);  ///< ten thousand edits are made first
constexpr double kMostFrame = 0.05;                   ///< seconds
constexpr std::size_t kNameWidth = 34;                ///< of what a row measures, at its beginning
constexpr std::size_t kRows = 5;

/// A row that the program prints: what was done, how many frames, p99 and the longest, both in
/// milliseconds. None for its heading and what it says at the end.
std::optional<Figure> figureOf(const std::string& line) {
  if (line.size() <= kNameWidth) return {};
  unsigned long frames = 0;
  double ninetyNinth = 0;
  double longest = 0;
  if (std::sscanf(line.c_str() + kNameWidth, "%lu %lf %lf", &frames, &ninetyNinth, &longest) != 3) {
    return {};
  }
  std::string what = line.substr(0, kNameWidth);
  what.erase(what.find_last_not_of(' ') + 1);
  return Figure{"window's longest frame, " + what, 0, Unit::eSeconds, longest / 1e3, 0,
                Bound::timeAtMost(kMostFrame),     {}};
}

}  // namespace

bool measureWindow(BenchTable& table, const std::string& programs) {
  const std::string program = programs + "/window_bench";
  if (!std::filesystem::exists(program)) {
    table.leaveOut("the window's frames", "window_bench was not built");
    return true;
  }
  ::setenv("QT_QPA_PLATFORM", "offscreen", 0);
  PeerProcess window(std::vector<std::string>{program, kSecondsARow});
  std::size_t rows = 0;
  while (const auto line = window.readLine(kUntilTold)) {
    const auto figure = figureOf(*line);
    if (!figure) continue;
    table.add(*figure);
    ++rows;
  }
  if (window.finish() && rows == kRows) return true;
  std::fprintf(stderr, "window: window_bench ended after %zu of %zu rows\n", rows, kRows);
  return false;
}

}  // namespace korvel
