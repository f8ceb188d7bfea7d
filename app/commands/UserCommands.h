#pragma once

#include "app/commands/Command.h"

/// "users", "user add", "active", "whoami" and "request".
void addUserCommands(CommandTable& table);
