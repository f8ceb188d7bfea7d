#pragma once

#include "app/commands/Command.h"

/// The "panel" commands and "say". They work on the current desktop.
void addPanelCommands(CommandTable& table);
