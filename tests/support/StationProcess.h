#pragma once

#include <sys/types.h>

#include <chrono>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "station/base/Json.h"

namespace korvel {

/// A workstation in a process of its own, driven as a script would drive it: commands go in by its
/// standard input, events come out of its standard output.
///
/// Used by one thread. The process never outlives the object, nor the thread that made it.
class StationProcess {
 public:
  using Keys = std::map<std::string, std::string>;
  using Seconds = std::chrono::duration<double>;

  struct Options {
    std::string program;   ///< path of kv-station
    std::string projects;  ///< the shared projects directory
    std::string user;
    std::string host;
    int machine = 0;  ///< 0 leaves it to the host name
    int port = 0;
    /// Further options, as they would be typed. With "--events" among them no event is seen here.
    std::vector<std::string> more;
    /// Words before the program's path: a command that becomes the program it is given, in another
    /// place ("nsenter --net=FILE").
    std::vector<std::string> prefix = {};
    /// Where datagrams go; empty leaves that to the station.
    std::string sendTo = "127.255.255.255";
    /// Every wait is so many times as long, for a station on a slow machine.
    double pace = 1;
  };

  /// Starts the program; its datagrams stay on this machine unless the options say otherwise. Does
  /// not wait.
  explicit StationProcess(Options options);
  StationProcess(const StationProcess&) = delete;
  StationProcess& operator=(const StationProcess&) = delete;

  /// Kills the process if it still runs.
  ~StationProcess();

  /// Whether the station came up within the time.
  bool waitUntilReady(Seconds limit = Seconds(20));

  /// Gives one command and waits for its reply: the `reply` event; null when none came within the
  /// time.
  JsonValue command(const std::string& line, Seconds limit = Seconds(180));

  /// Gives one command and does not wait.
  void type(const std::string& line);

  /// The first event of this name, not returned by waitFor before, whose keys have these values (as
  /// text); waits for it as long as `limit`.
  std::optional<JsonValue> waitFor(const std::string& event, const Keys& keys = {},
                                   Seconds limit = Seconds(10));

  /// All events so far, in order; with a name, those of that name.
  [[nodiscard]] std::vector<JsonValue> events(const std::string& name = {}) const;

  /// What the program wrote to its standard error so far.
  [[nodiscard]] std::string errorText() const;

  /// Ends the process at once, as a power failure would.
  void kill9();

  /// Sends a signal.
  void signal(int number);

  /// Closes the process's standard input.
  void endInput();

  /// The exit status once the process ended by itself; 128 and the signal's number when a signal
  /// ended it; nothing when it still ran after `limit`.
  std::optional<int> waitForExit(Seconds limit = Seconds(20));

  /// Ends it by `quit`, dropping what is unsaved; the exit status as waitForExit gives it.
  std::optional<int> quit();

  [[nodiscard]] const Options& options() const { return options_; }
  [[nodiscard]] pid_t pid() const { return pid_; }

 private:
  struct Seen {
    JsonValue event;
    bool taken = false;
  };

  void start();
  void readEvents(int descriptor);
  void readErrors(int descriptor);
  Seen* findNew(const std::string& event, const Keys& keys, std::size_t& from);

  Options options_;
  pid_t pid_ = -1;
  int input_ = -1;
  std::optional<int> exitStatus_;
  std::thread eventReader_;
  std::thread errorReader_;
  mutable std::mutex mutex_;
  std::condition_variable arrived_;
  std::vector<std::unique_ptr<Seen>> seen_;
  std::string errors_;
};

/// A UDP port that nothing on this machine uses now.
int freeUdpPort();

}  // namespace korvel
