#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Result.h"

namespace korvel {

class Station;

using Arguments = std::vector<std::string>;

/// A choice offered to a person after a refusal: the word to type, and the option with which the
/// command is then given again.
struct Choice {
  ErrorCode on = ErrorCode::eUsage;  ///< the failure on which it is offered
  std::string word;
  std::string option;
};

/// One console command. Its words are the name's ("edit trim") followed by the arguments.
struct Command {
  std::string name;
  std::string usage;  ///< the arguments as help shows them: "E CLIP START END"
  std::string help;   ///< one sentence
  std::size_t minArguments = 0;
  std::size_t maxArguments = 0;

  /// Does it. The value is shown to people as text, a list or a table, and to
  /// scripts as JSON; null where there is nothing to say.
  std::function<Result<JsonValue>(Station&, const Arguments&)> run;

  static constexpr std::size_t kAnyNumber = ~std::size_t{0};

  /// Where `run` runs: on the host thread, as all that touches the station does, or on the
  /// console's own, as what waits for something does.
  enum class Place { eHostThread, eConsoleThread };
  Place place = Place::eHostThread;

  /// The result in words for people, where the rendered JSON says too little or too much; without
  /// it the result is rendered. Runs where `run` does, after it succeeded.
  std::function<std::string(Station&, const Arguments&, const JsonValue& result)> show = {};

  /// What a person at a terminal is asked instead of being refused. A script is refused.
  std::vector<Choice> choices = {};

  /// What a person at a terminal is asked, yes or no, before it is done: "Remove it for good?". A
  /// script is not asked. Empty for nothing.
  std::string question = {};

  /// The same where there is reason to ask, such as a name that another has already; host thread.
  /// Empty for nothing.
  std::function<std::string(Station&, const Arguments&)> doubt = {};
};

/// All console commands by name.
class CommandTable {
 public:
  /// Adds a command; its name must be new.
  void add(Command command);

  /// The command that the first words of a line name, the longest name first, and how many words
  /// that were; null when there is none.
  [[nodiscard]] const Command* find(const std::vector<std::string>& words,
                                    std::size_t& nameWords) const;

  /// The known name nearest to what was typed, or empty when nothing is near.
  [[nodiscard]] std::string nearest(const std::vector<std::string>& words) const;

  [[nodiscard]] const std::map<std::string, Command>& all() const { return commands_; }

 private:
  std::map<std::string, Command> commands_;
  std::size_t longestName_ = 0;  ///< in words
};

/// A line of the console, taken apart: the command that it names and the words after the name.
struct CommandCall {
  const Command* command = nullptr;  ///< null for a line without words, or without a known name
  Arguments arguments;
  std::optional<Error> problem;  ///< why it cannot be run; eUsage

  [[nodiscard]] bool isEmpty() const { return !command && !problem; }
};

/// Takes a line apart and checks the number of its words. The table must outlive the call. Any
/// thread.
CommandCall readCall(const CommandTable& commands, const std::string& line);

/// Says that there is no command of these words, at least one, and what may have been meant.
Error noCommand(const CommandTable& commands, const std::vector<std::string>& words);

/// Runs a call without a problem, in the place that its command asks for. What the command throws
/// is a failure like any other.
Result<JsonValue> runCall(Station& station, const CommandCall& call);

/// A list or object with each cookie in it cut to as many letters as tell it from the others, eight
/// at least: what people read and type. Names, and a cookie that is all there is, stay as they are.
JsonValue withShortCookies(const JsonValue& value);

/// The same with the start and end of each clip in it as timecode at the clip's rate, and its
/// length behind them: what people read. Scripts get seconds.
JsonValue withTimecodes(const JsonValue& value);

/// A list of objects in the order of their names, whatever their capitals.
JsonValue sortedByName(JsonValue list);

/// What people are shown of the result of a call that succeeded; in the same place as runCall.
std::string shownResult(Station& station, const CommandCall& call, const JsonValue& result);

/// Gives what an argument may be, by how the command's usage calls it: "E", "P", "USER".
using Candidates = std::function<std::vector<std::string>(const std::string& argument)>;

/// What may stand in place of the last word of a line being typed: the next words of commands, or,
/// behind a whole command, files for a FILE and else what `candidates` gives, quoted where need be.
/// In order, each once.
std::vector<std::string> completions(std::string_view line, const CommandTable& table,
                                     const Candidates& candidates);

/// The last word of a line being typed, as it stands there, its opening quote included.
std::string_view lastWord(std::string_view line);

/// The longest text with which all candidates begin.
std::string commonBeginning(const std::vector<std::string>& candidates);

}  // namespace korvel
