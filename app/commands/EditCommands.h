#pragma once

#include "app/commands/Command.h"

namespace korvel {

/// The "edit" commands and "log create".
void addEditCommands(CommandTable& table);

}  // namespace korvel
