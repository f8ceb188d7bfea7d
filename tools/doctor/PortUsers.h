#pragma once

#include <string>
#include <vector>

namespace korvel {

/// A program that has a UDP port; its name is empty where this user may not see it.
struct PortUser {
  std::string program;
  int process = 0;
};

/// The programs of this machine that have a UDP port bound, as /proc tells. `proc` is its path.
std::vector<PortUser> usersOfPort(int port, const std::string& proc = "/proc");

/// "dnsmasq (process 311), 2 that this user may not see"
std::string namesOf(const std::vector<PortUser>& users);

}  // namespace korvel
