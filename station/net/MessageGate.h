#pragma once

#include <functional>
#include <string>

#include "station/wire/MessageFields.h"

namespace korvel {

/// What becomes of a message before the plug-in sees it.
struct MessageGate {
  enum Action {
    eDeliver,
    eAwaitFile,  ///< held back until the file is there, for as long as the plug-in would wait
    eDrop,       ///< about nothing that there is: it would only take memory
  };

  Action action = eDeliver;
  std::string file;  ///< to be awaited

  /// Decides for a message that would be delivered now. Host thread.
  using Judge = std::function<MessageGate(const MessageFields& message)>;
};

}  // namespace korvel
