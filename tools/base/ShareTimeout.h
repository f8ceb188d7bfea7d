#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "tools/base/CommandLine.h"
#include "tools/base/ToolHost.h"

namespace korvel {

/// How long a share may be silent before a command gives up, unless told otherwise.
inline constexpr int kShareSeconds = 20;

/// Runs a look at a share in a process of its own, and gives it up when the share has been silent
/// for so long: "DIR did not answer within 20 s", a finding. (A mount whose server is gone keeps
/// even kill -9 waiting: such a process is left to itself.) No thread may have been started before.
ToolStatus lookAtShare(const std::string& directory, std::chrono::milliseconds limit,
                       const std::function<ToolStatus()>& look);

/// What every command that looks at a share is asked for.
struct ShareRequest {
  std::string path;  ///< the word DIR or PATH, as it was given
  bool asJson = false;
  int timeLimit = kShareSeconds;
};

/// Declares `--time-limit S`.
void declareTimeLimit(CommandOptions& options, ShareRequest& request);

/// Adds a command that looks at a share: with --time-limit, and within lookAtShare(). Its Request
/// is a ShareRequest.
template <typename Request>
void addShareCommand(CommandLine& line, Command<Request> command) {
  command.declare = [declare = std::move(command.declare)](CommandOptions& options,
                                                           Request& request) {
    declare(options, request);
    declareTimeLimit(options, request);
  };
  command.run = [look = std::move(command.run)](const Request& request) {
    return lookAtShare(directoryOf(request.path), std::chrono::seconds(request.timeLimit),
                       [&] { return look(request); });
  };
  line.add(std::move(command));
}

// Within such a look; elsewhere they do nothing.

/// The share has answered, and is asked for more.
void shareAnswered();

/// From here to the next shareAnswered() it is not the share that takes its time, but a reader of
/// the output, or someone who is asked.
void shareRests();

}  // namespace korvel
