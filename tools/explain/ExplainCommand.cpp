#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "station/base/Strings.h"
#include "station/base/TextMember.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/StationOptions.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/explain/Explanation.h"

namespace korvel {

namespace {

struct Request {
  std::string path;
  std::vector<std::string> station;
  bool asJson = false;
  int timeLimit = kShareSeconds;
};

const char* kindOf(const Subject& subject) {
  constexpr const char* kKinds[] = {"project", "room", "edit", "log", "file"};
  return kKinds[static_cast<std::size_t>(subject.kind)];
}

JsonValue objectOf(const Subject& subject, const Explanation& explanation) {
  JsonValue object = JsonValue::object({textMember("path", subject.path),
                                        {"kind", kindOf(subject)},
                                        {"object", shownText(explanation.object)},
                                        {"state", explanation.state},
                                        {"by", shownText(explanation.by)},
                                        {"since", ""},
                                        {"where", shownText(explanation.where)},
                                        {"advice", shownText(explanation.advice)},
                                        {"text", sentenceOf(explanation)}});
  if (explanation.since != 0) object.set("since", textOfTime(explanation.since));
  return object;
}

ToolStatus explainPath(const Request& request) {
  const std::string path = directoryOf(request.path);
  std::vector<std::string> words = request.station;
  words.insert(words.end(), {"--projects", projectsDirectoryOf(path)});
  const auto options = stationOptions(words);
  if (!options) return toolProblem(eToolUsage, options.error().message);
  const ToolHost host(options->projectsDirectory);
  const auto subject = subjectAt(path);
  if (!subject) return toolProblem(eToolUsage, subject.error().message);
  const Explanation explanation = explain(*subject, options->host);
  if (request.asJson) {
    printJson(objectOf(*subject, explanation));
  } else {
    std::cout << sentenceOf(explanation) << '\n';
  }
  return explanation.isFree() ? eToolDone : eToolFinding;
}

}  // namespace

void addExplainCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command = tool.add_subcommand(
      "explain", "Say why a project, room or edit cannot be taken or changed, and what to do");
  const auto request = std::make_shared<Request>();
  command
      ->add_option(
          "PATH", request->path,
          "A project's folder, a lock file, a room's or edit's file, or one made of names: "
          "DIR/Feature/Sound")
      ->required();
  command
      ->add_option_function<std::string>(
          "--host",
          [request](const std::string& host) {
            request->station.insert(request->station.end(), {"--host", host});
          },
          "The host name of the station that is refused; this machine's by default")
      ->type_name("NAME");
  command->add_flag("--json", request->asJson, "One JSON object instead of a sentence");
  command->footer("Takes nothing. Exit status: 0 when nothing stands in the way; 1 when it does.");
  addTimeLimit(*command, request->timeLimit);
  command->callback([=, &status] {
    status = lookAtShare(directoryOf(request->path), std::chrono::seconds(request->timeLimit),
                         [&request] { return explainPath(*request); });
  });
}

}  // namespace korvel
