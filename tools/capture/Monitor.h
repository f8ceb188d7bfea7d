#pragma once

#include "tools/base/Tool.h"
#include "tools/capture/Listening.h"
#include "tools/capture/SenderCounts.h"

namespace korvel {

/// What `kv-share monitor` is asked for.
struct MonitorRequest {
  ListenRequest what;
  bool asJson = false;
  bool onlyCounts = false;
  SenderCounts::Observer heard;  ///< told of every message that is meant; may be empty
};

/// Shows messages as they come, and counts at the end. eToolFinding when fewer came than asked for,
/// or nothing could be heard.
ToolStatus monitor(const MonitorRequest& request);

}  // namespace korvel
