#include <CLI/CLI.hpp>
#include <iostream>
#include <memory>

#include "tools/MessageTypes.h"
#include "tools/Tool.h"

namespace {

std::string joined(const std::vector<std::string>& words) {
  std::string all;
  for (const auto& word : words) all += (all.empty() ? "" : " ") + word;
  return all;
}

std::vector<const CLI::App*> commandsOf(const CLI::App& tool) {
  return tool.get_subcommands([](const CLI::App*) { return true; });
}

std::string commandNames(const CLI::App& tool) {
  std::vector<std::string> names;
  for (const auto* const command : commandsOf(tool)) names.push_back(command->get_name());
  return joined(names);
}

/// What may stand after a command: its options, and the words that it knows.
std::string wordsOf(const CLI::App& command) {
  std::vector<std::string> words;
  for (const auto* const option : command.get_options()) {
    if (!option->get_lnames().empty()) words.push_back("--" + option->get_lnames().front());
  }
  if (command.get_name() == "help") words.push_back(commandNames(*command.get_parent()));
  if (command.get_name() == "completion") words.insert(words.end(), {"bash", "zsh"});
  if (command.get_name() == "send") {
    for (auto& name : messageTypeNames()) words.push_back(std::move(name));
  }
  return joined(words);
}

void writeCases(const CLI::App& tool, const char* variable) {
  for (const auto* const command : commandsOf(tool)) {
    std::cout << "    " << command->get_name() << ") " << variable << "=\"" << wordsOf(*command)
              << "\" ;;\n";
  }
}

void writeBash(const CLI::App& tool) {
  std::cout << "# Completion of kv-share for bash: source <(kv-share completion bash)\n"
               "_kv_share() {\n"
               "  local word=${COMP_WORDS[COMP_CWORD]} words\n"
               "  case ${COMP_CWORD}:${COMP_WORDS[1]} in\n"
               "    1:*) words=\""
            << commandNames(tool) << " --help --version\" ;;\n"
            << "    *) case ${COMP_WORDS[1]} in\n";
  writeCases(tool, "words");
  std::cout << "    esac ;;\n"
               "  esac\n"
               "  COMPREPLY=($(compgen -W \"$words\" -- \"$word\"))\n"
               "}\n"
               "complete -o default -F _kv_share kv-share\n";
}

void writeZsh(const CLI::App& tool) {
  std::cout << "#compdef kv-share\n"
               "# Completion of kv-share for zsh: source <(kv-share completion zsh)\n"
               "_kv_share() {\n"
               "  local words_known=''\n"
               "  if (( CURRENT == 2 )); then\n"
               "    words_known=\""
            << commandNames(tool) << " --help --version\"\n"
            << "  else\n"
               "    case $words[2] in\n";
  writeCases(tool, "words_known");
  std::cout
      << "    esac\n"
         "  fi\n"
         "  compadd -- ${=words_known}\n"
         "  (( CURRENT > 2 )) && _files\n"
         "}\n"
         "if [ \"$funcstack[1]\" = \"_kv_share\" ]; then _kv_share \"$@\"; else compdef _kv_share "
         "kv-share; fi\n";
}

ToolStatus writeCompletion(const CLI::App& tool, const std::string& shell) {
  if (shell == "bash") {
    writeBash(tool);
  } else {
    writeZsh(tool);
  }
  return eToolDone;
}

}  // namespace

void addCompletionCommand(CLI::App& tool, ToolStatus& status) {
  auto* const command = tool.add_subcommand("completion", "Write a shell's completion script");
  const auto shell = std::make_shared<std::string>();
  command->add_option("SHELL", *shell, "bash or zsh")
      ->required()
      ->check(CLI::IsMember({"bash", "zsh"}));
  command->callback([=, &tool, &status] { status = writeCompletion(tool, *shell); });
}
