#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "app/base/EventSinks.h"
#include "app/base/TextOutput.h"
#include "app/commands/Command.h"
#include "app/program/LineReader.h"
#include "station/Station.h"

namespace korvel {

/// Reads lines, runs the commands that they name one after the other, and answers: to people in
/// text, to scripts by `reply` events. Runs on a thread of its own; commands that touch the station
/// run on the host thread while this one waits.
class Console {
 public:
  /// What a console works with; all must outlive it.
  struct Dependencies {
    Station& station;
    const CommandTable& commands;
    EventWriter& events;
    TextOutput& text;
    Waiter& waiter;
    bool keepsGoing;  ///< whether a script goes on after a command that failed
  };

  explicit Console(Dependencies surroundings) : with_(surroundings) {}

  /// Reads until the end of the input, until somebody asks the program to end, or, unless it is to
  /// keep going, until a script's command fails. The program's exit status: 1 when a command of a
  /// script failed, unless "quit" ended it.
  int run(iLineReader& reader);

 private:
  struct Pending;

  /// What a command gave, and that in words for people.
  struct Answer {
    Result<JsonValue> result = JsonValue();
    std::string text;
  };

  bool runLine(const std::string& line, iLineReader& reader);
  Answer answerFor(const std::string& line, const CommandCall& call);
  bool isConfirmed(const std::string& line, const CommandCall& call, iLineReader& reader);
  std::string doubtAbout(const CommandCall& call);
  std::optional<std::string> chooseOption(const std::string& line, const CommandCall& call,
                                          const Error& problem, iLineReader& reader);
  Answer runOnHostThread(const std::string& line, const CommandCall& call);
  static Answer answerTo(Station& station, const CommandCall& call);
  static void reply(EventWriter& events, const std::string& line, const CommandCall& call,
                    const Result<JsonValue>& result);

  Dependencies with_;
};

}  // namespace korvel
