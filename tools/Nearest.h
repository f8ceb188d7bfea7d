#pragma once

#include <string>
#include <vector>

/// The name that a mistyped word most likely meant: the one that the fewest changed, added or left
/// out letters make of it. Empty when none is near.
std::string nearestName(const std::string& word, const std::vector<std::string>& names);
