// Kills a station at many random moments of its work, counts what is lost, and prints a line of the
// lab's table.
//
// usage: PROGRAM [ROUNDS [SEED [TROUBLE]]]        500 rounds unless given; TROUBLE is none, full or
//                                                 gone: what befalls the share meanwhile

#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "tests/fault/KillSession.h"

using namespace korvel;

namespace {

struct Row {
  const char* word;
  Trouble trouble;
  const char* scenario;
};

constexpr Row kRows[] = {
    {"none", Trouble::eNone, "a station is killed at random moments"},
    {"full", Trouble::eFull, "the same, and the share is full again and again"},
    {"gone", Trouble::eGone, "the same, and the share vanishes and comes back"},
};

void print(const char* scenario, const KillOutcome& outcome, bool isWell, double seconds) {
  std::printf(
      "%s\t%s\t%d kills, %d of them in trouble; %d commands, %d refused; %d edits deleted, %d "
      "taken back; %d versions saved; recovery needed after %d kills, for %d unsaved changes, %d "
      "of them missing, %d to %d ms old; %d edits taken up again; %zu lost\t%.1f\n",
      scenario, isWell ? "passed" : "failed", outcome.rounds, outcome.inTrouble, outcome.commands,
      outcome.refused, outcome.deleted, outcome.restored, outcome.saved, outcome.needed,
      outcome.unsaved, outcome.missing, static_cast<int>(outcome.youngest.count()),
      static_cast<int>(outcome.oldest.count()), outcome.recovered, outcome.lost.size(), seconds);
}

}  // namespace

int main(int count, char** words) {
  const int rounds = count > 1 ? std::atoi(words[1]) : 500;
  const unsigned seed = count > 2 ? static_cast<unsigned>(std::atoi(words[2])) : 20240531U;
  const std::string wanted = count > 3 ? words[3] : "none";
  for (const Row& row : kRows) {
    if (wanted != row.word) continue;
    KillSession session(seed, row.trouble);
    if (!session.isAble()) {
      std::printf("%s\tskipped\ta disk that fills up needs a mount\t0\n", row.scenario);
      return 77;
    }
    const auto begin = std::chrono::steady_clock::now();
    const KillOutcome outcome = session.run(rounds);
    const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
    for (const std::string& each : outcome.lost) std::fprintf(stderr, "%s\n", each.c_str());
    const bool isWell = outcome.lost.empty() && outcome.rounds == rounds;
    print(row.scenario, outcome, isWell, took.count());
    return isWell ? 0 : 1;
  }
  std::fprintf(stderr, "%s: no such trouble: none, full, gone\n", wanted.c_str());
  return 2;
}
