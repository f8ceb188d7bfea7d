#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <iostream>

#include "app/NearestName.h"
#include "station/base/Strings.h"
#include "tools/Tool.h"

namespace {

constexpr const char* kVersion = "14.5.0.0";

void addCommands(CLI::App& tool, ToolStatus& status) {
  addDecodeCommand(tool, status);
  addSendCommand(tool, status);
  addLocksCommand(tool, status);
  addBreakCommand(tool, status);
  addUsersCommand(tool, status);
  addCompletionCommand(tool, status);
}

/// Whether the first word, if it should be a command, is one; else says which may have been meant.
bool knowsCommand(const CLI::App& tool, int count, char** words) {
  if (count < 2 || words[1][0] == '-') return true;
  const std::string word = words[1];
  std::vector<std::string> names;
  for (const auto* const command : tool.get_subcommands([](const CLI::App*) { return true; })) {
    names.push_back(command->get_name());
  }
  if (std::find(names.begin(), names.end(), word) != names.end()) return true;
  const std::string near = nearestName(word, names);
  toolProblem(eToolUsage,
              "there is no command \"" + shownText(word) + "\"; " +
                  (near.empty() ? "see kv-share --help" : "did you mean " + near + "?"));
  return false;
}

int run(int count, char** words) {
  CLI::App tool("Looks after the projects directory and the messages of Project Share.",
                "kv-share");
  ToolStatus status = eToolDone;
  tool.set_version_flag("--version", std::string("kv-share ") + kVersion);
  tool.require_subcommand(1);
  addCommands(tool, status);
  if (!knowsCommand(tool, count, words)) return eToolUsage;
  try {
    tool.parse(count, words);
  } catch (const CLI::ParseError& error) {
    return tool.exit(error) == 0 ? eToolDone : eToolUsage;
  }
  return status;
}

}  // namespace

int main(int count, char** words) {
  try {
    return run(count, words);
  } catch (const std::exception& error) {
    return toolProblem(eToolFinding, std::string("stopped: ") + error.what());
  }
}
