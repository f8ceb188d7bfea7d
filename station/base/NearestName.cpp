#include "station/base/NearestName.h"

#include <algorithm>

namespace korvel {

std::size_t editDistance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> beforeLast;
  std::vector<std::size_t> last;
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j <= b.size(); ++j) row[j] = j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    beforeLast = std::move(last);
    last = row;
    row[0] = i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replaced = last[j - 1] + (a[i - 1] == b[j - 1] ? 0 : 1);
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, replaced});
      const bool swapped = i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1];
      if (swapped) row[j] = std::min(row[j], beforeLast[j - 2] + 1);
    }
  }
  return row.back();
}

std::string nearestName(const std::string& typed, const std::vector<std::string>& candidates) {
  std::string nearest;
  std::size_t least = ~std::size_t{0};
  for (const std::string& candidate : candidates) {
    const std::size_t allowed = std::max<std::size_t>(1, candidate.size() / 3);
    if (typed.size() > candidate.size() + allowed) continue;  // a pasted megabyte is not compared
    const std::size_t distance = editDistance(typed, candidate);
    if (distance > allowed || distance >= least) continue;
    least = distance;
    nearest = candidate;
  }
  return nearest;
}

}  // namespace korvel
