#include "tools/doctor/Check.h"

#include <exception>
#include <iostream>
#include <optional>

#include "station/base/Json.h"
#include "station/base/Log.h"
#include "station/os/Posix.h"
#include "tools/base/CommandLine.h"
#include "tools/base/ToolHost.h"
#include "tools/doctor/PeerTest.h"

namespace korvel {

namespace {

/// An option of kv-station, as it was given.
struct StationOption {
  const char* name;
  const char* value;
  const char* help;
  std::optional<std::string> given;
};

struct DoctorRequest {
  std::string directory;
  std::vector<StationOption> station{
      {"--user", "NAME", "The station's user name; as kv-station has it by default", {}},
      {"--host", "NAME", "The station's host name; as kv-station has it by default", {}},
      {"--port", "N", "The stations' UDP port; 27015 by default", {}},
      {"--send-to", "ADDR[,ADDR]", "IPv4 addresses; all networks by default", {}},
      {"--listen", "ADDR", "The address that the station listens at; all by default", {}},
      {"--config", "FILE", "The station's configuration file, as for kv-station", {}}};
  std::string other;                 ///< the host to meet
  std::optional<int> secondsToWait;  ///< for another machine
  bool asJson = false;
};

DoctorFacts factsOf(const StationSettings& station) {
  DoctorFacts facts;
  facts.station = station;
  const auto port = station.config.find(kPortKey);
  // readOptions() has refused anything but a port.
  if (port != station.config.end()) facts.port = std::stoi(port->second);
  return facts;
}

/// Shows findings as they come, for people, or all at once as one object.
class DoctorReport {
 public:
  explicit DoctorReport(const DoctorRequest& request) : asJson_(request.asJson) {}

  void take(const Finding& finding) {
    worst_ = std::max(worst_, finding.verdict);
    counts_.add(finding);
    if (asJson_) {
      checks_.append(objectOf(finding));
    } else {
      // Flushed at once: the next check may take its time.
      std::cout << linesOf(finding, colours_) << std::endl;
    }
  }

  ToolStatus end(const std::string& directory) {
    if (asJson_) {
      JsonValue all = JsonValue::object({textMember("directory", directory)});
      all.set("verdict", verdictName(worst_));
      all.set("checks", std::move(checks_));
      printJson(all);
    } else {
      std::cout << counts_.text() << std::endl;
    }
    return worst_ == Verdict::eFail ? eToolFinding : eToolDone;
  }

 private:
  bool asJson_;
  Colours colours_ = coloursOfOutput();
  Verdict worst_ = Verdict::ePass;
  FindingCounts counts_;
  JsonValue checks_ = JsonValue::array();
};

/// The command line of the station that is looked at.
std::vector<std::string> wordsOf(const DoctorRequest& request) {
  std::vector<std::string> words{"--projects", request.directory};
  for (const StationOption& option : request.station) {
    if (option.given) words.insert(words.end(), {option.name, *option.given});
  }
  return words;
}

void declareDoctor(CommandOptions& options, DoctorRequest& request) {
  options.word("DIR", request.directory, "The projects directory");
  for (StationOption& option : request.station) {
    options.text(option.name, option.value, option.given, option.help);
  }
  options.text("--with", "HOST", request.other,
               "A second machine, which runs this at the same time: proves locks and datagrams "
               "between the two");
  options.number("--wait", "S", request.secondsToWait, 0, 3600,
                 "Seconds to wait for another machine; 60 with --with or on a network file system, "
                 "else 0");
  options.flag("--json", request.asJson, "One JSON object at the end");
  options.footer(
      "Each line is pass, warn or fail; a fix follows those that did not pass. The last line\n"
      "counts them.\n"
      "Exit status: 0; 1 when a check failed.");
}

ToolStatus examine(const DoctorRequest& request) {
  const auto station = stationOptions(wordsOf(request));
  if (!station) return toolProblem(eToolUsage, station.error().message);
  const DoctorFacts facts = factsOf(*station);
  DoctorReport report(request);
  const auto take = [&report](const Finding& finding) { report.take(finding); };
  std::vector<Check> checks = shareChecks(facts);
  for (auto add : {networkChecks, stationChecks}) {
    for (Check& check : add(facts)) checks.push_back(std::move(check));
  }
  std::optional<std::chrono::seconds> patience;
  if (request.secondsToWait) patience = std::chrono::seconds(*request.secondsToWait);
  // Last, since it waits for another machine.
  checks.push_back(meetingCheck(facts, request.other, patience));
  runChecks(checks, take);
  return report.end(facts.station.projectsDirectory);
}

}  // namespace

void addDoctorCommand(CommandLine& line) {
  line.add<DoctorRequest>(
      {"doctor", "Check the share, the network and the station's names", declareDoctor, examine});
}

// How the checks are run.

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
