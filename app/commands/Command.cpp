#include "app/commands/Command.h"

#include <algorithm>
#include <cassert>
#include <exception>

#include "app/base/Options.h"
#include "station/base/Rendering.h"
#include "station/base/Strings.h"

namespace korvel {

namespace {

std::size_t wordCount(const std::string& name) {
  return static_cast<std::size_t>(std::count(name.begin(), name.end(), ' ')) + 1;
}

std::string joined(const std::vector<std::string>& words, std::size_t count) {
  std::string text;
  for (std::size_t i = 0; i < std::min(count, words.size()); ++i) {
    if (i > 0) text += ' ';
    text += words[i];
  }
  return text;
}

}  // namespace

void CommandTable::add(Command command) {
  const std::string name = command.name;
  longestName_ = std::max(longestName_, wordCount(name));
  [[maybe_unused]] const bool isNew = commands_.emplace(name, std::move(command)).second;
  assert(isNew && "two commands of one name");
}

const Command* CommandTable::find(const std::vector<std::string>& words,
                                  std::size_t& nameWords) const {
  for (nameWords = std::min(words.size(), longestName_); nameWords > 0; --nameWords) {
    const auto found = commands_.find(joined(words, nameWords));
    if (found != commands_.end()) return &found->second;
  }
  return nullptr;
}

std::string CommandTable::nearest(const std::vector<std::string>& words) const {
  std::string nearest;
  std::size_t least = ~std::size_t{0};
  for (const auto& [name, command] : commands_) {
    const std::string typed = joined(words, wordCount(name));
    // Compared with as many words as the name has: the words behind are arguments.
    if (nearestName(typed, {name}).empty()) continue;
    const std::size_t distance = editDistance(typed, name);
    if (distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest;
}

namespace {

std::optional<Error> checkArguments(const Command& command, std::size_t count) {
  if (count >= command.minArguments && count <= command.maxArguments) return {};
  const char* problem = count < command.minArguments ? "needs more words" : "takes fewer words";
  const std::string usage =
      command.usage.empty() ? command.name : command.name + " " + command.usage;
  return Error{ErrorCode::eUsage,
               "\"" + command.name + "\" " + problem + "; usage: " + usage +
                   " (a word with blanks needs quotes)",
               {}};
}

/// A command of other programs, and the advice for it.
struct Habit {
  const char* typed;
  const char* meant;
};

constexpr Habit kHabits[] = {
    {"exit", "\"quit\" ends the station"},
    {"bye", "\"quit\" ends the station"},
    {"q", "\"quit\" ends the station"},
    {"logout", "\"quit\" ends the station"},
    {"ls", "\"project list\" shows the projects, \"edit list\" and \"bin list\" what is in one"},
    {"dir", "\"project list\" shows the projects, \"edit list\" and \"bin list\" what is in one"},
    {"cd", "\"project enter P\" opens a project, \"room enter R\" a room"},
    {"rm", "\"edit delete E\" deletes edits and logs"},
    {"mv", "\"edit rename E NAME\" gives an edit another name"},
    {"man", "\"help COMMAND\" says what a command does"},
    {"?", "\"help\" lists all commands"},
};

/// The command whose words were typed the other way round, as in "create project", or "list
/// projects"; empty where there is none.
std::string turnedRound(const CommandTable& commands, const std::vector<std::string>& words) {
  if (words.size() < 2) return {};
  std::string object = words[1];
  // The plural, as in "list projects".
  if (!commands.all().contains(object + " " + words[0]) && object.ends_with('s')) object.pop_back();
  const std::string name = object + " " + words[0];
  if (!commands.all().contains(name)) return {};
  std::string line = name;
  for (std::size_t i = 2; i < words.size(); ++i) line += " " + quotedWord(words[i]);
  return line;
}

/// A hint for words that are not just a misspelt command; empty where there is none.
std::string habitOf(const CommandTable& commands, const std::vector<std::string>& words) {
  const std::string turned = turnedRound(commands, words);
  if (!turned.empty()) return "did you mean \"" + turned + "\"?";
  for (const Habit& habit : kHabits) {
    if (words.front() == habit.typed) return std::string(habit.meant) + ".";
  }
  return {};
}

Error unknown(const CommandTable& commands, const std::vector<std::string>& words) {
  std::string known;
  for (const auto& [name, command] : commands.all()) {
    if (name.starts_with(words.front() + " ")) known += (known.empty() ? "" : ", ") + name;
  }
  const std::string nearest = commands.nearest(words);
  const bool showsTwo = !known.empty() && words.size() > 1;
  const std::string typed = showsTwo ? words[0] + " " + words[1] : words[0];
  std::string message = "There is no command \"" + typed + "\"";
  // The surest advice first; a list of commands only where nothing is near.
  const std::string habit = habitOf(commands, words);
  if (!habit.empty()) {
    message += "; " + habit;
  } else if (!nearest.empty()) {
    message += "; did you mean \"" + nearest + "\"?";
  } else if (!known.empty()) {
    message += "; there are " + known + ".";
  } else {
    message += "; \"help\" lists all.";
  }
  return {ErrorCode::eUsage, shownText(message), {}};
}

}  // namespace

CommandCall readCall(const CommandTable& commands, const std::string& line) {
  const auto words = splitCommandLine(line);
  if (!words) return {nullptr, {}, words.error()};
  if (words->empty()) return {};
  std::size_t nameWords = 0;
  const Command* command = commands.find(*words, nameWords);
  if (!command) return {nullptr, {}, unknown(commands, *words)};
  Arguments arguments(words->begin() + static_cast<std::ptrdiff_t>(nameWords), words->end());
  const std::size_t count = arguments.size();
  return {command, std::move(arguments), checkArguments(*command, count)};
}

Result<JsonValue> runCall(Station& station, const CommandCall& call) {
  try {
    return call.command->run(station, call.arguments);
  } catch (const std::exception& problem) {
    return Error{ErrorCode::eSystem,
                 "\"" + call.command->name + "\" failed unexpectedly: " + problem.what() + ".",
                 {}};
  }
}

JsonValue withShortCookies(JsonValue list) {
  constexpr std::size_t kShortest = 8;
  std::vector<std::string> cookies;
  for (const JsonValue& row : list.elements()) cookies.push_back(row["cookie"].asString());
  std::ranges::sort(cookies);
  std::size_t length = kShortest;
  // In sorted order the longest common beginnings are between neighbours.
  for (std::size_t i = 1; i < cookies.size(); ++i) {
    const auto same =
        std::ranges::mismatch(cookies[i - 1], cookies[i]).in1 - cookies[i - 1].begin();
    length = std::max(length, static_cast<std::size_t>(same) + 1);
  }
  for (JsonValue& row : list.elements()) {
    if (row["cookie"].isString()) row.set("cookie", row["cookie"].asString().substr(0, length));
  }
  return list;
}

std::string shownResult(Station& station, const CommandCall& call, const JsonValue& result) {
  const auto& show = call.command->show;
  return show ? show(station, call.arguments, result) : renderForPeople(withShortCookies(result));
}

}  // namespace korvel
