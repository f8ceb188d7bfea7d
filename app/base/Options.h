#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "app/base/OptionTable.h"
#include "station/base/Result.h"
#include "station/base/StationSettings.h"

namespace korvel {

/// Splits a line into words as a shell does. Blanks separate words; 'single quotes' keep everything
/// as it stands; "double quotes" keep everything but \" and \\; a backslash outside quotes takes
/// the next character as it stands; ~ at the beginning of a word, alone or before a /, is the
/// user's own folder; # at the beginning of a word starts a comment. A line without
/// words gives none. A quote that is never closed, and a backslash at the end, are eUsage errors
/// that name the column.
Result<std::vector<std::string>> splitCommandLine(std::string_view line);

/// The word as it must be typed for splitCommandLine to give it back: quoted where need be.
std::string quotedWord(std::string_view word);

/// One `key = value` line of a configuration file.
struct ConfigLine {
  int number = 0;  ///< counted from 1
  std::string key;
  std::string value;
};

/// The lines of a configuration file's text, in order.
///
///     # a comment
///     projects = /mnt/projects
///     user     = "Anna B."        # quotes keep blanks and # and are no part of the value
///
/// A line that is none of these is eUsage, with `file`, the line's number and what is wrong.
Result<std::vector<ConfigLine>> parseConfig(std::string_view text, const std::string& file);

/// Reads and parses a file; eNotFound when there is none. Refused: what is no plain file, is larger
/// than 1 MiB, or may be written by everybody.
Result<std::vector<ConfigLine>> readConfigFile(const std::string& file);

/// What a kv-station was started with.
struct Options {
  StationSettings station;
  std::string script;       ///< where commands come from: a file, "-", or empty for the terminal
  std::string audit;        ///< the file of the audit log, or empty for none
  std::string events;       ///< where events go: a file, "-", or empty for nowhere
  bool hasWindow = false;   ///< whether a window was asked for
  bool keepsGoing = false;  ///< whether a script goes on after a command that failed
  bool isVerbose = false;   ///< whether a person is shown what the log says of each message
};

/// An end before the station started: what to print (on standard output when `status` is 0, else on
/// standard error) and the exit status.
struct ProgramEnd {
  int status = 0;
  std::string text;
};

/// Reads the command line and the configuration file. --help and --version, and everything that
/// cannot be used, end the program: with status 2 and one line that says what, why and what to do.
std::variant<Options, ProgramEnd> readOptions(int argc, const char* const* argv);

/// Checks the values and puts them where they belong; eUsage for one that cannot be used.
Result<Options> validateOptions(const GivenOptions& given);

/// The folder of what this user's stations keep on this machine from one run to the next:
/// $XDG_STATE_HOME/korvel, else ~/.local/state/korvel. Empty where there is no home folder.
std::string stateFolder();

/// The folder of what was read of shares: $XDG_CACHE_HOME/korvel, else ~/.cache/korvel. Empty where
/// there is no home folder.
std::string cacheFolder();

}  // namespace korvel
