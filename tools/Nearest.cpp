#include "tools/Nearest.h"

#include <algorithm>
#include <numeric>

namespace {

/// How many letters must be changed, added or left out to make one word of the other.
std::size_t distanceBetween(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t diagonal = row[0]++;
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t changed = diagonal + (a[i] == b[j] ? 0 : 1);
      diagonal = row[j + 1];
      row[j + 1] = std::min({changed, row[j] + 1, row[j + 1] + 1});
    }
  }
  return row.back();
}

}  // namespace

std::string nearestName(const std::string& word, const std::vector<std::string>& names) {
  std::string best;
  std::size_t bestDistance = word.size() / 3 + 2;  // anything further is another word
  for (const auto& name : names) {
    const std::size_t distance = distanceBetween(word, name);
    if (distance < bestDistance && distance < name.size()) {
      best = name;
      bestDistance = distance;
    }
  }
  return best;
}
