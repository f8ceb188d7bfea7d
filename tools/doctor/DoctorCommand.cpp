#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "app/EventWriter.h"
#include "app/Options.h"
#include "tools/Tool.h"
#include "tools/doctor/ShareChecks.h"

namespace {

constexpr const char* kPortKey = "shared_projects_udp_port";

struct Request {
  std::vector<std::string> station;  ///< kv-station's options, as they were given
  bool asJson = false;
};

/// What a kv-station would be started with here: its configuration file counts, too.
std::variant<Options, ProgramEnd> stationOptions(const Request& request) {
  std::vector<const char*> words{"kv-share doctor"};
  for (const std::string& word : request.station) words.push_back(word.c_str());
  return readOptions(static_cast<int>(words.size()), words.data());
}

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

std::string withoutProgram(const std::string& text) {
  const std::string program = "kv-station: ";
  return text.starts_with(program) ? text.substr(program.size()) : text;
}

ToolStatus examine(const Request& request) {
  const auto options = stationOptions(request);
  if (const auto* const end = std::get_if<ProgramEnd>(&options)) {
    return toolProblem(eToolUsage, withoutProgram(end->text));
  }
  const DoctorFacts facts = factsOf(std::get<Options>(options).station);
  DoctorReport report(request);
  const auto take = [&report](const Finding& finding) { report.take(finding); };
  runChecks(shareChecks(facts), take);
  return report.end(facts.station.projectsDirectory);
}

}  // namespace

void addDoctorCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command =
      tool.add_subcommand("doctor", "Check the share, the network and the station's names");
  const auto request = std::make_shared<Request>();
  const auto station = [&](const std::string& option, const char* name, const char* help) {
    command
        ->add_option_function<std::string>(
            option,
            [request, name](const std::string& value) {
              request->station.insert(request->station.end(), {name, value});
            },
            help)
        ->allow_extra_args(false);
  };
  station("DIR", "--projects", "The projects directory");
  command->get_option("DIR")->required();
  station("--user", "--user", "The station's user name; as kv-station has it by default");
  station("--host", "--host", "The station's host name; as kv-station has it by default");
  station("--port", "--port", "The stations' UDP port; 27015 by default");
  station("--send-to", "--send-to", "IPv4 addresses; all networks by default");
  station("--listen", "--listen", "The address that the station listens at; all by default");
  station("--config", "--config", "The station's configuration file, as for kv-station");
  command->add_flag("--json", request->asJson, "One JSON object at the end");
  command->footer(
      "Each line is pass, warn or fail; a fix follows those that did not pass. Exit status: 0; 1 "
      "when a check failed.");
  command->callback([=, &status] { status = examine(*request); });
}
