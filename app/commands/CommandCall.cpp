#include "app/commands/CommandCall.h"

#include <exception>

#include "app/base/CommandLine.h"
#include "station/base/Rendering.h"

namespace korvel {

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

Error unknown(const CommandTable& commands, const std::vector<std::string>& words) {
  std::string known;
  for (const auto& [name, command] : commands.all()) {
    if (name.starts_with(words.front() + " ")) known += (known.empty() ? "" : ", ") + name;
  }
  const std::string nearest = commands.nearest(words);
  const bool showsTwo = !known.empty() && words.size() > 1;
  const std::string typed = showsTwo ? words[0] + " " + words[1] : words[0];
  std::string message = "There is no command \"" + typed + "\"";
  if (!nearest.empty()) {
    message += "; did you mean \"" + nearest + "\"?";
  } else if (!known.empty()) {
    message += "; there are " + known + ".";
  } else {
    message += "; \"help\" lists all.";
  }
  return {ErrorCode::eUsage, message, {}};
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

Result<JsonValue> runCall(const CommandCall& call) {
  try {
    return call.command->run(call.arguments);
  } catch (const std::exception& problem) {
    return Error{ErrorCode::eSystem,
                 "\"" + call.command->name + "\" failed unexpectedly: " + problem.what() + ".",
                 {}};
  }
}

std::string shownResult(const CommandCall& call, const JsonValue& result) {
  const auto& show = call.command->show;
  return show ? show(call.arguments, result) : renderForPeople(result);
}

}  // namespace korvel
