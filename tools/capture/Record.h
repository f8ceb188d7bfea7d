#pragma once

#include "tools/base/Tool.h"
#include "tools/capture/Listening.h"

namespace korvel {

/// What `kv-share record` is asked for.
struct RecordRequest {
  ListenRequest what;
  std::string file;  ///< "-" for standard output
  bool replacesFile = false;
  bool asJson = false;  ///< one object at the end, on standard output
};

/// Records messages, copies over other networks included. eToolFinding when the file took no more,
/// messages were missed, or fewer came than asked for.
ToolStatus record(const RecordRequest& request);

}  // namespace korvel
