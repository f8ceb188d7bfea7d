#include <algorithm>
#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "tests/fault/FaultSession.h"

using namespace korvel;

namespace korvel {

// fault_sweep [STEP [VERBOSE]]: meets every operation (every STEP-th) of a session with every
// fault, one at a time, and prints a line for each kind of fault: name, passed or failed, why,
// seconds.

namespace {

struct Kind {
  const char* name;
  FaultAction action;
  int number;
};

constexpr std::array kKinds{Kind{"no space", FaultAction::eFail, ENOSPC},
                            Kind{"no rights", FaultAction::eFail, EACCES},
                            Kind{"I/O error", FaultAction::eFail, EIO},
                            Kind{"interrupted", FaultAction::eFail, EINTR},
                            Kind{"stale handle", FaultAction::eFail, ESTALE},
                            Kind{"half a read or write", FaultAction::eShort, 0},
                            Kind{"killed before", FaultAction::eKillBefore, 0},
                            Kind{"killed after", FaultAction::eKillAfter, 0}};

struct Sweep {
  std::uint64_t sessions = 0;
  std::uint64_t problems = 0;
  std::string first;
};

void show(const Kind& kind, std::uint64_t at, const FaultOutcome& outcome) {
  std::fprintf(stderr, "%s #%lu %s | %s | %s\n", kind.name, static_cast<unsigned long>(at),
               outcome.what.c_str(), outcome.command.c_str(), outcome.said.c_str());
  for (const std::string& told : outcome.told) std::fprintf(stderr, "  told: %s\n", told.c_str());
  for (const std::string& left : outcome.leftOver)
    std::fprintf(stderr, "  left: %s\n", left.c_str());
  for (const std::string& problem : outcome.problems)
    std::fprintf(stderr, "  PROBLEM: %s\n", problem.c_str());
}

Sweep sweep(FaultSession& session, const Kind& kind, std::uint64_t step, bool isVerbose) {
  Sweep done;
  for (std::uint64_t at = 1;; at += step) {
    const FaultOutcome outcome = session.run({at, kind.action, kind.number});
    if (!outcome.isMet) return done;
    ++done.sessions;
    if (isVerbose || !outcome.problems.empty()) show(kind, at, outcome);
    if (outcome.problems.empty()) continue;
    if (done.problems++ == 0) done.first = outcome.what + ": " + outcome.problems.front();
  }
}

/// On one line, and a short one.
std::string sentence(const Sweep& done) {
  std::string text = std::to_string(done.sessions) + " sessions";
  if (done.problems > 0) text += ", " + std::to_string(done.problems) + " badly: " + done.first;
  std::ranges::replace_if(
      text, [](char letter) { return letter < ' '; }, ' ');
  return text.substr(0, 200);
}

}  // namespace

}  // namespace korvel

int main(int count, char** words) {
  const std::string wanted = count > 1 ? words[1] : "";
  const std::uint64_t step = count > 2 ? std::strtoul(words[2], nullptr, 10) : 1;
  const bool isVerbose = std::getenv("KV_FAULT_VERBOSE") != nullptr;
  FaultSession session;
  bool isWell = true;
  for (const Kind& kind : kKinds) {
    if (!wanted.empty() && wanted != kind.name) continue;
    const auto begin = std::chrono::steady_clock::now();
    const Sweep done = sweep(session, kind, std::max<std::uint64_t>(step, 1), isVerbose);
    const std::chrono::duration<double> seconds = std::chrono::steady_clock::now() - begin;
    const std::string why = sentence(done);
    std::printf("a file operation meets: %s\t%s\t%s\t%.1f\n", kind.name,
                done.problems == 0 ? "passed" : "failed", why.c_str(), seconds.count());
    std::fflush(stdout);
    isWell = isWell && done.problems == 0;
  }
  return isWell ? 0 : 1;
}
