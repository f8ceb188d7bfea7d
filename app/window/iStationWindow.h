#pragma once

#include <functional>
#include <memory>

#include "app/base/EventSinks.h"
#include "app/commands/Command.h"
#include "station/Station.h"
#include "station/base/Result.h"

namespace korvel {

/// What shows the station in a window, beside the console. Its thread draws what the host thread
/// last told of itself, and hands actions over to it; it never waits for the host thread.
class iStationWindow {
 public:
  /// What a window works with; all must outlive it.
  struct Dependencies {
    Station& station;
    const CommandTable& commands;

    /// Asks the whole program to end; hostEnded() follows when it is done.
    std::function<void()> askForEnd;
  };

  virtual ~iStationWindow() = default;

  /// Where the station's events are to go from the start.
  virtual iEventSink& eventSink() = 0;

  /// Shows the window, and returns when hostEnded() was called. The program's main thread.
  virtual void run(const Dependencies& surroundings) = 0;

  /// The host thread does nothing more. Any thread.
  virtual void hostEnded() = 0;
};

/// Makes the window of a program that has one; a failure says why none can be opened.
using WindowMaker = std::function<Result<std::unique_ptr<iStationWindow>>()>;

}  // namespace korvel
