#include "app/program/Console.h"

#include <utility>

#include "app/commands/Command.h"
#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"

namespace korvel {

/// The answer that the host thread will give. Owned by both threads: the console may stop waiting
/// for it.
struct Console::Pending {
  bool isDone = false;
  Answer answer;
};

int Console::run(iLineReader& reader) {
  std::size_t failures = 0;
  while (!with_.waiter.isEnding()) {
    const auto line = reader.next();
    if (!line) break;
    if (runLine(*line, reader) || reader.isInteractive()) continue;
    ++failures;
    if (!with_.keepsGoing) return 1;
  }
  if (failures == 0) return 0;
  with_.text.problem(std::to_string(failures) +
                     (failures == 1 ? " command failed." : " commands failed."));
  // A script that says "quit" has come to the end that it wanted.
  return with_.waiter.isEnding() ? 0 : 1;
}

Console::Answer Console::answerFor(const std::string& line, const CommandCall& call) {
  if (!call.problem && call.command->place == Command::Place::eHostThread) {
    return runOnHostThread(line, call);
  }
  Answer answer = call.problem ? Answer{*call.problem, {}} : answerTo(with_.station, call);
  reply(with_.events, line, call, answer.result);
  return answer;
}

bool Console::runLine(const std::string& line, iLineReader& reader) {
  const CommandCall call = readCall(with_.commands, line);
  if (call.isEmpty() || !isConfirmed(line, call, reader)) return true;
  const Answer answer = answerFor(line, call);
  // The program ends: a refusal caused by the end is no failure of the command.
  if (with_.waiter.isEnding()) return true;
  if (answer.result) {
    with_.text.answer(answer.text);
    return true;
  }
  with_.text.problem(reader.place() + answer.result.error().message);
  const auto option = chooseOption(line, call, answer.result.error(), reader);
  return option && runLine(line + " " + *option, reader);
}

namespace {

/// Whether an answer is a word of these letters, or the beginning of one, in whatever case.
bool isAnswer(const std::string& typed, const std::string& word) {
  return !typed.empty() && upperCased(word).starts_with(upperCased(typed));
}

/// Says that a command was not done, and what became of an answer that is none: it may be another
/// command.
std::string notDone(const std::string& line, const std::string& strange) {
  const std::string said = "Not done: " + shownText(line) + ".";
  return strange.empty() ? said
                         : said + " " + inQuotes(strange) +
                               " was taken for the answer; if it is a command, type it again.";
}

}  // namespace

/// Whether a person confirms the command; true for commands without a question, and for scripts.
bool Console::isConfirmed(const std::string& line, const CommandCall& call, iLineReader& reader) {
  if (call.problem || !reader.isInteractive()) return true;
  const std::string question =
      call.command->question.empty() ? doubtAbout(call) : call.command->question;
  if (question.empty()) return true;
  const std::string typed = reader.ask(question + " yes or no? ").value_or("");
  if (isAnswer(typed, "yes")) return true;
  if (with_.waiter.isEnding()) return false;
  with_.text.answer(notDone(line, isAnswer(typed, "no") ? "" : typed));
  return false;
}

/// What a person is asked before this is done; empty for nothing, and when the program ends.
std::string Console::doubtAbout(const CommandCall& call) {
  if (!call.command->doubt) return {};
  const auto pending = std::make_shared<std::optional<std::string>>();
  with_.station.hostThread().post([with = with_, pending, call] {
    std::string doubt = call.command->doubt(with.station, call.arguments);
    with.waiter.change([&] { *pending = std::move(doubt); });
  });
  with_.waiter.await(Waiter::Clock::time_point::max(), [&pending] { return pending->has_value(); });
  return pending->value_or("");
}

/// The option that a person chooses after a refusal; nothing for "cancel".
std::optional<std::string> Console::chooseOption(const std::string& line, const CommandCall& call,
                                                 const Error& problem, iLineReader& reader) {
  if (!reader.isInteractive() || !call.command) return {};
  std::vector<Choice> offered;
  std::string question;
  for (const Choice& choice : call.command->choices) {
    if (choice.on != problem.code) continue;
    offered.push_back(choice);
    question += choice.word + ", ";
  }
  if (offered.empty()) return {};
  const std::string typed = reader.ask(question + "or cancel? ").value_or("");
  for (const Choice& choice : offered) {
    if (isAnswer(typed, choice.word)) return choice.option;
  }
  if (with_.waiter.isEnding()) return {};
  with_.text.answer(notDone(line, isAnswer(typed, "cancel") ? "" : typed));
  return {};
}

Console::Answer Console::answerTo(Station& station, const CommandCall& call) {
  Answer answer{runCall(station, call), {}};
  if (answer.result) answer.text = shownResult(station, call, *answer.result);
  return answer;
}

// The host thread sends the reply itself, right after the events of the command, and also when
// nobody waits any more. The console may be gone by then, so the task copies what it needs.
Console::Answer Console::runOnHostThread(const std::string& line, const CommandCall& call) {
  const auto pending = std::make_shared<Pending>();
  with_.station.hostThread().post([with = with_, pending, line, call] {
    const ActivityScope activity("the command " + inQuotes(line));
    Answer answer = answerTo(with.station, call);
    reply(with.events, line, call, answer.result);
    with.waiter.change([&] {
      pending->answer = std::move(answer);
      pending->isDone = true;
    });
  });
  const bool isDone =
      with_.waiter.await(Waiter::Clock::time_point::max(), [&pending] { return pending->isDone; });
  if (isDone) return std::move(pending->answer);
  return {Error{ErrorCode::eSystem, "The station ends before the command did.", {}}, {}};
}

void Console::reply(EventWriter& events, const std::string& line, const CommandCall& call,
                    const Result<JsonValue>& result) {
  const std::string command = call.command ? call.command->name : std::string();
  std::vector<JsonValue::Member> members{
      textMember("line", line), {"command", command}, {"ok", static_cast<bool>(result)}};
  if (result) {
    members.emplace_back("result", *result);
  } else {
    members.push_back(textMember("error", result.error().message));
  }
  events.emit("reply", members);
}

}  // namespace korvel
