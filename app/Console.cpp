#include "app/Console.h"

#include <algorithm>
#include <exception>
#include <utility>

#include "app/CommandLine.h"
#include "app/Rendering.h"

namespace {

Result<void> checkArguments(const Command& command, std::size_t count) {
  if (count >= command.minArguments && count <= command.maxArguments) return {};
  const char* problem = count < command.minArguments ? "needs more words" : "takes fewer words";
  const std::string usage =
      command.usage.empty() ? command.name : command.name + " " + command.usage;
  return Error{ErrorCode::eUsage,
               "\"" + command.name + "\" " + problem + "; usage: " + usage +
                   " (a word with blanks needs quotes)",
               {}};
}

/// Runs it; what it throws is a failure like any other.
Result<JsonValue> runGuarded(const Command& command, const Arguments& arguments) {
  try {
    return command.run(arguments);
  } catch (const std::exception& problem) {
    return Error{ErrorCode::eSystem,
                 "\"" + command.name + "\" failed unexpectedly: " + problem.what() + ".",
                 {}};
  }
}

}  // namespace

/// A command on its way through the host thread; the console may stop waiting for it.
struct Console::Pending {
  bool isDone = false;
  Result<JsonValue> result = JsonValue();
};

int Console::run(iLineReader& reader) {
  while (!with_.waiter.isEnding()) {
    const auto line = reader.next();
    if (!line) break;
    const bool succeeded = runLine(*line, reader);
    if (!succeeded && !reader.isInteractive() && !with_.keepsGoing) return 1;
  }
  return 0;
}

bool Console::runLine(const std::string& line, const iLineReader& reader) {
  const auto words = splitCommandLine(line);
  if (words && words->empty()) return true;
  Result<JsonValue> result = JsonValue();
  std::size_t nameWords = 0;
  const Command* command = words ? with_.commands.find(*words, nameWords) : nullptr;
  if (!command) {
    result = words ? unknown(*words) : words.error();
    reply(with_.events, line, {}, result);
  } else {
    const Arguments arguments(words->begin() + static_cast<std::ptrdiff_t>(nameWords),
                              words->end());
    if (auto checked = checkArguments(*command, arguments.size()); !checked) {
      result = checked.error();
      reply(with_.events, line, command->name, result);
    } else if (command->place == Command::Place::eConsoleThread) {
      result = runGuarded(*command, arguments);
      reply(with_.events, line, command->name, result);
    } else {
      result = runOnHostThread(line, *command, arguments);
    }
  }
  if (with_.waiter.isEnding()) return true;
  if (result) {
    with_.text.answer(renderForPeople(*result));
  } else {
    with_.text.problem(reader.place() + result.error().message);
  }
  return static_cast<bool>(result);
}

// The reply is given on the host thread, right after what the command caused, and also when nobody
// waits for it any more: the console may be gone by then, so the task keeps what it needs.
Result<JsonValue> Console::runOnHostThread(const std::string& line, const Command& command,
                                           const Arguments& arguments) {
  const auto pending = std::make_shared<Pending>();
  with_.hostThread.post([with = with_, pending, line, &command, arguments] {
    auto result = runGuarded(command, arguments);
    reply(with.events, line, command.name, result);
    with.waiter.change([&] {
      pending->result = std::move(result);
      pending->isDone = true;
    });
  });
  const bool isDone =
      with_.waiter.await(Waiter::Clock::time_point::max(), [&pending] { return pending->isDone; });
  if (isDone) return std::move(pending->result);
  return Error{ErrorCode::eSystem, "The station ends before the command did.", {}};
}

void Console::reply(EventWriter& events, const std::string& line, const std::string& command,
                    const Result<JsonValue>& result) {
  std::vector<JsonValue::Member> members{
      textMember("line", line), {"command", command}, {"ok", static_cast<bool>(result)}};
  if (result) {
    members.emplace_back("result", *result);
  } else {
    members.push_back(textMember("error", result.error().message));
  }
  events.emit("reply", members);
}

Error Console::unknown(const std::vector<std::string>& words) const {
  std::string known;
  for (const auto& [name, command] : with_.commands.all()) {
    if (name.starts_with(words.front() + " ")) known += (known.empty() ? "" : ", ") + name;
  }
  const std::string nearest = with_.commands.nearest(words);
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
