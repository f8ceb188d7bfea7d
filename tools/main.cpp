#include <poll.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <exception>
#include <iostream>

#include "tools/base/CommandLine.h"

using namespace korvel;

namespace {

/// Whether the program that reads the output through a pipe has ended, as `head` does. The kernel
/// reports POLLERR at the writing end of a pipe without a reader.
bool isReaderGone() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return ::poll(&output, 1, 0) == 1 && (output.revents & POLLERR) != 0;
}

/// The status once all output is written; a full disk is told.
ToolStatus withWrittenOutput(ToolStatus status) {
  // The stream tells only that a write failed. The reason is what the system left in errno.
  errno = 0;
  if (std::cout.flush() || isReaderGone()) return status;
  const std::string why = errno != 0 ? std::string(" (") + std::strerror(errno) + ")" : "";
  return toolProblem(eToolFinding, "standard output takes no more" + why);
}

ToolStatus run(int count, char** words) {
  CommandLine line(KV_VERSION);
  // In the order in which help lists them.
  for (const auto add :
       {addDecodeCommand, addMonitorCommand, addRecordCommand, addReplayCommand, addSendCommand,
        addLocksCommand, addBreakCommand, addUsersCommand, addWhoCommand, addHistoryCommand,
        addKeysCommand, addAuditCommand, addDoctorCommand, addExplainCommand, addMeshCommand,
        addCompletionCommand}) {
    add(line);
  }
  return line.run(count, words);
}

}  // namespace

int main(int count, char** words) {
  try {
    return withWrittenOutput(run(count, words));
  } catch (const std::exception& error) {
    return toolProblem(eToolFinding, std::string("stopped: ") + error.what());
  }
}
