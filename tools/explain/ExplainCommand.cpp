#include <iostream>
#include <optional>
#include <sstream>

#include "station/base/Strings.h"
#include "station/base/TextMember.h"
#include "tools/base/ShareTimeout.h"
#include "tools/base/Tool.h"
#include "tools/base/ToolHost.h"
#include "tools/explain/Explanation.h"

namespace korvel {

namespace {

struct Request : ShareRequest {
  std::optional<std::string> host;  ///< of the station that is refused
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

/// A refusal of several lines, each without control characters.
ToolStatus refuse(const std::string& message) {
  std::istringstream lines(message);
  std::string line;
  std::getline(lines, line);
  toolProblem(eToolUsage, line);
  while (std::getline(lines, line)) std::cerr << shownText(line) << '\n';
  return eToolUsage;
}

ToolStatus explainPath(const Request& request) {
  const std::string path = directoryOf(request.path);
  std::vector<std::string> words{"--projects", projectsDirectoryOf(path)};
  if (request.host) words.insert(words.end(), {"--host", *request.host});
  const auto options = stationOptions(words);
  if (!options) return toolProblem(eToolUsage, options.error().message);
  const ToolHost host(options->projectsDirectory);
  const auto subject = subjectAt(path);
  if (!subject) return refuse(subject.error().message);
  const Explanation explanation = explain(*subject, options->host);
  if (request.asJson) {
    printJson(objectOf(*subject, explanation));
  } else {
    std::cout << sentenceOf(explanation) << '\n';
  }
  return explanation.isFree() ? eToolDone : eToolFinding;
}

}  // namespace

void addExplainCommand(CommandLine& line) {
  addShareCommand<Request>(
      line,
      {"explain", "Say why a project, room or edit cannot be taken or changed, and what to do",
       [](CommandOptions& options, Request& request) {
         options.word("PATH", request.path,
                      "A project's folder, a lock file, a room's or edit's file, or one made "
                      "of names: DIR/Feature/Sound");
         options.text("--host", "NAME", request.host,
                      "The host name of the station that is refused; this machine's by "
                      "default");
         options.flag("--json", request.asJson, "One JSON object instead of a sentence");
         options.footer(
             "Takes nothing. Exit status: 0 when nothing stands in the way; 1 when it does.");
       },
       explainPath});
}

}  // namespace korvel
