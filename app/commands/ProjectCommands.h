#pragma once

#include "app/commands/Command.h"

/// "project create", "list", "enter" and "leave".
void addProjectCommands(CommandTable& table);
