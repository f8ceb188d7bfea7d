#pragma once

#include "app/commands/Command.h"

namespace korvel {

/// "users", "user add", "active", "whoami" and "request".
void addUserCommands(CommandTable& table);

}  // namespace korvel
