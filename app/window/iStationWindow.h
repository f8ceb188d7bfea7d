#pragma once

#include <functional>
#include <memory>

#include "app/base/EventSinks.h"
#include "app/base/Options.h"
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

    /// What the program was started with.
    const Options& options;
  };

  virtual ~iStationWindow() = default;

  /// Asks a person for what no option gives, the projects directory and the user's name, and fills
  /// them in; false where the person, or hostEnded(), ends it. `problem` says what was wrong with
  /// those that were given; empty where nothing was. Before run(), on the program's main thread.
  virtual bool askForStart(Options& options, const std::string& problem) = 0;

  /// Where the station's events are to go from the start.
  virtual iEventSink& eventSink() = 0;

  /// Shows the window, and returns when hostEnded() was called. The program's main thread.
  virtual void run(const Dependencies& surroundings) = 0;

  /// Nothing more is to be shown. Any thread.
  virtual void hostEnded() = 0;
};

/// Makes the window of a program that has one; a failure says why none can be opened.
using MadeWindow = Result<std::unique_ptr<iStationWindow>>;
using WindowMaker = std::function<MadeWindow()>;

/// The window is a library of its own, loaded where it is asked for, so that a machine without a
/// display needs no toolkit. Its only entry fills in the window, or why none can be opened;
/// `version` is the loading program's, which must be the library's own.
inline constexpr const char* kWindowLibrary = "libkorvelwindow.so";
inline constexpr const char* kWindowEntry = "kvMakeWindow";
using WindowEntry = void (*)(const char* version, MadeWindow* made);

}  // namespace korvel
