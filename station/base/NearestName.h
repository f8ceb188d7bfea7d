#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace korvel {

/// How many letters must be added, taken away, replaced or swapped with their neighbour to turn one
/// text into the other.
std::size_t editDistance(std::string_view a, std::string_view b);

/// The candidate nearest to what was typed, the first of equally near ones; empty when none is near
/// (more than a third of its letters, but at least one, would have to change).
std::string nearestName(const std::string& typed, const std::vector<std::string>& candidates);

}  // namespace korvel
