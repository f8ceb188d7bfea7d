#pragma once

#include <functional>

#include "app/base/EventHistory.h"
#include "app/base/Waiter.h"
#include "app/commands/Command.h"
#include "station/edit/UnsavedEdits.h"

namespace korvel {

/// What the console's own commands work with; all must outlive the table.
struct ConsoleServices {
  Waiter& waiter;
  EventHistory& history;

  /// The cookie that a name means in the open project, or empty. Console thread.
  std::function<std::string(const std::string&)> cookieOf;

  /// Settles unsaved changes before the end, or says why the program does not end. Console thread.
  std::function<Result<void>(Leaving)> prepareToEnd = {};
};

/// "help", "state", "notifications", "wait", "sleep" and "quit".
void addConsoleCommands(CommandTable& table, const ConsoleServices& services);

}  // namespace korvel
