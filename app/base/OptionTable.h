#pragma once

#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "station/base/Result.h"

namespace korvel {

/// One option of kv-station that takes a value.
struct OptionSpec {
  const char* name;   ///< "projects": --projects on the command line, the key in a file
  const char* value;  ///< how help shows the value: "DIR"
  const char* help;
  bool isInFile;  ///< whether a configuration file may hold it
};

/// Every such option, in the order in which help shows them.
std::span<const OptionSpec> optionTable();

/// One option of kv-station that takes none.
struct FlagSpec {
  const char* name;
  const char* help;
};

/// Every such option but --help and --version.
std::span<const FlagSpec> flagTable();

/// The option of this name, or null.
const OptionSpec* findOption(std::string_view name);

/// A value and where it was given: "--port", or "station.conf:3: port".
struct GivenValue {
  std::string text;
  std::string where;
};

/// Values by option; those of "set" are KEY=VALUE.
using GivenOptions = std::map<std::string, std::vector<GivenValue>>;

/// The machine's host name; "localhost" where it has none.
std::string machineHostName();

/// The folder of the plug-in, the window and the icons: beside the program, or where they are
/// installed. Found by the program's own path, so that the current folder does not matter.
std::string libraryFolder();

/// Adds what a configuration file says for options that the command line does not give. A key that
/// is no option is a host configuration value, unless it looks like a misspelt option; that, and an
/// option that no file may hold, are eUsage with file and line. For host configuration values that
/// are given twice the command line wins as well.
Result<void> addFromConfigFile(const std::string& file, GivenOptions& given);

}  // namespace korvel
