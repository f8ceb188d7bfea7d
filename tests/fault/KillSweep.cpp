// Kills a station at many random moments of its work, counts what is lost, and prints a line of the
// lab's table.
//
// usage: PROGRAM [ROUNDS [SEED]]        500 rounds unless given

#include <chrono>
#include <cstdio>
#include <cstdlib>

#include "tests/fault/KillSession.h"

using namespace korvel;

int main(int count, char** words) {
  const int rounds = count > 1 ? std::atoi(words[1]) : 500;
  const unsigned seed = count > 2 ? static_cast<unsigned>(std::atoi(words[2])) : 20240531U;
  const auto begin = std::chrono::steady_clock::now();
  const KillOutcome outcome = KillSession(seed).run(rounds);
  const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
  for (const std::string& each : outcome.lost) std::fprintf(stderr, "%s\n", each.c_str());
  const bool isWell = outcome.lost.empty() && outcome.rounds == rounds;
  std::printf(
      "a station is killed at random moments\t%s\t%d kills, %d commands, %d edits deleted, %d "
      "taken "
      "back, %d versions saved, %d changes not saved and a second old, %d times taken up again, "
      "%zu "
      "lost\t%.1f\n",
      isWell ? "passed" : "failed", outcome.rounds, outcome.commands, outcome.deleted,
      outcome.restored, outcome.saved, outcome.unsaved, outcome.recovered, outcome.lost.size(),
      seconds.count());
  return isWell ? 0 : 1;
}
