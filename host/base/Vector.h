#pragma once

#include <vector>

/// The host's growable array.
template <typename T>
using Vector = std::vector<T>;
