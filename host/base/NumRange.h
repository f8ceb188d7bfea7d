#pragma once

#include <utility>

#include "host/base/Log.h"

/// A pair of numbers, start then end.
///
/// A range that is built from two numbers is put in order: when start is greater than end it
/// reports the assertion "false" at "misc/NumRange line 123" and swaps them. The members themselves
/// may be set to anything; what comes from a text is checked when it is copied, not when it is
/// read.
template <typename T>
struct NumRange {
  T start{};
  T end{};

  NumRange() = default;
  NumRange(T first, T last) : start(first), end(last) {
    if (start > end) {
      assertionFailed("false", "misc/NumRange line 123");
      std::swap(start, end);
    }
  }
};
