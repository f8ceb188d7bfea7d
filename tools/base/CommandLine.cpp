#include "tools/base/CommandLine.h"

#include <CLI/CLI.hpp>
#include <cmath>
#include <cstdlib>
#include <iostream>
#include <map>

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

}  // namespace korvel
