#pragma once

#include "app/commands/Command.h"
#include "station/edit/UnsavedEdits.h"

namespace korvel {

/// What keeps people's work: saving, versions, copies and what was not saved.
void addKeepCommands(CommandTable& table);

/// What becomes of unsaved changes by the words "--save" and "--discard", which are taken out of
/// the others; both are eUsage.
Result<Leaving> takeLeaving(Arguments& words);

/// What a person is offered where a project would be left with unsaved changes.
std::vector<Choice> leavingChoices();

}  // namespace korvel
