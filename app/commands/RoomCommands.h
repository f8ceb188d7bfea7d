#pragma once

#include "app/Command.h"

/// "room create", "list", "enter" and "leave".
void addRoomCommands(CommandTable& table);
