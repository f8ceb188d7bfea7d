#pragma once

#include "app/commands/Command.h"

/// "filter create", "change", "destroy" and "list".
void addFilterCommands(CommandTable& table);
