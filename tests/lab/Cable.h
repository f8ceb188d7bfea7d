#pragma once

#include <memory>
#include <string>

#include "tests/lab/FaultyLine.h"
#include "tests/lab/Space.h"

namespace korvel {

/// A network of the facility: a switch, and the addresses of what is plugged into it.
struct Network {
  std::string bridge;  ///< the switch's name in the facility's own space
  std::string prefix;  ///< "10.77.1.", of a network of 256 addresses
  int machines = 0;    ///< so far; the last address given is this one's
};

/// What joins a machine to a network. It is taken away when this is destroyed.
class Cable {
 public:
  /// Plugs it in: the machine has an interface `name` with the network's next address from now on,
  /// and no route beyond that network.
  Cable(const Space& switches, Network& network, const Space& machine, std::string name);
  Cable(const Cable&) = delete;
  Cable& operator=(const Cable&) = delete;
  ~Cable();

  /// Out of the switch: the machine's interface stays and has no carrier.
  void pull();
  void putBack();

  /// Loses, doubles or exchanges datagrams to and from the machine from now on.
  void degrade(const LineFaults& faults);

  /// What became of datagrams since degrade(); all zero before it.
  [[nodiscard]] LineCounts counts() const;

  [[nodiscard]] const std::string& address() const { return address_; }

 private:
  const Space& switches_;
  std::string bridge_;
  std::string port_;  ///< the end at the switch
  std::string address_;
  std::unique_ptr<FaultyLine> line_;
};

}  // namespace korvel
