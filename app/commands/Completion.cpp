#include "app/commands/Completion.h"

#include <algorithm>
#include <set>

#include "app/base/CommandLine.h"

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

/// The objects whose text begins with what is typed so far, as they must be typed.
void addObjects(const std::vector<std::string>& objects, std::string_view begun,
                std::set<std::string>& found) {
  const bool isQuoted = begun.starts_with('"');
  const std::string_view text = begun.substr(isQuoted ? 1 : 0);
  for (const std::string& object : objects) {
    if (!object.starts_with(text)) continue;
    const std::string word = quotedWord(object);
    found.insert(isQuoted && word == object ? "\"" + object + "\"" : word);
  }
}

}  // namespace

std::string_view lastWord(std::string_view line) { return line.substr(lastWordStart(line)); }

std::vector<std::string> completions(std::string_view line, const CommandTable& table,
                                     const std::vector<std::string>& objects) {
  const std::string_view begun = lastWord(line);
  const auto words = splitCommandLine(line.substr(0, line.size() - begun.size()));
  if (!words) return {};
  std::set<std::string> found;
  std::string before;
  for (const std::string& word : *words) before += word + " ";
  addNextWords(table, before, begun, found);
  std::size_t nameWords = 0;
  if (table.find(*words, nameWords)) addObjects(objects, begun, found);
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
