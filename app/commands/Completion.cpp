#include "app/commands/Completion.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <set>
#include <sstream>

#include "app/base/Options.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

/// Where the last word begins: behind the last blank that is neither quoted nor escaped.
std::size_t lastWordStart(std::string_view line) {
  std::size_t start = 0;
  char quote = '\0';
  for (std::size_t i = 0; i < line.size(); ++i) {
    const char byte = line[i];
    if (byte == '\\' && quote != '\'') {
      ++i;
    } else if (quote != '\0') {
      if (byte == quote) quote = '\0';
    } else if (byte == '\'' || byte == '"') {
      quote = byte;
    } else if (byte == ' ') {
      start = i + 1;
    }
  }
  return std::min(start, line.size());
}

/// The next words of all commands whose name begins with `before` and then `begun`.
void addNextWords(const CommandTable& table, const std::string& before, std::string_view begun,
                  std::set<std::string>& found) {
  for (const auto& [name, command] : table.all()) {
    if (!name.starts_with(before)) continue;
    const std::string rest = name.substr(before.size());
    const std::string word = rest.substr(0, rest.find(' '));
    if (!word.empty() && word.starts_with(begun)) found.insert(word);
  }
}

/// The text that a half-typed word means: without quotes, and with the user's folder for ~.
std::string plainText(std::string_view begun) {
  std::string text;
  const char quote = begun.empty() ? '\0' : begun.front();
  if (quote == '"' || quote == '\'') return std::string(begun.substr(1));
  for (std::size_t i = 0; i < begun.size(); ++i) {
    if (begun[i] == '\\' && i + 1 < begun.size()) ++i;
    text += begun[i];
  }
  const char* const home = std::getenv("HOME");
  if (home && begun.starts_with("~/")) text.replace(0, 1, home);
  return text;
}

/// The candidates that begin with what is typed so far, as they must be typed; where none does,
/// those that differ in capitals alone.
void addCandidates(const std::vector<std::string>& candidates, std::string_view begun,
                   std::set<std::string>& found) {
  const bool isQuoted = begun.starts_with('"');
  const std::string text = plainText(begun);
  const auto add = [&](const auto& beginsSo) {
    for (const std::string& candidate : candidates) {
      // A name with control characters would act on the terminal that offers it.
      if (!beginsSo(candidate) || shownText(candidate) != candidate) continue;
      const std::string word = quotedWord(candidate);
      // A quote that was typed stays, even where the word needs none.
      found.insert(isQuoted && word == candidate ? "\"" + candidate + "\"" : word);
    }
  };
  add([&](const std::string& candidate) { return candidate.starts_with(text); });
  if (!found.empty()) return;
  const std::string wanted = upperCased(text);
  add([&](const std::string& candidate) { return upperCased(candidate).starts_with(wanted); });
}

/// The files and folders (with a / behind them) of the folder in which the path being typed lies.
std::vector<std::string> filesBeside(const std::string& path) {
  const std::string folder = path.substr(0, path.rfind('/') + 1);
  std::vector<std::string> files;
  std::error_code problem;
  std::filesystem::directory_iterator each(folder.empty() ? "." : folder, problem);
  for (; !problem && each != std::filesystem::directory_iterator(); each.increment(problem)) {
    std::error_code unknown;
    const std::string name = each->path().filename().string();
    // Hidden files are not offered, as in a shell.
    if (name.starts_with('.')) continue;
    files.push_back(folder + name + (each->is_directory(unknown) ? "/" : ""));
  }
  return files;
}

/// The name of an argument in the usage, by its number. The last name stands for all further
/// arguments.
std::string argumentOf(const Command& command, std::size_t number) {
  std::istringstream words(command.usage);
  std::string argument;
  for (std::string word; words >> word; --number) {
    argument = word;
    if (number == 0) break;
  }
  std::erase_if(argument,
                [](char letter) { return letter == '[' || letter == ']' || letter == '.'; });
  return argument;
}

}  // namespace

std::string_view lastWord(std::string_view line) { return line.substr(lastWordStart(line)); }

std::vector<std::string> completions(std::string_view line, const CommandTable& table,
                                     const Candidates& candidates) {
  const std::string_view begun = lastWord(line);
  const auto words = splitCommandLine(line.substr(0, line.size() - begun.size()));
  // An unclosed quote before the last word: nothing sensible can be offered.
  if (!words) return {};
  std::set<std::string> found;
  std::string before;
  for (const std::string& word : *words) before += word + " ";
  addNextWords(table, before, begun, found);
  std::size_t nameWords = 0;
  if (const Command* const command = table.find(*words, nameWords)) {
    const std::string argument = argumentOf(*command, words->size() - nameWords);
    addCandidates(argument == "FILE" ? filesBeside(plainText(begun)) : candidates(argument), begun,
                  found);
  }
  return {found.begin(), found.end()};
}

std::string commonBeginning(const std::vector<std::string>& candidates) {
  if (candidates.empty()) return {};
  std::string common = candidates.front();
  for (const std::string& each : candidates) {
    const auto end = std::ranges::mismatch(common, each).in1;
    common.erase(end, common.end());
  }
  return common;
}

}  // namespace korvel
