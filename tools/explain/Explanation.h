#pragma once

#include <cstdint>
#include <string>

#include "tools/explain/Subject.h"

namespace korvel {

/// Why something can or cannot be taken or changed.
struct Explanation {
  std::string object;  ///< "Project \"Feature\""
  std::string state;   ///< "free", "held", "left behind", "owned", "no owner", "missing", "broken",
                       ///< "no rights", "read-only", "no locks", "stale" or "full"
  std::string cause;   ///< a clause: "is held"
  std::string by;      ///< whose doing it is: a user's name; empty where nobody's
  std::string where;   ///< where the holder runs, as far as this machine can tell
  std::int64_t since = 0;  ///< in seconds since 1970; 0 where nothing is going on
  std::string advice;      ///< what to do; empty where nothing stands in the way

  [[nodiscard]] bool isFree() const { return state == "free"; }
};

/// Looks at everything that can stand in the way of a station on `host`, the nearest cause first.
/// Takes and changes nothing.
Explanation explain(const Subject& subject, const std::string& host);

/// The whole in one sentence; no control characters.
std::string sentenceOf(const Explanation& explanation);

}  // namespace korvel
