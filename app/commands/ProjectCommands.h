#pragma once

#include "app/commands/Command.h"

namespace korvel {

/// "project create", "list", "enter" and "leave".
void addProjectCommands(CommandTable& table);

}  // namespace korvel
