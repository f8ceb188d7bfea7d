#pragma once

#include <cstdint>
#include <string>

#include "station/base/Json.h"

namespace CLI {
class App;
}

namespace korvel {

/// The exit statuses of kv-share.
enum ToolStatus : int {
  eToolDone = 0,
  eToolFinding = 1,  ///< something is wrong with what was looked at, or could not be done
  eToolUsage = 2,    ///< the command makes no sense as it stands
};

/// Writes one line that tells what went wrong to standard error, without control characters;
/// returns the status for `return`.
ToolStatus toolProblem(ToolStatus status, const std::string& message);

/// Opens a file, or standard input for "-" or nothing, and reads all of it; false when that fails.
bool readInput(const std::string& file, std::string& bytes);

/// Prints a value on one line of standard output, in which every control character is escaped: no
/// name moves the cursor of a terminal.
void printJson(const JsonValue& value);

/// Prints a value for people: an array of objects as a table.
void printForPeople(const JsonValue& value);

/// A time as "2026-05-31T12:00:00Z".
std::string textOfTime(std::int64_t secondsSince1970);

/// The command of this name; else says which may have been meant, and null.
const CLI::App* commandNamed(const CLI::App& tool, const std::string& word);

// Each adds its command; what it is called with stays valid as long as the program, and its result
// is left in `status`.
void addHelpCommand(CLI::App& tool, ToolStatus& status);
void addDecodeCommand(CLI::App& tool, ToolStatus& status);
void addSendCommand(CLI::App& tool, ToolStatus& status);
void addCompletionCommand(CLI::App& tool, ToolStatus& status);
void addMonitorCommand(CLI::App& tool, ToolStatus& status);
void addRecordCommand(CLI::App& tool, ToolStatus& status);
void addReplayCommand(CLI::App& tool, ToolStatus& status);
void addLocksCommand(CLI::App& tool, ToolStatus& status);
void addBreakCommand(CLI::App& tool, ToolStatus& status);
void addUsersCommand(CLI::App& tool, ToolStatus& status);
void addDoctorCommand(CLI::App& tool, ToolStatus& status);
void addExplainCommand(CLI::App& tool, ToolStatus& status);
void addMeshCommand(CLI::App& tool, ToolStatus& status);

}  // namespace korvel
