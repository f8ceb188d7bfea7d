#pragma once

#include <map>
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

/// New values by key: several for a key that may be repeated, none for one that is to be left out.
using ConfigChanges = std::map<std::string, std::vector<std::string>>;

/// The text of a configuration file with these values in place of its own. Lines that say so
/// already, those of other keys, comments and what cannot be read stay byte by byte; a new key is a
/// line at the end. eUsage for a value that no line can hold.
Result<std::string> changedConfig(std::string_view text, const ConfigChanges& changes);

/// Changes a configuration file in one step: on a full disk or after a kill it is whole, as it was
/// or as it is to be. Makes it, with its folder, where it is missing; a symbolic link stays one.
Result<void> changeConfigFile(const std::string& file, const ConfigChanges& changes);

/// What a kv-station was started with.
struct Options {
  StationSettings station;
  std::string script;       ///< where commands come from: a file, "-", or empty for the terminal
  std::string audit;        ///< the file of the audit log, or empty for none
  std::string events;       ///< where events go: a file, "-", or empty for nowhere
  bool hasWindow = false;   ///< whether a window was asked for
  bool keepsGoing = false;  ///< whether a script goes on after a command that failed
  bool isVerbose = false;   ///< whether a person is shown what the log says of each message
  std::string configFile;   ///< the configuration file, there or not; empty without a home folder
  GivenOptions given;       ///< what all this was made of
};

/// An end before the station started: what to print (on standard output when `status` is 0, else on
/// standard error) and the exit status.
struct ProgramEnd {
  int status = 0;
  std::string text;
};

/// Reads the command line and the configuration file. --help and --version, and everything that
/// cannot be used, end the program: with status 2 and one line that says what, why and what to do.
/// With a window the projects directory may be missing: it is asked for there.
std::variant<Options, ProgramEnd> readOptions(int argc, const char* const* argv);

/// Whether a person can be asked for the projects directory where no option gives it.
enum class Asking { eNobody, ePerson };

/// Checks the values and puts them where they belong; eUsage for one that cannot be used. The
/// projects directory stays empty where a person is to be asked for it.
Result<Options> validateOptions(const GivenOptions& given, Asking asking = Asking::eNobody);

/// Whether nobody chose the host name: it was not given, or is the user's name. It then changes
/// with the user's name, since messages to a user arrive where both are the same.
bool hostFollowsUser(const Options& options);

/// The options with the projects directory and the user's name that a person gave at the window;
/// the host is called as the user is unless it was given a name: others address a station by it.
Result<Options> withAnswers(const Options& options, const std::string& projects,
                            const std::string& user);

/// The folder of what this user's stations keep on this machine from one run to the next:
/// $XDG_STATE_HOME/korvel, else ~/.local/state/korvel. Empty where there is no home folder.
std::string stateFolder();

/// The folder of what was read of shares: $XDG_CACHE_HOME/korvel, else ~/.cache/korvel. Empty where
/// there is no home folder.
std::string cacheFolder();

}  // namespace korvel
