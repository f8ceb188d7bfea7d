#pragma once

#include "app/Command.h"

/// The "panel" commands and "say". They work on the current desktop.
void addPanelCommands(CommandTable& table);
