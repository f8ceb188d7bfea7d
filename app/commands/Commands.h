#pragma once

#include <functional>

#include "app/base/EventSinks.h"
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

/// All commands, family by family.
void addCommands(CommandTable& table, const ConsoleServices& services);

/// "help", "state", "notifications", "wait", "sleep" and "quit".
void addConsoleCommands(CommandTable& table, const ConsoleServices& services);

void addProjectCommands(CommandTable& table);
void addRoomCommands(CommandTable& table);

/// The "edit" commands and "log create".
void addEditCommands(CommandTable& table);

/// Saving, versions, copies and recovery of unsaved changes.
void addKeepCommands(CommandTable& table);

/// The "trash" commands, "undo" and "redo".
void addTrashCommands(CommandTable& table);

/// The "bin" and "rack" commands.
void addContainerCommands(CommandTable& table);
void addFilterCommands(CommandTable& table);
void addMediaCommands(CommandTable& table);

/// The "panel" commands, "say", the conversation, and asking.
void addTalkCommands(CommandTable& table);

/// Who is here, who this station is, and requests to other machines.
void addUserCommands(CommandTable& table);

/// The answer of a command that has nothing to say, and of one that shows a cookie.
Result<JsonValue> answer(const Result<void>& done);
Result<JsonValue> answer(const Result<Cookie>& made);

/// What a person is told after a change that gives nothing to show.
std::function<std::string(Station&, const Arguments&, const JsonValue&)> said(
    const std::string& words);

/// A command on the edit or log that its first word names.
using EditAction =
    std::function<Result<JsonValue>(Station&, const Cookie& edit, const Arguments& arguments)>;
std::function<Result<JsonValue>(Station&, const Arguments&)> onEdit(EditAction action);

/// Reads --save and --discard and removes them from the words; eUsage for both together.
Result<Leaving> takeLeaving(Arguments& words);

/// The choices of a person where leaving a project is refused because of unsaved changes.
std::vector<Choice> leavingChoices();

}  // namespace korvel
