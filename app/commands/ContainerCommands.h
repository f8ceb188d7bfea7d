#pragma once

#include "app/commands/Command.h"

/// "bin" and "rack", each with "create", "list", "show", "add", "remove" and "destroy".
void addContainerCommands(CommandTable& table);
