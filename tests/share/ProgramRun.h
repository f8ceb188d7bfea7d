#pragma once

#include <chrono>
#include <string>
#include <vector>

namespace korvel {

/// What a program did that was run to its end.
struct ProgramRun {
  int status = -1;  ///< its exit status; 128 and the signal's number when one ended it
  std::string output;
  std::string errors;
};

/// Runs a program (a path, or a name to be found where programs are) with these words, gives it
/// `input`, and waits for its end, `limit` at most (then it is killed).
ProgramRun runProgram(const std::vector<std::string>& words, const std::string& input = {},
                      std::chrono::duration<double> limit = std::chrono::minutes(1));

}  // namespace korvel
