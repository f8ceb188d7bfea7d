#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "station/base/Json.h"

namespace korvel {

/// The exit statuses of kv-share.
enum ToolStatus : int {
  eToolDone = 0,
  eToolFinding = 1,  ///< a problem was found, or the command could not do its work
  eToolUsage = 2,    ///< the command line is wrong
};

/// Writes one line about a problem to standard error, without control characters. Returns the
/// status, for `return`.
ToolStatus toolProblem(ToolStatus status, const std::string& message);

/// Opens a file, or standard input for "-" or nothing, and reads all of it; false when that fails.
bool readInput(const std::string& file, std::string& bytes);

/// Prints a value on one line of standard output. Control characters are escaped, so that no name
/// can move the cursor of a terminal.
void printJson(const JsonValue& value);

/// Prints a value for people: an array of objects as a table.
void printForPeople(const JsonValue& value);

/// Whether what is printed is coloured.
enum class Colours { eNone, eTerminal };

/// Colours where standard output is a terminal that has them and NO_COLOR is not set.
Colours coloursOfOutput();

// Escape sequences before a coloured text, and kPlain behind it.
inline constexpr const char* kPlain = "\033[0m";
inline constexpr const char* kBold = "\033[1m";
inline constexpr const char* kRed = "\033[31m";
inline constexpr const char* kGreen = "\033[32m";
inline constexpr const char* kYellow = "\033[33m";

/// The text between the colour and kPlain. Unchanged for eNone, and for the colour kPlain.
std::string coloured(const std::string& text, const char* colour, Colours colours);

/// Prints an array of objects as a table with a bold heading, each row in the colour that
/// `colourOf` has for its object.
void printTable(const JsonValue& rows, const char* (*colourOf)(const JsonValue& row));

/// A count with its noun: "1 message", "2 messages".
std::string countText(std::uint64_t count, const std::string& noun);

class CommandLine;

// Each adds its command.
void addDecodeCommand(CommandLine& line);
void addSendCommand(CommandLine& line);
void addCompletionCommand(CommandLine& line);
void addMonitorCommand(CommandLine& line);
void addRecordCommand(CommandLine& line);
void addReplayCommand(CommandLine& line);
void addLocksCommand(CommandLine& line);
void addBreakCommand(CommandLine& line);
void addUsersCommand(CommandLine& line);
void addWhoCommand(CommandLine& line);
void addHistoryCommand(CommandLine& line);
void addKeysCommand(CommandLine& line);
void addAuditCommand(CommandLine& line);
void addDoctorCommand(CommandLine& line);
void addExplainCommand(CommandLine& line);
void addMeshCommand(CommandLine& line);

/// The result of a check, in rising order.
enum class Verdict { ePass, eWarn, eFail };

/// One line of kv-share doctor. A warning and a failure have a fix, in one line; a pass has none.
struct Finding {
  Verdict verdict = Verdict::ePass;
  std::string group;  ///< "share", "network", "station" or "other machine"
  std::string check;  ///< the name of the check: "free space"
  std::string text;
  std::string fix;
};

using Findings = std::vector<Finding>;

// Findings of a check. runChecks() fills in the group and the name.
Finding pass(std::string text);
Finding warn(std::string text, std::string fix);
Finding fail(std::string text, std::string fix);

/// "pass", "warn" or "fail".
const char* verdictName(Verdict verdict);

/// The worst of them; a pass for none.
Verdict worstOf(const Findings& findings);

/// A finding as an object: group, check, verdict, text, and fix where it has one; and back.
JsonValue objectOf(const Finding& finding);
Finding findingOf(const JsonValue& object);

/// A finding as lines of a terminal without a line end: control characters become "?".
std::string linesOf(const Finding& finding, Colours colours = Colours::eNone);

/// Counts findings by verdict.
class FindingCounts {
 public:
  void add(const Finding& finding);

  /// "18 passed, 1 warning, 2 failed"; warnings and failures only where there are any.
  [[nodiscard]] std::string text() const;

 private:
  std::size_t counts_[3] = {};
};

}  // namespace korvel
