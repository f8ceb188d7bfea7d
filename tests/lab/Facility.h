#pragma once

#include <chrono>
#include <deque>
#include <initializer_list>
#include <memory>
#include <string>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/lab/Workstation.h"

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

  /// Switches all machines on; the first makes the project "Film", which all of them open.
  void open();

  /// Every machine's view beside the first's, and beside what a station shows that reads the folder
  /// afresh, once they all agree, or after `limit`: what still differs, or nothing.
  std::string difference(std::chrono::seconds limit);

  /// Lets every machine leave the project and enter it again.
  void reenter();

  /// Waits until every message that a machine sent has come to every other one, and tells what came
  /// more or less than once; nothing when all came once. Machines hear each other all.
  std::string notOnce();

  /// Messages sent so far by all.
  [[nodiscard]] std::size_t sentCount() const;

  /// What the lines did to datagrams so far.
  [[nodiscard]] LineCounts counts() const;

  [[nodiscard]] const std::vector<std::unique_ptr<Workstation>>& machines() const {
    return machines_;
  }

 private:
  [[nodiscard]] std::vector<Workstation*> running() const;
  std::string differenceNow();
  std::string differenceFromFolder();
  void sendMarkers();

  ScratchFolder folder_;
  Space switches_{"switches"};
  std::deque<Network> networks_;
  std::vector<std::unique_ptr<Workstation>> machines_;
  std::string projectFolder_;
  int markers_ = 0;
};
