#pragma once

#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "tools/base/Tool.h"
#include "tools/capture/FaultInjector.h"
#include "tools/capture/MessageFilter.h"

namespace korvel {

/// What `kv-share replay` is asked for.
struct ReplayRequest {
  std::string file;
  double speed = 1;  ///< infinity for as fast as it goes
  double from = 0;   ///< seconds after the capture's first message
  double to = std::numeric_limits<double>::infinity();
  std::vector<std::string> sendTo;
  std::vector<std::string> onto;  ///< networks beyond this machine that are meant in earnest
  std::optional<int> port;        ///< the one that each message was sent to, unless given
  FilterWords filter;
  WayFaults faults;
  bool asJson = false;  ///< one object at the end rather than a line
};

/// Sends the messages of a capture again, at the pace at which they were heard. eToolUsage when the
/// file cannot be read at all; eToolFinding when it is cut, holds none, or some could not be sent.
ToolStatus replay(const ReplayRequest& request);

}  // namespace korvel
