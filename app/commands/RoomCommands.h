#pragma once

#include "app/commands/Command.h"

namespace korvel {

/// "room create", "list", "enter" and "leave".
void addRoomCommands(CommandTable& table);

}  // namespace korvel
