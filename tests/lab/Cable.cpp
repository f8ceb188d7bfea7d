#include "tests/lab/Cable.h"

#include <atomic>
#include <utility>

namespace korvel {

namespace {

/// Names of a switch's ports, of which two never are alike.
std::string newPort() {
  static std::atomic<int> ports{0};
  return "port" + std::to_string(++ports);
}

}  // namespace

Cable::Cable(const Space& switches, Network& network, const Space& machine, std::string name)
    : switches_(switches),
      bridge_(network.bridge),
      port_(newPort()),
      address_(network.prefix + std::to_string(++network.machines)) {
  switches_.ip("link add " + port_ + " type veth peer name " + name + " netns " +
               machine.networkPath() + "\nlink set " + port_ + " master " + bridge_ +
               "\nlink set " + port_ + " up");
  machine.ip("addr add " + address_ + "/24 brd + dev " + name + "\nlink set " + name + " up");
}

Cable::~Cable() {
  line_.reset();
  try {
    switches_.ip("link del " + port_);
  } catch (const std::exception&) {
    // It goes with its namespace.
  }
}

void Cable::pull() { switches_.ip("link set " + port_ + " down"); }

void Cable::putBack() { switches_.ip("link set " + port_ + " up"); }

void Cable::degrade(const LineFaults& faults) {
  const std::string far = newPort();
  const std::string near = newPort();
  switches_.ip("link set " + port_ + " nomaster\nlink add " + near + " type veth peer name " + far +
               "\nlink set " + far + " master " + bridge_ + "\nlink set " + far + " up\nlink set " +
               near + " up");
  line_ = std::make_unique<FaultyLine>(switches_, port_, near, faults);
}

LineCounts Cable::counts() const { return line_ ? line_->counts() : LineCounts{}; }

}  // namespace korvel
