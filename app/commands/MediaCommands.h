#pragma once

#include "app/Command.h"

/// "media add", "remove" and "list".
void addMediaCommands(CommandTable& table);
