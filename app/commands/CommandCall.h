#pragma once

#include <optional>
#include <string>

#include "app/commands/Command.h"

namespace korvel {

/// A line of the console, taken apart: the command that it names and the words after the name.
struct CommandCall {
  const Command* command = nullptr;  ///< null for a line without words, or without a known name
  Arguments arguments;
  std::optional<Error> problem;  ///< why it cannot be run; eUsage

  [[nodiscard]] bool isEmpty() const { return !command && !problem; }
};

/// Takes a line apart and checks the number of its words. The table must outlive the call. Any
/// thread.
CommandCall readCall(const CommandTable& commands, const std::string& line);

/// Runs a call without a problem, in the place that its command asks for. What the command throws
/// is a failure like any other.
Result<JsonValue> runCall(Station& station, const CommandCall& call);

/// A list of objects with each "cookie" cut to as many letters as tell it from the others, eight at
/// least: what people read and type. Anything else stays as it is.
JsonValue withShortCookies(JsonValue list);

/// What people are shown of the result of a call that succeeded; in the same place as runCall.
std::string shownResult(Station& station, const CommandCall& call, const JsonValue& result);

}  // namespace korvel
