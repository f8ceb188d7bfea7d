#include "tests/bench/Figures.h"

#include <algorithm>
#include <cmath>

namespace korvel {

double median(std::vector<double> values) {
  if (values.empty()) return 0;
  std::sort(values.begin(), values.end());
  const std::size_t middle = values.size() / 2;
  if (values.size() % 2 == 1) return values[middle];
  return (values[middle - 1] + values[middle]) / 2;
}

double percentile(std::vector<double> values, double share) {
  if (values.empty()) return 0;
  const auto last = static_cast<double>(values.size() - 1);
  const auto rank = static_cast<std::ptrdiff_t>(std::lround(share * last));
  std::nth_element(values.begin(), values.begin() + rank, values.end());
  return values[static_cast<std::size_t>(rank)];
}

double fittedExponent(const std::vector<std::pair<double, double>>& figuresBySize) {
  double count = 0;
  double sumX = 0;
  double sumY = 0;
  double sumXX = 0;
  double sumXY = 0;
  for (const auto& [size, figure] : figuresBySize) {
    if (size <= 0 || figure <= 0) continue;
    const double x = std::log(size);
    const double y = std::log(figure);
    ++count;
    sumX += x;
    sumY += y;
    sumXX += x * x;
    sumXY += x * y;
  }
  const double spread = count * sumXX - sumX * sumX;
  return count < 2 || spread <= 0 ? 0 : (count * sumXY - sumX * sumY) / spread;
}

}  // namespace korvel
