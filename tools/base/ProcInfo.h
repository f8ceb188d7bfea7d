#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/base/Tool.h"

// What /proc tells about programs and mounts of this machine.

namespace korvel {

/// A program that has a UDP port bound. Its name is empty, and its process 0, where this user may
/// not see it.
struct PortUser {
  std::string program;
  int process = 0;
};

/// The programs of this machine that have a UDP port bound, as /proc tells. `proc` is its path.
std::vector<PortUser> usersOfPort(int port, const std::string& proc = "/proc");

/// "dnsmasq (process 311), 2 that this user may not see"
std::string namesOf(const std::vector<PortUser>& users);

/// Where a file is held open, by this machine's /proc: "kv-station, process 311 on this machine",
/// or a text that it is no process that this user can see.
std::string placeOfHolder(const std::string& path);

/// Whether a kv-station runs on this machine.
bool isStationRunning();

/// A mounted file system, as /proc/self/mountinfo has it.
struct Mount {
  std::string point;                 ///< where it is mounted
  std::string type;                  ///< "nfs4", "cifs", "ext4"
  std::string source;                ///< "server:/export"
  std::vector<std::string> options;  ///< of this mount and of the file system: "rw", "vers=4.2"

  /// Whether other machines may have the file system mounted as well, by its type.
  [[nodiscard]] bool isNetwork() const;
};

/// The mount that a path lies in, by the text of mountinfo; nothing where no line fits. `path` is
/// absolute and without symbolic links.
std::optional<Mount> mountOf(const std::string& mountInfo, const std::string& path);

/// One finding that describes the mount, then one for every option that breaks or weakens what
/// stations rely on.
Findings judgeMount(const Mount& mount);

/// The options of the mount that keep locks within one machine: "nolock", "local_lock=all".
std::vector<std::string> lockBreakersOf(const Mount& mount);

}  // namespace korvel
