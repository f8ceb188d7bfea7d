#pragma once

#include "app/commands/Command.h"

namespace korvel {

/// "media add", "remove" and "list".
void addMediaCommands(CommandTable& table);

}  // namespace korvel
