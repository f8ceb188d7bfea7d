#pragma once

#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/lab/Cable.h"
#include "tests/lab/ProjectView.h"
#include "tests/lab/Space.h"
#include "tests/support/StationProcess.h"

namespace korvel {

/// A machine of the facility, on which a station can be switched on.
class Workstation {
 public:
  struct Setup {
    std::string projects;  ///< the shared projects directory, as this machine reaches it
    std::string host;
    std::string user;               ///< empty: called like the host
    int port = 0;                   ///< 0: the one that stations use unless told otherwise
    std::vector<std::string> more;  ///< further options of its station
  };

  explicit Workstation(Setup setup);

  /// Joins it to a network by its next interface: eth0, eth1 and so on.
  Cable& plugInto(const Space& switches, Network& network);

  /// Lets datagrams that no interface's network takes go by eth0, as an office's router would.
  void routeEverywhere();

  /// Starts its station; does not wait.
  void switchOn();

  /// Waits until the station is up.
  void waitUntilReady();

  /// Waits until the station is up, and opens a project, in place of another.
  void enter(const std::string& project);

  /// Ends the station at once, as a power failure would.
  void cutPower();

  /// Gives a command that must succeed; its result.
  JsonValue run(const std::string& line);

  /// Opens every edit and log that it lists.
  void openAllEdits();

  /// "Cut 1 of ANNA at SUITE7": a name that nothing on any machine has had yet.
  std::string newName(const std::string& kind);

  /// A new media file that no other machine has.
  std::string newMediaFile();

  /// What it shows of the open project.
  ProjectView view();

  /// How often each message was "sent" or "received" since it was switched on or countFromNow was
  /// called, by its bytes in hex.
  [[nodiscard]] std::map<std::string, int> messages(const std::string& event) const;

  /// Leaves what was sent and received so far out of messages().
  void countFromNow();

  [[nodiscard]] StationProcess& station() { return *station_; }
  [[nodiscard]] const StationProcess& station() const { return *station_; }
  [[nodiscard]] bool isOn() const { return isOn_; }
  [[nodiscard]] const std::string& host() const { return setup_.host; }
  [[nodiscard]] const std::string& project() const { return project_; }
  [[nodiscard]] int port() const { return setup_.port; }

  /// Who works where, for people.
  [[nodiscard]] std::string name() const;

  [[nodiscard]] const Space& space() const { return *space_; }
  [[nodiscard]] Cable& cable(std::size_t index = 0) { return *cables_[index]; }
  [[nodiscard]] const std::vector<std::unique_ptr<Cable>>& cables() const { return cables_; }

 private:
  [[nodiscard]] const std::string& user() const {
    return setup_.user.empty() ? setup_.host : setup_.user;
  }

  Setup setup_;
  std::unique_ptr<Space> space_;
  std::vector<std::unique_ptr<Cable>> cables_;
  std::map<std::string, std::size_t> notCounted_;
  std::string project_;  ///< the one entered last
  bool isReady_ = false;
  int named_ = 0;
  std::unique_ptr<StationProcess> station_;
  bool isOn_ = false;
};

}  // namespace korvel
