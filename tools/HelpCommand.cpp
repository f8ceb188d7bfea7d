#include <CLI/CLI.hpp>
#include <algorithm>
#include <iostream>
#include <memory>

#include "station/base/NearestName.h"
#include "station/base/Strings.h"
#include "tools/base/Tool.h"

namespace korvel {

namespace {

/// Shows an option as "--port N", and what it is without being given behind its description.
class HelpText : public CLI::Formatter {
 public:
  HelpText() { column_width(26); }

  std::string make_option_opts(const CLI::Option* option) const override {
    const bool isWord = option->get_lnames().empty() && option->get_snames().empty();
    if (isWord || option->get_type_size() == 0) return {};
    const std::string type = option->get_type_name();
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

ToolStatus showHelp(const CLI::App& tool, const std::string& word) {
  const CLI::App* const about = word.empty() ? &tool : commandNamed(tool, word);
  if (!about) return eToolUsage;
  const std::string name = about == &tool ? tool.get_name() : tool.get_name() + " " + word;
  std::cout << tool.get_formatter()->make_help(about, name, CLI::AppFormatMode::Normal);
  return eToolDone;
}

}  // namespace

const CLI::App* commandNamed(const CLI::App& tool, const std::string& word) {
  std::vector<std::string> names;
  for (const auto* const command : tool.get_subcommands([](const CLI::App*) { return true; })) {
    if (command->get_name() == word) return command;
    names.push_back(command->get_name());
  }
  const std::string near = nearestName(word, names);
  toolProblem(eToolUsage, "there is no command \"" + shownText(word) + "\"; " +
                              (near.empty() ? "see kv-share help" : "did you mean " + near + "?"));
  return nullptr;
}

void addHelpCommand(CLI::App& tool, ToolStatus& status) {
  const auto text = std::make_shared<HelpText>();
  text->label("Subcommands", "Commands");
  text->label("Positionals", "Words");
  tool.formatter(text);
  auto* const command = tool.add_subcommand("help", "Show how a command is called");
  const auto about = std::make_shared<std::string>();
  command->add_option("COMMAND", *about, "The command; all of them by default");
  command->callback([=, &tool, &status] { status = showHelp(tool, *about); });
}

}  // namespace korvel
