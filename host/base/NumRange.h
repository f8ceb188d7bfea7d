#pragma once

// A stretch of time or of numbers, as the host's modifications carry it.
//
// The host's own code builds ranges from two numbers and relies on their order. A modification
// that comes from another station is read without that check, so that reading never reports
// anything; the report is made where such a range is first copied into a checked one.

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

  /// From zero to zero.
  NumRange() = default;

  /// From the smaller to the greater of two numbers, with a report when they were the other way.
  NumRange(T first, T last) : start(first), end(last) {
    if (start > end) {
      assertionFailed("false", "misc/NumRange line 123");
      std::swap(start, end);
    }
  }
};
