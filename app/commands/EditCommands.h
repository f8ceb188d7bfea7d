#pragma once

#include "app/Command.h"

/// The "edit" commands and "log create".
void addEditCommands(CommandTable& table);
