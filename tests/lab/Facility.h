#pragma once

#include <chrono>
#include <deque>
#include <initializer_list>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/lab/Workstation.h"

namespace korvel {

/// A projects directory, networks, and the workstations that share it over them. All of it is this
/// process's own and ends with it; the machine's own interfaces are not touched.
class Facility {
 public:
  Facility();

  /// A new network, 10.77.N.0/24, with a switch of its own.
  Network& network();

  /// A machine on these networks, off. Its user is called like it.
  Workstation& workstation(const std::string& host, std::initializer_list<Network*> networks);
  Workstation& workstation(Workstation::Setup setup, std::initializer_list<Network*> networks);

  /// Joins a machine to one more network.
  Cable& plug(Workstation& machine, Network& network) {
    return machine.plugInto(switches_, network);
  }

  /// Joins something that is no workstation of this facility to a network.
  std::unique_ptr<Cable> cable(Network& network, const Space& machine) {
    return std::make_unique<Cable>(switches_, network, machine, "eth0");
  }

  /// Switches all machines on; the first makes the project "Film", which all of them open.
  void open();

  /// Every machine's view beside the first's of its project, and beside what a station shows that
  /// reads the folder afresh, once they all agree, or after `limit`: what still differs, or
  /// nothing.
  std::string difference(std::chrono::seconds limit);

  /// How long it takes from now on until every machine shows the same; at most `limit`.
  std::chrono::duration<double> timeToAgree(std::chrono::seconds limit);

  /// Lets every machine leave its project, enter it again and open all its edits.
  void reenter();

  /// Waits until every machine hears every other one, and lets notOnce count from then on.
  void awaitHearing();

  /// Waits until every message that a machine sent has come to every other one, and tells what came
  /// more or less than once; nothing when all came once. Machines on one port hear each other, and
  /// none on another port. What no machine sent counts as well, unless strangers send.
  enum class Strangers { eNone, eSend };
  std::string notOnce(Strangers strangers = Strangers::eNone);
  std::string notOnceNow(Strangers strangers);

  /// Datagrams that stations say they could not take.
  [[nodiscard]] long droppedCount() const;

  /// Where a project's files are.
  [[nodiscard]] std::string folderOf(const std::string& project) const {
    return folder_ / ("projects/" + project);
  }

  /// Messages sent so far by all.
  [[nodiscard]] std::size_t sentCount() const;

  /// What the lines did to datagrams so far.
  [[nodiscard]] LineCounts counts() const;

  [[nodiscard]] const std::vector<std::unique_ptr<Workstation>>& machines() const {
    return machines_;
  }

 private:
  [[nodiscard]] std::vector<Workstation*> running() const;
  [[nodiscard]] std::map<std::string, std::vector<Workstation*>> byProject() const;
  std::string differenceNow();
  std::string differenceFromFolder();
  [[nodiscard]] std::vector<Workstation*> peersOf(const Workstation& machine) const;
  void sendMarkers();
  bool allHear(std::chrono::milliseconds limit);

  ScratchFolder folder_;
  Space switches_{"switches"};
  std::deque<Network> networks_;
  std::vector<std::unique_ptr<Workstation>> machines_;
  int markers_ = 0;
};

}  // namespace korvel
