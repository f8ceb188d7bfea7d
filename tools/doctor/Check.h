#pragma once

#include <chrono>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "tools/base/Finding.h"

namespace korvel {

/// What a check waits for when it does not come to its end.
enum class Touches { eShare, eMachine };

/// Whether the checks of the share that follow make sense after it failed.
enum class Role { eOrdinary, eGate };

/// One check: a line of a table, and a small function that looks.
struct Check {
  const char* group;
  const char* name;
  Touches touches;
  Role role;
  std::chrono::milliseconds limit;
  std::function<Findings()> look;
};

/// Runs a check in a process of its own, for its limit at most: one that hangs (a mount whose
/// server is gone keeps even `kill -9` waiting) is left to itself, and its finding says so. One
/// that ends in any other way than by its answer is a failure as well.
Findings runLimited(const Check& check);

/// Runs checks one after another and hands each finding to `take` as it comes. After the share hung
/// or a gate failed, what touches the share is left out.
void runChecks(std::span<const Check> checks, const std::function<void(const Finding&)>& take);

}  // namespace korvel
