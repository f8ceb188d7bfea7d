#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/share/ProgramRun.h"
#include "tests/support/StationProcess.h"

namespace korvel {

/// Two machines, "first" and "second", that share a folder of the machine "server" by one network
/// file system. The scripts `machines` and `volume` made them; they end with those.
class Site {
 public:
  /// `kind` is the file system's name, as those scripts call it.
  explicit Site(std::string kind);

  /// The shared projects directory as this machine reaches it.
  [[nodiscard]] std::string projects(const std::string& machine) const;

  /// Starts a station on a machine and waits until it is ready. Its user and its host are called
  /// `user`.
  StationProcess& start(const std::string& machine, const std::string& user);

  /// Gives a command that must succeed; its result.
  static JsonValue run(StationProcess& station, const std::string& line);

  /// Kills a station on its machine, at once.
  void kill9(StationProcess& station);

  /// Ends a station as its user would.
  void end(StationProcess& station);

  /// Takes a machine's power away: its stations are gone.
  void cut(const std::string& machine);

  /// Gives it back, and waits until the machine has the share again.
  void restore(const std::string& machine);

  /// Runs a command on a machine, which must succeed; what it printed.
  std::string on(const std::string& machine, const std::vector<std::string>& words) const;

  /// Ends all stations.
  void endAll();

  /// How many times as long as on a quick machine everything may take: what KV_LAB_PACE says.
  [[nodiscard]] static double pace();

  [[nodiscard]] const std::string& kind() const { return kind_; }
  [[nodiscard]] bool hasKernels() const { return kind_ != "gluster"; }

 private:
  struct Seat {
    std::string machine;
    std::string job;
    std::unique_ptr<StationProcess> station;
  };

  [[nodiscard]] std::string script() const;
  Seat& seatOf(const StationProcess& station);
  static ProgramRun call(const std::vector<std::string>& words);

  std::string kind_;
  std::vector<Seat> seats_;
};

}  // namespace korvel
