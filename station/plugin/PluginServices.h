#pragma once

#include "host/plugin/Shutdown.h"

namespace korvel {

/// Calls what was registered with Shutdown::addCallback, each callback once: the highest priority
/// first, equal priorities in the order of registration. What a callback registers meanwhile is
/// called as well; one that throws is logged, and the others go on. Host thread, before the
/// plug-ins are unloaded.
void runShutdownCallbacks(Shutdown::eExitType type);

}  // namespace korvel
