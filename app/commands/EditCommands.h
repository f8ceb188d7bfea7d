#pragma once

#include "app/commands/Command.h"

/// The "edit" commands and "log create".
void addEditCommands(CommandTable& table);
