#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "app/base/EventSinks.h"
#include "app/base/Options.h"
#include "app/base/TextOutput.h"
#include "app/commands/Command.h"
#include "app/program/ChangeTeller.h"
#include "app/program/LineReader.h"
#include "app/window/iStationWindow.h"
#include "station/Station.h"
#include "station/edit/UnsavedEdits.h"

namespace korvel {

/// kv-station: a station, its console and its events, from start to end.
///
/// Three threads: the host thread, which is this one unless there is a window; the console's, which
/// reads commands; a third takes signals. With a window this thread is the window's. One object a
/// process.
class StationProgram {
 public:
  /// `makeWindow` is asked for a window where the options want one; empty where there is none.
  explicit StationProgram(Options options, WindowMaker makeWindow = {});
  StationProgram(const StationProgram&) = delete;
  StationProgram& operator=(const StationProgram&) = delete;
  ~StationProgram();

  /// Starts the station, lets the console run until it ends, and stops it. The exit status.
  int run();

  /// After run(): the options to add to the command line where a person wants it to begin anew, on
  /// another projects directory than the one that failed; else none.
  [[nodiscard]] std::vector<std::string> wordsToStartAgain() const;

 private:
  Result<void> prepare();
  bool askForStart(const std::string& problem);
  void askAfterFailure();
  Result<void> openWindow();
  Result<void> openInput();
  [[nodiscard]] bool readsCommands() const;
  Result<void> start();
  void runStation();
  void runBesideWindow();
  void useStation();
  void tellPerson();
  void tellOfNames();
  void fail(const Error& problem);
  int runConsole();
  bool takeInterrupt();
  Result<void> prepareToEnd(Leaving leaving);
  std::string cookieOf(const std::string& name);
  std::vector<std::string> candidatesFor(const std::string& argument);

  Options options_;
  Waiter waiter_;
  TextOutput text_;
  EventFile file_;
  AuditFile audit_;
  EventHistory history_;
  EventWriter events_;
  CommandTable commands_;
  WindowMaker makeWindow_;
  std::unique_ptr<iStationWindow> window_;
  std::atomic<iStationWindow*> asking_ = nullptr;    ///< the window, while it asks how to start
  std::unique_ptr<iLineReader> reader_;              ///< null where no commands are read
  std::atomic<TerminalReader*> terminal_ = nullptr;  ///< the reader, where it is a terminal's
  std::unique_ptr<Station> station_;
  std::unique_ptr<ChangeTeller> teller_;  ///< null where nobody sits at a terminal
  std::atomic<Shutdown::eExitType> exitType_ = Shutdown::eNormalExit;
  int status_ = 0;
  std::string startProblem_;  ///< why the station could not be started; empty where it was
  bool isToStartAgain_ = false;
};

/// The whole program: reads the command line, runs, and gives the exit status.
int runKvStation(int argc, const char* const* argv, WindowMaker makeWindow = {});

}  // namespace korvel
