#pragma once

#include "app/Command.h"

/// "filter create", "change", "destroy" and "list".
void addFilterCommands(CommandTable& table);
