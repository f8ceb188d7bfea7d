#include "tools/base/CommandLine.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <map>

#include "app/base/OptionTable.h"
#include "station/base/Strings.h"

// No other file includes the library for command lines: its headers take longer to compile than any
// command.

namespace korvel {

namespace {

/// Shows an option as "--port N", and its default behind its description.
class HelpText : public CLI::Formatter {
 public:
  HelpText() {
    column_width(26);
    label("Subcommands", "Commands");
    label("Positionals", "Words");
  }

  std::string make_option_opts(const CLI::Option* option) const override {
    const bool isWord = option->get_lnames().empty() && option->get_snames().empty();
    if (isWord || option->get_type_size() == 0) return {};
    const std::string type = option->get_type_name();
    // The library appends the conditions of its validators behind a colon.
    return " " + type.substr(0, type.find(':'));
  }

  std::string make_option_desc(const CLI::Option* option) const override {
    const std::string otherwise = option->get_default_str();
    if (otherwise.empty()) return option->get_description();
    return option->get_description() + " (" + otherwise + " unless given)";
  }

  std::string make_usage(const CLI::App* app, std::string name) const override {
    std::string usage = Formatter::make_usage(app, std::move(name));
    const auto found = usage.find("SUBCOMMAND");
    return found == usage.npos ? usage : usage.replace(found, 10, "COMMAND ...");
  }
};

/// Refuses "nan", which lies within every range.
const CLI::Validator kIsNumber(
    [](std::string& word) {
      return std::string(std::isnan(std::strtod(word.c_str(), nullptr)) ? "must be a number" : "");
    },
    "");

template <typename Number>
void addNumber(CLI::App& command, const char* name, const char* value, Number& into,
               const CLI::Range& range, const std::string& help) {
  auto* const option = command.add_option(name, into, help)->check(range)->check(kIsNumber);
  option->type_name(value);
  // Zero stands for "not given". So do the defaults of fractions, one of which is infinite: help
  // shows neither.
  if constexpr (std::is_integral_v<Number>) {
    if (into != 0) option->capture_default_str();
  }
}

/// What is wrong with the command line, in one line.
ToolStatus refuse(const CLI::App& tool, const CLI::ParseError& error) {
  const auto given = tool.get_subcommands();
  const std::string about = given.empty() ? "" : " " + given.front()->get_name();
  const std::string what =
      error.get_name() == "RequiredError" && given.empty() ? "a command is required" : error.what();
  return toolProblem(eToolUsage, shownText(what) + "; see kv-share help" + about);
}

}  // namespace

void CommandOptions::word(const char* name, std::string& into, const std::string& help) {
  command_.add_option(name, into, help)->required();
}

void CommandOptions::optionalWord(const char* name, std::string& into, const std::string& help) {
  command_.add_option(name, into, help);
}

void CommandOptions::offer(const std::vector<std::string>& words) {
  offered_.insert(offered_.end(), words.begin(), words.end());
}

void CommandOptions::flag(const char* name, bool& into, const std::string& help) {
  command_.add_flag(name, into, help);
}

void CommandOptions::text(const char* name, const char* value, std::string& into,
                          const std::string& help) {
  command_.add_option(name, into, help)->type_name(value);
}

void CommandOptions::text(const char* name, const char* value, std::optional<std::string>& into,
                          const std::string& help) {
  command_.add_option(name, into, help)->type_name(value);
}

void CommandOptions::list(const char* name, const char* value, std::vector<std::string>& into,
                          const std::string& help) {
  // Without allow_extra_args(false) a list would swallow the words behind its value: `--send-to
  // ADDR FILE` would leave no FILE.
  command_.add_option(name, into, help)->delimiter(',')->allow_extra_args(false)->type_name(value);
}

void CommandOptions::number(const char* name, const char* value, int& into, int from, int to,
                            const std::string& help) {
  addNumber(command_, name, value, into, CLI::Range(from, to), help);
}

void CommandOptions::number(const char* name, const char* value, std::optional<int>& into, int from,
                            int to, const std::string& help) {
  addNumber(command_, name, value, into, CLI::Range(from, to), help);
}

void CommandOptions::number(const char* name, const char* value, double& into, double from,
                            double to, const std::string& help) {
  addNumber(command_, name, value, into, CLI::Range(from, to), help);
}

void CommandOptions::number(const char* name, const char* value, std::uint64_t& into,
                            std::uint64_t from, const std::string& help) {
  addNumber(command_, name, value, into,
            CLI::Range(from, std::numeric_limits<std::uint64_t>::max()), help);
}

void CommandOptions::value(const char* name, const char* value,
                           std::function<std::string(const std::string&)> take,
                           const std::string& help) {
  const auto read = [name, take = std::move(take)](const std::string& word) {
    const std::string problem = take(word);
    if (!problem.empty()) throw CLI::ValidationError(name, problem);
  };
  command_.add_option_function<std::string>(name, read, help)->type_name(value);
}

void CommandOptions::footer(const std::string& text) { command_.footer(text); }

struct CommandLine::Parts {
  CLI::App app{"Looks after the projects directory and the messages of Project Share.", "kv-share"};
  std::map<std::string, std::vector<std::string>> offered;
  ToolStatus status = eToolDone;
};

CommandLine::CommandLine(const char* version) : parts_(std::make_unique<Parts>()) {
  parts_->app.set_version_flag("--version",
                               std::string("kv-share ") + version + " (Project Share)");
  parts_->app.require_subcommand(1);
  parts_->app.formatter(std::make_shared<HelpText>());
  add<std::string>({"help", "Show how a command is called",
                    [](CommandOptions& options, std::string& about) {
                      options.optionalWord("COMMAND", about, "The command; all of them by default");
                    },
                    [this](const std::string& about) { return showHelp(about); }});
}

CommandLine::~CommandLine() = default;

CommandOptions CommandLine::begin(const char* name, const char* about) {
  return {*parts_->app.add_subcommand(name, about), parts_->offered[name]};
}

void CommandLine::end(const char* name, std::function<ToolStatus()> run) {
  parts_->app.get_subcommand(name)->callback(
      [this, run = std::move(run)] { parts_->status = run(); });
}

ToolStatus CommandLine::run(int count, const char* const* words) {
  // Asked before the library reads the line: its own refusal does not suggest the nearest command.
  if (count > 1 && words[1][0] != '-' && !commandNamed(words[1])) return eToolUsage;
  try {
    parts_->app.parse(count, words);
  } catch (const CLI::ParseError& error) {
    // The library leaves for --help and --version by an exception, too; its exit code is 0.
    if (error.get_exit_code() != 0) return refuse(parts_->app, error);
    parts_->app.exit(error);  // writes the help or the version that was asked for
  }
  return parts_->status;
}

std::vector<std::string> CommandLine::commandNames() const {
  std::vector<std::string> names;
  for (const auto* const command : parts_->app.get_subcommands([](CLI::App*) { return true; })) {
    names.push_back(command->get_name());
  }
  return names;
}

std::vector<std::string> CommandLine::wordsAfter(const std::string& command) const {
  std::vector<std::string> words;
  for (const auto* const option : parts_->app.get_subcommand(command)->get_options()) {
    if (!option->get_lnames().empty()) words.push_back("--" + option->get_lnames().front());
  }
  const auto& offered = parts_->offered.at(command);
  words.insert(words.end(), offered.begin(), offered.end());
  if (command != "help") return words;
  const auto commands = commandNames();
  words.insert(words.end(), commands.begin(), commands.end());
  return words;
}

/// The command of this name. Otherwise null, and a line on standard error suggests the nearest
/// name.
const CLI::App* CommandLine::commandNamed(const std::string& word) const {
  const auto names = commandNames();
  for (const std::string& name : names) {
    if (name == word) return parts_->app.get_subcommand(name);
  }
  const std::string near = nearestName(word, names);
  toolProblem(eToolUsage, "there is no command " + inQuotes(word) + "; " +
                              (near.empty() ? "see kv-share help" : "did you mean " + near + "?"));
  return nullptr;
}

ToolStatus CommandLine::showHelp(const std::string& word) const {
  const CLI::App& tool = parts_->app;
  const CLI::App* const about = word.empty() ? &tool : commandNamed(word);
  if (!about) return eToolUsage;
  const std::string name = about == &tool ? tool.get_name() : tool.get_name() + " " + word;
  std::cout << tool.get_formatter()->make_help(about, name, CLI::AppFormatMode::Normal);
  return eToolDone;
}

// The shells' completion.

namespace {

void writeCases(const CommandLine& tool, const char* variable) {
  for (const std::string& command : tool.commandNames()) {
    std::cout << "    " << command << ") " << variable << "=\""
              << joined(tool.wordsAfter(command), " ") << "\" ;;\n";
  }
}

void writeShareForBash(const CommandLine& tool) {
  std::cout << "_kv_share() {\n"
               "  local word=${COMP_WORDS[COMP_CWORD]} words\n"
               "  case ${COMP_CWORD}:${COMP_WORDS[1]} in\n"
               "    1:*) words=\""
            << joined(tool.commandNames(), " ") << " --help --version\" ;;\n"
            << "    *) case ${COMP_WORDS[1]} in\n";
  writeCases(tool, "words");
  std::cout << "    esac ;;\n"
               "  esac\n"
               "  COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
               "}\n"
               "complete -o default -F _kv_share kv-share\n";
}

/// Every option of kv-station.
std::string stationWords() {
  std::vector<std::string> words;
  for (const OptionSpec& option : optionTable()) words.push_back(std::string("--") + option.name);
  for (const FlagSpec& flag : flagTable()) words.push_back(std::string("--") + flag.name);
  words.insert(words.end(), {"--help", "--version"});
  return joined(words, " ");
}

/// The options whose value is `value`, or those with any other than the three that are known, as a
/// pattern of the shell's case: "--plugin|--script".
std::string stationPattern(const std::string& value) {
  std::string pattern;
  for (const OptionSpec& option : optionTable()) {
    const std::string kind = option.value;
    const bool isKnown = kind == "DIR" || kind == "FILE" || kind == "on|off";
    if (value.empty() ? isKnown : kind != value) continue;
    pattern += (pattern.empty() ? "--" : "|--") + std::string(option.name);
  }
  return pattern;
}

// `-o default`: where the function offers no word, the shell offers files.
void writeStationForBash() {
  std::cout << "_kv_station() {\n"
               "  local word=${COMP_WORDS[COMP_CWORD]}\n"
               "  COMPREPLY=()\n"
               "  case ${COMP_WORDS[COMP_CWORD-1]} in\n"
            << "    " << stationPattern("DIR") << ") compopt -o filenames 2>/dev/null\n"
            << "      mapfile -t COMPREPLY < <(compgen -d -- \"$word\") ;;\n"
            << "    " << stationPattern("on|off")
            << ") COMPREPLY=($(compgen -W \"on off\" -- \"$word\")) ;;\n"
            << "    " << stationPattern("FILE") << "|" << stationPattern({}) << ") ;;\n"
            << "    *) COMPREPLY=($(compgen -W \"" << stationWords() << "\" -- \"$word\")) ;;\n"
            << "  esac\n"
               "}\n"
               "complete -o default -F _kv_station kv-station\n";
}

void writeBash(const CommandLine& tool) {
  std::cout << "# Completion of kv-share and kv-station for bash: source <(kv-share completion "
               "bash)\n";
  writeShareForBash(tool);
  writeStationForBash();
}

void writeShareForZsh(const CommandLine& tool) {
  std::cout << "_kv_share() {\n"
               "  if [ \"$service\" = kv-station ]; then _kv_station; return; fi\n"
               "  local words_known=''\n"
               "  if (( CURRENT == 2 )); then\n"
               "    words_known=\""
            << joined(tool.commandNames(), " ") << " --help --version\"\n"
            << "  else\n"
               "    case $words[2] in\n";
  writeCases(tool, "words_known");
  std::cout << "    esac\n"
               "  fi\n"
               "  compadd -- ${=words_known}\n"
               "  (( CURRENT > 2 )) && _files\n"
               "}\n";
}

void writeStationForZsh() {
  std::cout << "_kv_station() {\n"
               "  case $words[CURRENT-1] in\n"
            << "    " << stationPattern("DIR") << ") _files -/ ;;\n"
            << "    " << stationPattern("FILE") << ") _files ;;\n"
            << "    " << stationPattern("on|off") << ") compadd -- on off ;;\n"
            << "    " << stationPattern({}) << ") _message value ;;\n"
            << "    *) compadd -- " << stationWords() << " ;;\n"
            << "  esac\n"
               "}\n";
}

// zsh uses the script in two ways. Sourced, it registers the functions. As a file of the function
// path it is the body of one function, called for either program.
void writeZsh(const CommandLine& tool) {
  std::cout
      << "#compdef kv-share kv-station\n"
         "# Completion of kv-share and kv-station for zsh: source <(kv-share completion zsh)\n";
  writeShareForZsh(tool);
  writeStationForZsh();
  std::cout << "if [ \"$funcstack[1]\" = \"_kv_share\" ]; then\n"
               "  _kv_share \"$@\"\n"
               "else\n"
               "  compdef _kv_share kv-share kv-station\n"
               "fi\n";
}

ToolStatus writeCompletion(const CommandLine& tool, const std::string& shell) {
  if (shell != "bash" && shell != "zsh") {
    return toolProblem(eToolUsage, "SHELL: " + shell +
                                       " not in {bash,zsh}; see kv-share help "
                                       "completion");
  }
  if (shell == "bash") {
    writeBash(tool);
  } else {
    writeZsh(tool);
  }
  return eToolDone;
}

}  // namespace

void addCompletionCommand(CommandLine& line) {
  line.add<std::string>(
      {"completion", "Write a shell's completion script for kv-share and kv-station",
       [](CommandOptions& options, std::string& shell) {
         options.word("SHELL", shell, "bash or zsh");
         options.offer({"bash", "zsh"});
       },
       [&line](const std::string& shell) { return writeCompletion(line, shell); }});
}

}  // namespace korvel
