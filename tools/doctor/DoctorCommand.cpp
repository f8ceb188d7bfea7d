#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>
#include <optional>

#include "station/base/TextMember.h"
#include "tools/base/StationOptions.h"
#include "tools/base/Tool.h"
#include "tools/doctor/NetworkChecks.h"
#include "tools/doctor/PeerTest.h"
#include "tools/doctor/ShareChecks.h"
#include "tools/doctor/StationChecks.h"

namespace korvel {

namespace {

constexpr const char* kPortKey = "shared_projects_udp_port";

struct Request {
  std::vector<std::string> station;  ///< kv-station's options, as they were given
  std::string other;                 ///< the host to meet
  std::optional<int> secondsToWait;  ///< for another machine
  bool asJson = false;
};

DoctorFacts factsOf(const StationSettings& station) {
  DoctorFacts facts;
  facts.station = station;
  const auto port = station.config.find(kPortKey);
  if (port != station.config.end()) facts.port = std::stoi(port->second);
  return facts;
}

/// Shows findings as they come, for people, or all at once as one object.
class DoctorReport {
 public:
  explicit DoctorReport(const Request& request) : asJson_(request.asJson) {}

  void take(const Finding& finding) {
    worst_ = std::max(worst_, finding.verdict);
    if (asJson_) {
      checks_.append(objectOf(finding));
    } else {
      std::cout << linesOf(finding) << std::endl;
    }
  }

  ToolStatus end(const std::string& directory) {
    if (asJson_) {
      JsonValue all = JsonValue::object({textMember("directory", directory)});
      all.set("verdict", verdictName(worst_));
      all.set("checks", std::move(checks_));
      printJson(all);
    }
    return worst_ == Verdict::eFail ? eToolFinding : eToolDone;
  }

 private:
  bool asJson_;
  Verdict worst_ = Verdict::ePass;
  JsonValue checks_ = JsonValue::array();
};

ToolStatus examine(const Request& request) {
  const auto station = stationOptions(request.station);
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
  checks.push_back(meetingCheck(facts, request.other, patience));
  runChecks(checks, take);
  return report.end(facts.station.projectsDirectory);
}

}  // namespace

void addDoctorCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command =
      tool.add_subcommand("doctor", "Check the share, the network and the station's names");
  const auto request = std::make_shared<Request>();
  const auto station = [&](const std::string& option, const char* name, const char* value,
                           const char* help) {
    command
        ->add_option_function<std::string>(
            option,
            [request, name](const std::string& given) {
              request->station.insert(request->station.end(), {name, given});
            },
            help)
        ->type_name(value)
        ->allow_extra_args(false);
  };
  station("DIR", "--projects", "", "The projects directory");
  command->get_option("DIR")->required();
  station("--user", "--user", "NAME", "The station's user name; as kv-station has it by default");
  station("--host", "--host", "NAME", "The station's host name; as kv-station has it by default");
  station("--port", "--port", "N", "The stations' UDP port; 27015 by default");
  station("--send-to", "--send-to", "ADDR[,ADDR]", "IPv4 addresses; all networks by default");
  station("--listen", "--listen", "ADDR",
          "The address that the station listens at; all by default");
  station("--config", "--config", "FILE", "The station's configuration file, as for kv-station");
  command
      ->add_option("--with", request->other,
                   "A second machine, which runs this at the same time: proves locks and datagrams "
                   "between the two")
      ->type_name("HOST");
  command
      ->add_option("--wait", request->secondsToWait,
                   "Seconds to wait for another machine; 60 with --with or on a network file "
                   "system, else 0")
      ->type_name("S")
      ->check(CLI::Range(0, 3600));
  command->add_flag("--json", request->asJson, "One JSON object at the end");
  command->footer(
      "Each line is pass, warn or fail; a fix follows those that did not pass.\n"
      "Exit status: 0; 1 when a check failed.");
  command->callback([=, &status] { status = examine(*request); });
}

}  // namespace korvel
