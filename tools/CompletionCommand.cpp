#include <iostream>

#include "app/base/OptionTable.h"
#include "station/base/Strings.h"
#include "tools/base/CommandLine.h"

namespace korvel {

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
