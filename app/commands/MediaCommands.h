#pragma once

#include "app/commands/Command.h"

/// "media add", "remove" and "list".
void addMediaCommands(CommandTable& table);
