#pragma once

#include "app/commands/Command.h"

namespace korvel {

/// "bin" and "rack", each with "create", "list", "show", "add", "remove" and "destroy".
void addContainerCommands(CommandTable& table);

}  // namespace korvel
