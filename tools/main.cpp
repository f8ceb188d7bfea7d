#include <poll.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>

#include "station/base/Strings.h"
#include "tools/base/Tool.h"

using namespace korvel;

namespace korvel {

namespace {

void addCommands(CLI::App& tool, ToolStatus& status) {
  addHelpCommand(tool, status);  // first: the others take its way of showing help
  addDecodeCommand(tool, status);
  addMonitorCommand(tool, status);
  addRecordCommand(tool, status);
  addReplayCommand(tool, status);
  addSendCommand(tool, status);
  addLocksCommand(tool, status);
  addBreakCommand(tool, status);
  addUsersCommand(tool, status);
  addDoctorCommand(tool, status);
  addExplainCommand(tool, status);
  addMeshCommand(tool, status);
  addCompletionCommand(tool, status);
}

/// What is wrong with the command line, in one line.
ToolStatus explain(const CLI::App& tool, const CLI::ParseError& error) {
  const auto given = tool.get_subcommands();
  const std::string about = given.empty() ? "" : " " + given.front()->get_name();
  const std::string what =
      error.get_name() == "RequiredError" && given.empty() ? "a command is required" : error.what();
  return toolProblem(eToolUsage, shownText(what) + "; see kv-share help" + about);
}

ToolStatus run(int count, char** words) {
  CLI::App tool("Looks after the projects directory and the messages of Project Share.",
                "kv-share");
  ToolStatus status = eToolDone;
  tool.set_version_flag("--version", "kv-share " KV_VERSION " (Project Share)");
  tool.require_subcommand(1);
  addCommands(tool, status);
  if (count > 1 && words[1][0] != '-' && !commandNamed(tool, words[1])) return eToolUsage;
  try {
    tool.parse(count, words);
  } catch (const CLI::ParseError& error) {
    if (error.get_exit_code() != 0) return explain(tool, error);
    tool.exit(error);  // writes the help or the version that was asked for
  }
  return status;
}

/// Whether whoever read the output through a pipe has ended, as `head` does.
bool isReaderGone() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

/// The status once all output is written; a full disk is told.
ToolStatus withWrittenOutput(ToolStatus status) {
  errno = 0;
  if (std::cout.flush() || isReaderGone()) return status;
  const std::string why = errno != 0 ? std::string(" (") + std::strerror(errno) + ")" : "";
  return toolProblem(eToolFinding, "standard output takes no more" + why);
}

}  // namespace

}  // namespace korvel

int main(int count, char** words) {
  try {
    return withWrittenOutput(run(count, words));
  } catch (const std::exception& error) {
    return toolProblem(eToolFinding, std::string("stopped: ") + error.what());
  }
}
