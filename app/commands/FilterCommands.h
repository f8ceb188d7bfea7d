#pragma once

#include "app/commands/Command.h"

namespace korvel {

/// "filter create", "change", "destroy" and "list".
void addFilterCommands(CommandTable& table);

}  // namespace korvel
