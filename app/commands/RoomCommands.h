#pragma once

#include "app/commands/Command.h"

/// "room create", "list", "enter" and "leave".
void addRoomCommands(CommandTable& table);
