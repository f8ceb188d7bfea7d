#pragma once

#include <chrono>
#include <functional>
#include <string>

#include "tools/base/Tool.h"

namespace korvel {

/// How long a share may be silent before a command gives up, unless told otherwise.
inline constexpr int kShareSeconds = 20;

/// Adds `--time-limit S`, whose value is left in `seconds`.
void addTimeLimit(CLI::App& command, int& seconds);

/// Runs a look at a share in a process of its own, and gives it up when the share has been silent
/// for so long: "DIR did not answer within 20 s", a finding. (A mount whose server is gone keeps
/// even kill -9 waiting: such a process is left to itself.) No thread may have been started before.
ToolStatus lookAtShare(const std::string& directory, std::chrono::milliseconds limit,
                       const std::function<ToolStatus()>& look);

// Within such a look; elsewhere they do nothing.

/// The share has answered, and is asked for more.
void shareAnswered();

/// From here to the next shareAnswered() it is not the share that takes its time, but a reader of
/// the output, or someone who is asked.
void shareRests();

}  // namespace korvel
