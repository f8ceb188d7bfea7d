#include "app/base/Options.h"

#include <CLI/CLI.hpp>
#include <cstdlib>
#include <filesystem>

#include "station/base/Rendering.h"

namespace korvel {

namespace {

constexpr const char* kProgram = "kv-station";

constexpr const char* kDescription =
    "usage: kv-station --projects DIR [OPTION...]\n\n"
    "One workstation that shares projects with others over a common folder.\n"
    "Commands are read from the terminal or a script; \"help\" lists them.\n\n";

constexpr const char* kHelpOption = "print this text and exit";
constexpr const char* kVersionOption = "print the program's version and exit";

constexpr const char* kFooter =
    "\n\nA NAME may stand wherever a cookie may. Exit status: 0 after quit or the end of\n"
    "the input, 1 when a command of a script failed, 2 when the station could not be\n"
    "started.";

using Flags = std::map<std::string, bool>;

void declare(CLI::App& app, std::map<std::string, std::vector<std::string>>& values, Flags& flags) {
  for (const OptionSpec& spec : optionTable()) {
    app.add_option("--" + std::string(spec.name), values[spec.name], spec.help)
        ->type_name(spec.value)
        ->allow_extra_args(false);
  }
  for (const FlagSpec& flag : flagTable()) {
    app.add_flag("--" + std::string(flag.name), flags[flag.name], flag.help);
  }
  app.set_help_flag("-h,--help", kHelpOption);
  app.set_version_flag("--version", std::string(kProgram) + " " KV_VERSION " (Project Share)",
                       kVersionOption);
}

std::string helpText() {
  JsonValue rows = JsonValue::array();
  const auto add = [&rows](const std::string& option, const std::string& help) {
    rows.append(JsonValue::object({{"option", "  " + option}, {"help", help}}));
  };
  for (const OptionSpec& spec : optionTable()) {
    add("--" + std::string(spec.name) + " " + spec.value, spec.help);
  }
  for (const FlagSpec& flag : flagTable()) add("--" + std::string(flag.name), flag.help);
  add("-h, --help", kHelpOption);
  add("--version", kVersionOption);
  return kDescription + renderWrapped(rows) + kFooter;
}

ProgramEnd usageError(const std::string& what) { return {2, std::string(kProgram) + ": " + what}; }

/// The folder that a variable names, else this one of the user's home; empty where there is none.
std::string userFolder(const char* variable, const char* below) {
  const char* const named = std::getenv(variable);
  const char* const home = std::getenv("HOME");
  if (named && *named == '/') return named;
  return home && *home == '/' ? std::string(home) + below : std::string();
}

/// $XDG_STATE_HOME/korvel/recovery.
std::string recoveryFolder() {
  const std::string folder = userFolder("XDG_STATE_HOME", "/.local/state");
  return folder.empty() ? folder : folder + "/korvel/recovery";
}

/// $XDG_CACHE_HOME/korvel.
std::string cacheFolder() {
  const std::string folder = userFolder("XDG_CACHE_HOME", "/.cache");
  return folder.empty() ? folder : folder + "/korvel";
}

/// $XDG_CONFIG_HOME/korvel/station.conf when there is one; else empty.
std::string defaultConfigFile() {
  const std::string folder = userFolder("XDG_CONFIG_HOME", "/.config");
  if (folder.empty()) return {};
  const std::string file = folder + "/korvel/station.conf";
  std::error_code problem;
  return std::filesystem::exists(file, problem) ? file : std::string();
}

Result<void> addConfigFile(GivenOptions& given) {
  const auto named = given.find("config");
  const std::string file = named == given.end() ? defaultConfigFile() : named->second.back().text;
  if (file.empty() && named == given.end()) return {};
  return addFromConfigFile(file, given);
}

std::variant<Options, ProgramEnd> settled(GivenOptions given, Flags& flags) {
  if (auto added = addConfigFile(given); !added) return usageError(added.error().message);
  auto options = validateOptions(given);
  if (!options) return usageError(options.error().message);
  options->keepsGoing = flags["keep-going"];
  options->hasWindow = flags["gui"];
  options->station.recovery = recoveryFolder();
  options->station.cache = cacheFolder();
  return *options;
}

ProgramEnd parseEnd(const CLI::ParseError& problem) {
  if (problem.get_name() == "CallForVersion") return {0, problem.what()};
  if (problem.get_exit_code() == 0) return {0, helpText()};
  return usageError(std::string(problem.what()) + "; \"" + kProgram +
                    " --help\" lists the options.");
}

}  // namespace

std::variant<Options, ProgramEnd> readOptions(int argc, const char* const* argv) {
  std::map<std::string, std::vector<std::string>> values;
  Flags flags;
  CLI::App app("", kProgram);
  declare(app, values, flags);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& problem) {
    return parseEnd(problem);
  }
  GivenOptions given;
  for (const auto& [name, texts] : values) {
    for (const std::string& text : texts) given[name].push_back({text, "--" + name});
  }
  return settled(std::move(given), flags);
}

}  // namespace korvel
