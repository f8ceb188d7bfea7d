#pragma once

#include "app/commands/Command.h"

namespace korvel {

/// The "panel" commands and "say". They work on the current desktop.
void addPanelCommands(CommandTable& table);

}  // namespace korvel
