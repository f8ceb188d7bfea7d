#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/support/StationProcess.h"

namespace korvel {

/// Three stations share a new project on this machine, and a transcript shows each change leaving
/// one and arriving at the others. One object a run, used by one thread; prints on standard output.
class Tour {
 public:
  /// Whether the stations show windows, and the tour goes at a pace that eyes can follow.
  enum class Windows { eNone, eSideBySide };

  /// `station` is the path of kv-station, `folder` an empty folder that the tour may fill.
  Tour(std::string station, std::string folder, Windows windows = Windows::eNone);

  /// Plays it. True when everything that was to arrive arrived, and every station ended cleanly.
  bool play();

 private:
  /// What must become visible on a station after a command on another.
  struct Expectation {
    std::string station;
    std::string event;
    StationProcess::Keys keys;
  };

  bool startStations();
  void playProject();
  void playEdit();
  void playBin();
  void playOwnership();
  void playMessages();
  void playLock();
  bool stopStations();
  bool endEarly();

  JsonValue type(const std::string& station, const std::string& line);
  void act(const std::string& station, const std::string& line,
           const std::vector<Expectation>& expectations);
  void ask(const std::string& station, const std::string& line);
  void expectRefusal(const std::string& station, const std::string& line, const std::string& text);
  void expectOnOthers(const std::string& station, const std::string& line, const std::string& event,
                      const StationProcess::Keys& keys);
  void settle();
  void showNews();
  void showEvent(const std::string& station, const JsonValue& event);
  void heading(const std::string& text);
  void fail(const std::string& text);

  void waitForEyes();
  [[nodiscard]] bool isWindowClosed();
  [[nodiscard]] std::vector<std::string> windowOptions(int number) const;

  std::string program_;
  std::string folder_;
  std::string projects_;  ///< the shared projects directory in it
  Windows windows_;
  int port_;
  std::vector<std::string> names_{"ANNA", "BEN", "CARLA"};
  std::map<std::string, std::unique_ptr<StationProcess>> stations_;
  std::map<std::string, std::size_t> shown_;  ///< how many of a station's events are printed
  std::vector<std::string> failures_;
};

}  // namespace korvel
