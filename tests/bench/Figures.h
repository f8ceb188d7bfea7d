#pragma once

#include <cstddef>
#include <utility>
#include <vector>

namespace korvel {

// The arithmetic behind the tables.

/// The middle of the values, or the mean of the middle two; 0 for none.
double median(std::vector<double> values);

/// The value below which `share` (0 to 1) of the values lie: the nearest one of them; 0 for none.
double percentile(std::vector<double> values, double share);

/// How a figure grows with its size: the slope of the line that fits log(figure) over log(size)
/// best, 0 for constant, 1 for proportional, 2 for quadratic. Points that are not positive do not
/// count; 0 for fewer than two.
double fittedExponent(const std::vector<std::pair<double, double>>& figuresBySize);

}  // namespace korvel
