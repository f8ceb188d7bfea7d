#include "app/commands/Command.h"

#include <algorithm>
#include <cassert>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <functional>
#include <set>
#include <sstream>
#include <utility>

#include "app/base/Options.h"
#include "app/commands/Commands.h"
#include "host/base/Cookie.h"
#include "station/Station.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"
#include "station/edit/Edits.h"
#include "station/edit/Timecode.h"
#include "station/project/Names.h"
#include "station/project/Projects.h"

namespace korvel {

namespace {

std::size_t wordCount(const std::string& name) {
  return static_cast<std::size_t>(std::count(name.begin(), name.end(), ' ')) + 1;
}

std::string beginning(const std::vector<std::string>& words, std::size_t count) {
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
    const auto found = commands_.find(beginning(words, nameWords));
    if (found != commands_.end()) return &found->second;
  }
  return nullptr;
}

std::string CommandTable::nearest(const std::vector<std::string>& words) const {
  std::string nearest;
  std::size_t least = ~std::size_t{0};
  for (const auto& [name, command] : commands_) {
    // Compared with as many words as the name has: the words behind are arguments.
    const std::string typed = beginning(words, wordCount(name));
    if (nearestName(typed, {name}).empty()) continue;
    const std::size_t distance = editDistance(typed, name);
    if (distance >= least) continue;
    least = distance;
    nearest = name;
  }
  return nearest;
}

namespace {

/// How many words besides options a command takes, where its usage says so: "E NAME" is 2, and so
/// is "E NAME [--force]".
std::optional<std::size_t> plainWords(const Command& command) {
  std::istringstream words(command.usage);
  std::size_t count = 0;
  for (std::string word; words >> word;) {
    const bool isOption = word.starts_with("[--") && word.ends_with(']');
    if (!isOption && (word.starts_with('[') || word.ends_with("..."))) return {};
    if (!isOption) ++count;
  }
  return count;
}

bool isOption(const std::string& word) { return word.starts_with("--"); }

/// The line with the words that are too many taken as one with blanks: what was most likely meant
/// by "say BEN good morning". Empty where nothing is too many.
std::string withQuotes(const Command& command, const Arguments& arguments) {
  const auto wanted = plainWords(command);
  if (!wanted || *wanted == 0) return {};
  Arguments plain;
  Arguments options;
  for (const std::string& word : arguments) (isOption(word) ? options : plain).push_back(word);
  if (plain.size() <= *wanted) return {};
  const auto first = plain.begin() + static_cast<std::ptrdiff_t>(*wanted) - 1;
  const std::string last = joined(Arguments(first, plain.end()), " ");
  std::string line = command.name;
  for (auto each = plain.begin(); each != first; ++each) line += " " + quotedWord(*each);
  line += " " + quotedWord(last);
  for (const std::string& option : options) line += " " + option;
  return line;
}

std::optional<Error> checkArguments(const Command& command, const Arguments& arguments) {
  const std::size_t count = arguments.size();
  const std::string quoted = withQuotes(command, arguments);
  const bool isEnough = count >= command.minArguments;
  if (isEnough && count <= command.maxArguments && quoted.empty()) return {};
  const char* problem = isEnough ? "takes fewer words" : "needs more words";
  const std::string usage =
      command.usage.empty() ? command.name : command.name + " " + command.usage;
  const std::string advice = quoted.empty() ? " (a word with blanks needs quotes)"
                                            : "; did you mean: " + shownText(quoted);
  return Error{
      ErrorCode::eUsage, inQuotes(command.name) + " " + problem + "; usage: " + usage + advice, {}};
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

/// The commands that do what was typed without saying to what, as in "open Scene"; empty where
/// there is none.
std::string verbAlone(const CommandTable& commands, const std::vector<std::string>& words) {
  std::vector<std::string> found;
  for (const auto& [name, command] : commands.all()) {
    if (!name.ends_with(" " + words.front())) continue;
    std::string line = name;
    for (std::size_t i = 1; i < words.size(); ++i) line += " " + quotedWord(words[i]);
    found.push_back(inQuotes(line));
  }
  if (found.empty()) return {};
  const std::string last = found.back();
  found.pop_back();
  return "did you mean " + (found.empty() ? last : joined(found, ", ") + " or " + last) + "?";
}

/// The kind of thing ("edit", "project") most like a word that was typed; empty where none is.
std::string familyLike(const CommandTable& commands, const std::string& typed) {
  std::vector<std::string> families;
  for (const auto& [name, command] : commands.all()) {
    if (name.find(' ') != std::string::npos) families.push_back(name.substr(0, name.find(' ')));
  }
  return nearestName(typed, families);
}

/// A hint for words that are not just a misspelt command; empty where there is none.
std::string habitOf(const CommandTable& commands, const std::vector<std::string>& words) {
  const std::string turned = turnedRound(commands, words);
  if (!turned.empty()) return "did you mean " + inQuotes(turned) + "?";
  for (const Habit& habit : kHabits) {
    if (words.front() == habit.typed) return std::string(habit.meant) + ".";
  }
  return verbAlone(commands, words);
}

}  // namespace

Error noCommand(const CommandTable& commands, const std::vector<std::string>& words) {
  std::string known;
  const std::string family = familyLike(commands, words.front());
  for (const auto& [name, command] : commands.all()) {
    if (name.starts_with(family + " ")) known += (known.empty() ? "" : ", ") + name;
  }
  const std::string nearest = commands.nearest(words);
  const bool showsTwo = family == words.front() && words.size() > 1;
  const std::string typed = showsTwo ? words[0] + " " + words[1] : words[0];
  std::string message = "There is no command " + inQuotes(typed);
  // The surest advice first; a list of commands only where nothing is near.
  const std::string habit = habitOf(commands, words);
  if (!habit.empty()) {
    message += "; " + habit;
  } else if (!nearest.empty()) {
    message += "; did you mean " + inQuotes(nearest) + "?";
  } else if (!known.empty()) {
    message += "; there are " + known + ".";
  } else {
    message += "; \"help\" lists all.";
  }
  return {ErrorCode::eUsage, shownText(message), {}};
}

CommandCall readCall(const CommandTable& commands, const std::string& line) {
  const auto words = splitCommandLine(line);
  if (!words) return {nullptr, {}, words.error()};
  if (words->empty()) return {};
  std::size_t nameWords = 0;
  const Command* command = commands.find(*words, nameWords);
  if (!command) return {nullptr, {}, noCommand(commands, *words)};
  Arguments arguments(words->begin() + static_cast<std::ptrdiff_t>(nameWords), words->end());
  return {command, arguments, checkArguments(*command, arguments)};
}

Result<JsonValue> runCall(Station& station, const CommandCall& call) {
  try {
    return call.command->run(station, call.arguments);
  } catch (const std::exception& problem) {
    return Error{ErrorCode::eSystem,
                 inQuotes(call.command->name) + " failed unexpectedly: " + problem.what() + ".",
                 {}};
  }
}

namespace {

/// Whether a text under a key is a cookie. A short word of hexadecimal digits may be anything.
bool isCookie(const std::string& key, const JsonValue& value) {
  constexpr std::size_t kLeast = 20;
  if (!value.isString() || key == "name") return false;
  if (key == "cookie" || value.asString().size() < kLeast) return key == "cookie";
  const Cookie cookie(value.asString().c_str(), false);
  return !cookie.isNull() && cookie.asString().view() == value.asString();
}

using ShowCookie = std::function<std::string(const std::string& cookie)>;

/// A value with each cookie inside as `show` has it.
JsonValue withCookiesShown(const JsonValue& value, const ShowCookie& show) {
  const auto shown = [&show](const std::string& key, const JsonValue& each) {
    return isCookie(key, each) ? JsonValue(show(each.asString())) : withCookiesShown(each, show);
  };
  JsonValue all = value;
  for (JsonValue& each : all.elements()) each = shown({}, each);
  for (const auto& [key, each] : value.members()) all.set(key, shown(key, each));
  return all;
}

}  // namespace

JsonValue withShortCookies(const JsonValue& value) {
  std::vector<std::string> cookies;
  static_cast<void>(withCookiesShown(value, [&cookies](const std::string& cookie) {
    cookies.push_back(cookie);
    return cookie;
  }));
  const std::size_t length = tellingLength(std::move(cookies));
  return withCookiesShown(value,
                          [length](const std::string& cookie) { return cookie.substr(0, length); });
}

JsonValue withTimecodes(const JsonValue& value) {
  JsonValue all = value;
  for (JsonValue& each : all.elements()) each = withTimecodes(each);
  for (const auto& [key, each] : value.members()) all.set(key, withTimecodes(each));
  const JsonValue rate = value["rate"];
  if (!rate.isNumber() || !value["start"].isNumber() || !value["end"].isNumber()) return all;
  const Timecode timecode(rate.asDouble());
  const double start = value["start"].asDouble();
  const double end = value["end"].asDouble();
  all.set("start", timecode.textAt(start));
  all.set("end", timecode.textAt(end));
  all.remove("rate");  // which stands last
  all.set("length", timecode.textAt(end - start));
  all.set("rate", rate);
  return all;
}

JsonValue sortedByName(JsonValue list) {
  std::ranges::stable_sort(list.elements(), {}, [](const JsonValue& each) {
    return upperCased(each["name"].asString());
  });
  return list;
}

std::string shownResult(Station& station, const CommandCall& call, const JsonValue& result) {
  const auto& show = call.command->show;
  return show ? show(station, call.arguments, result)
              : renderForPeople(withTimecodes(withShortCookies(result)));
}

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

// What the families have in common.

namespace {

constexpr const char* kSave = "--save";
constexpr const char* kDiscard = "--discard";

}  // namespace

void addCommands(CommandTable& table, const ConsoleServices& services) {
  addConsoleCommands(table, services);
  addProjectCommands(table);
  addRoomCommands(table);
  addEditCommands(table);
  addKeepCommands(table);
  addTrashCommands(table);
  addContainerCommands(table);
  addFilterCommands(table);
  addMediaCommands(table);
  addTalkCommands(table);
  addUserCommands(table);
}

Result<JsonValue> answer(const Result<void>& done) {
  if (!done) return done.error();
  return JsonValue();
}

Result<JsonValue> answer(const Result<Cookie>& made) {
  if (!made) return made.error();
  return JsonValue(utf8Text(made->asString()));
}

std::function<std::string(Station&, const Arguments&, const JsonValue&)> said(
    const std::string& words) {
  return [words](Station&, const Arguments&, const JsonValue&) { return words; };
}

std::function<Result<JsonValue>(Station&, const Arguments&)> onEdit(EditAction action) {
  return [action = std::move(action)](Station& station,
                                      const Arguments& arguments) -> Result<JsonValue> {
    const auto cookie = station.projects().resolve(arguments[0], Edits::kKinds);
    if (!cookie) return cookie.error();
    return action(station, *cookie, arguments);
  };
}

Result<Leaving> takeLeaving(Arguments& words) {
  const bool saves = std::erase(words, kSave) > 0;
  const bool discards = std::erase(words, kDiscard) > 0;
  if (saves && discards) {
    return Error{ErrorCode::eUsage, "Give --save or --discard, not both.", {}};
  }
  if (saves) return Leaving::eSave;
  return discards ? Leaving::eDiscard : Leaving::eRefuse;
}

std::vector<Choice> leavingChoices() {
  return {{ErrorCode::eUnsaved, "save", kSave}, {ErrorCode::eUnsaved, "discard", kDiscard}};
}

}  // namespace korvel
