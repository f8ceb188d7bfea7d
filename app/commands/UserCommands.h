#pragma once

#include "app/Command.h"

/// "users", "user add", "active", "whoami" and "request".
void addUserCommands(CommandTable& table);
