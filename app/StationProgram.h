#pragma once

#include <atomic>
#include <memory>
#include <string>

#include "app/Command.h"
#include "app/EventFile.h"
#include "app/EventHistory.h"
#include "app/EventWriter.h"
#include "app/HumanText.h"
#include "app/Options.h"
#include "app/Waiter.h"
#include "app/iLineReader.h"
#include "station/Station.h"

/// kv-station: a station, its console and its events, from start to end.
///
/// Three threads: this one becomes the host thread; the console's reads commands; a third takes
/// signals. One object a process.
class StationProgram {
 public:
  explicit StationProgram(Options options);
  StationProgram(const StationProgram&) = delete;
  StationProgram& operator=(const StationProgram&) = delete;
  ~StationProgram();

  /// Starts the station, lets the console run until it ends, and stops it. The exit status.
  int run();

 private:
  Result<void> prepare();
  Result<void> openInput();
  void addCommands();
  void useStation();
  void tellOfNames();
  int runConsole();
  std::string cookieOf(const std::string& name);
  std::vector<std::string> objectNames();

  Options options_;
  Waiter waiter_;
  HumanText text_;
  EventFile file_;
  EventHistory history_;
  EventWriter events_;
  CommandTable commands_;
  std::unique_ptr<iLineReader> reader_;
  std::unique_ptr<Station> station_;
  std::atomic<Shutdown::eExitType> exitType_ = Shutdown::eNormalExit;
  int status_ = 0;
};

/// The whole program: reads the command line, runs, and gives the exit status.
int runKvStation(int argc, const char* const* argv);
