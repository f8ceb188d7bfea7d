#pragma once

#include "app/Command.h"

/// "project create", "list", "enter" and "leave".
void addProjectCommands(CommandTable& table);
