#include "tools/doctor/PeerTest.h"

namespace korvel {

namespace {

using std::chrono::milliseconds;

constexpr auto kTimeToFree = std::chrono::seconds(10);

/// What came of one order of holding and trying.
struct Round {
  bool isHeld = false;   ///< the holder got the file
  bool isTaken = false;  ///< the other got it at the same time
  long freeAfter = -1;   ///< milliseconds after the kill; -1 for not within the limit
  std::string problem;   ///< why there was no trial at all
};

JsonValue letterOf(const Round& round) {
  return JsonValue::object({{"held", round.isHeld},
                            {"taken", round.isTaken},
                            {"free_after", round.freeAfter},
                            {"problem", round.problem}});
}

Round roundOf(const JsonValue& letter) {
  return {letter["held"].asBool(), letter["taken"].asBool(), letter["free_after"].asLong(-1),
          letter["problem"].asString()};
}

Round lost(const Pair& pair) {
  Round round;
  round.problem = pair.other.host + " went away during the trial";
  return round;
}

/// Holds the file until the other has tried it, then kills the holder.
Round hold(Pair& pair, const std::string& name) {
  const ProbeFile file(pair.folder.file(std::min(pair.mail.ownId(), pair.otherId), name));
  LockHolder holder(pair.facts.open, file.path());
  Round round;
  round.isHeld = holder.isHolding();
  if (!round.isHeld) round.problem = refusalText(holder.problem());
  pair.mail.post(name + "-held", letterOf(round));
  if (!round.isHeld) return round;
  if (!pair.mail.await(pair.otherId, name + "-tried", pair.patience)) return lost(pair);
  holder.kill();
  pair.mail.post(name + "-killed");
  const auto result = pair.mail.await(pair.otherId, name + "-free", pair.patience + kTimeToFree);
  return result ? roundOf(*result) : lost(pair);
}

/// Tries the file while the other holds it, and again after the holder was killed.
Round tryWhileHeld(Pair& pair, const std::string& name) {
  const std::string path = pair.folder.file(std::min(pair.mail.ownId(), pair.otherId), name);
  const auto held = pair.mail.await(pair.otherId, name + "-held", pair.patience);
  if (!held) return lost(pair);
  Round round = roundOf(*held);
  if (!round.isHeld) return round;
  {
    const OpenOutcome outcome = pair.facts.open(path);
    round.isTaken = outcome.problem == eFileError::eNone;
    if (!round.isTaken && outcome.problem != eFileError::eHeld) {
      round.problem = refusalText(outcome.problem);
    }
  }
  pair.mail.post(name + "-tried");
  if (!pair.mail.await(pair.otherId, name + "-killed", pair.patience)) return lost(pair);
  const auto free = timeUntilFree(pair.facts.open, path, kTimeToFree);
  if (free) round.freeAfter = free->count();
  pair.mail.post(name + "-free", letterOf(round));
  return round;
}

std::string joined(const std::vector<std::string>& words) {
  std::string all;
  for (const auto& word : words) all += (all.empty() ? "" : " and ") + word;
  return all;
}

/// The option that is to blame, by the mounts of both; what to look for where none shows.
std::string fixFor(const Pair& pair) {
  std::string fix;
  for (const PeerTestSide* const side : {&pair.self, &pair.other}) {
    if (side->breakers.empty()) continue;
    fix += (fix.empty() ? "on " : "; on ") + side->host + ", mount it without " +
           joined(side->breakers);
  }
  if (!fix.empty()) return fix + "; a lock counts between machines only if every one sends it";
  return "no option of either mount says why (" + pair.self.host + ": " + pair.self.mount + "; " +
         pair.other.host + ": " + pair.other.mount +
         "): see that both mount the same export of one server, and that the server passes locks "
         "on";
}

Findings judge(const Pair& pair, const Round& round, const std::string& holder,
               const std::string& other) {
  const std::string held = "while " + holder + " holds a file, ";
  if (!round.problem.empty()) {
    return {fail(held + "the trial failed: " + round.problem, fixFor(pair))};
  }
  if (round.isTaken) {
    return {fail("locks do not lock: " + held + other + " takes it, too", fixFor(pair))};
  }
  if (round.freeAfter < 0) {
    return {pass(held + other + " is refused"),
            warn("10 s after the program on " + holder + " that held it was killed, " + other +
                     " is still refused",
                 "wait for the server's lease (NFSv4: 90 s unless set otherwise); if it stays so, "
                 "clear the server's locks")};
  }
  return {pass(held + other + " is refused, and gets it " + std::to_string(round.freeAfter) +
               " ms after the holder was killed")};
}

}  // namespace

Findings tryLocks(Pair& pair) {
  Findings findings;
  for (const char* const name : {"lock-1", "lock-2"}) {
    const bool isHolder = pair.isFirst() == (std::string(name) == "lock-1");
    const Round round = isHolder ? hold(pair, name) : tryWhileHeld(pair, name);
    const std::string& holder = isHolder ? pair.self.host : pair.other.host;
    const std::string& other = isHolder ? pair.other.host : pair.self.host;
    for (Finding& finding : judge(pair, round, holder, other)) {
      findings.push_back(std::move(finding));
    }
  }
  return findings;
}

}  // namespace korvel
