#pragma once

#include <string>
#include <vector>

// What /proc tells of the programs of this machine.

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

/// Where a file is held open, as far as this machine's /proc tells: "kv-station, process 311 on
/// this machine" or that it is no process of this machine that this user can see.
std::string placeOfHolder(const std::string& path);

/// Whether a kv-station runs on this machine.
bool isStationRunning();

}  // namespace korvel
