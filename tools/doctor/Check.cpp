#include "tools/doctor/Check.h"

#include <exception>

#include "station/base/Log.h"
#include "station/os/Posix.h"
#include "tools/base/ToolHost.h"

namespace korvel {

namespace {

Findings named(const Check& check, Findings findings) {
  for (Finding& finding : findings) {
    finding.group = check.group;
    if (finding.check.empty()) finding.check = check.name;
  }
  return findings;
}

Findings lookSafely(const Check& check) {
  try {
    return check.look();
  } catch (const std::exception& error) {
    return {fail(std::string("the check stopped: ") + error.what(),
                 "run the command again; report it if it stays so")};
  }
}

void answer(const Check& check, int pipe) {
  JsonValue all = JsonValue::array();
  for (const Finding& finding : lookSafely(check)) all.append(objectOf(finding));
  // A line end cannot occur within JSON text, so it marks the end of the answer.
  const std::string line = writeJson(all) + "\n";
  writeAll(pipe, line);
}

std::string secondsText(std::chrono::milliseconds time) {
  std::string text = std::to_string(time.count() / 1000);
  if (time.count() % 1000 != 0) text += "." + std::to_string(time.count() % 1000 / 100);
  return text + " s";
}

Finding lateFinding(const Check& check) {
  if (check.touches == Touches::eShare) {
    return fail("no answer within " + secondsText(check.limit) + ": the share hangs",
                "see whether its server is up and reached; a mount that stays so is ended with "
                "umount -f -l and mounted again");
  }
  return fail("no answer within " + secondsText(check.limit),
              "look into the system's log, and run the command again");
}

Findings readFindings(const std::string& line) {
  Findings findings;
  const auto all = parseJson(line);
  if (!all) return {fail("the check's answer cannot be read", "run the command again")};
  for (const JsonValue& each : all->elements()) findings.push_back(findingOf(each));
  return findings;
}

struct Outcome {
  Findings findings;
  bool isLate = false;
};

Outcome runOne(const Check& check) {
  ChildProcess child([&check](int pipe) { answer(check, pipe); });
  const auto deadline = std::chrono::steady_clock::now() + check.limit;
  std::string line;
  while (!line.ends_with('\n')) {
    switch (child.read(deadline, line)) {
      case ChildProcess::Reading::eLate:
        return {{lateFinding(check)}, true};
      case ChildProcess::Reading::eEnded:
        return {{fail("the check was ended before its answer", "run the command again")}};
      default:
        break;
    }
  }
  return {readFindings(line)};
}

}  // namespace

void runChecks(std::span<const Check> checks, const std::function<void(const Finding&)>& take) {
  bool canUseShare = true;
  for (const Check& check : checks) {
    const bool touchesShare = check.touches == Touches::eShare;
    // Each further check would wait for its whole limit and report the same.
    if (touchesShare && !canUseShare) continue;
    Outcome outcome = runOne(check);
    const Findings findings = named(check, std::move(outcome.findings));
    for (const Finding& finding : findings) take(finding);
    const bool hasFailed = worstOf(findings) == Verdict::eFail;
    if (touchesShare && (outcome.isLate || (check.role == Role::eGate && hasFailed))) {
      canUseShare = false;
    }
  }
}

}  // namespace korvel
