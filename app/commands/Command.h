#pragma once

#include <cstddef>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "station/base/Json.h"
#include "station/base/Result.h"

namespace korvel {

class Station;

using Arguments = std::vector<std::string>;

/// What a person is offered where a command was refused: the word to type, and the option with
/// which the command is then given again.
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

}  // namespace korvel
