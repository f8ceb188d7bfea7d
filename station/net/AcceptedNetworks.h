#pragma once

#include <set>
#include <string>
#include <vector>

#include "station/net/Ipv4.h"

namespace korvel {

/// The networks from which this station takes datagrams, as the configuration's "accept_networks"
/// names them: "192.168.1.0/24, 10.0.0.0/8". An absent or empty value takes all. One thread.
class AcceptedNetworks {
 public:
  /// A word that is no network is told as a network problem, and lets nothing in.
  explicit AcceptedNetworks(const std::string& configured);

  /// Whether datagrams from this address are taken. A sender that is refused is told once.
  bool accepts(Ipv4 sender);

 private:
  void tellOnce(Ipv4 sender);

  bool takesAll_ = true;
  std::vector<Ipv4Network> networks_;
  std::set<Ipv4> told_;
};

}  // namespace korvel
