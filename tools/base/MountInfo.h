#pragma once

#include <optional>
#include <string>
#include <vector>

#include "tools/base/Finding.h"

namespace korvel {

/// A mounted file system, as /proc/self/mountinfo has it.
struct Mount {
  std::string point;                 ///< where it is mounted
  std::string type;                  ///< "nfs4", "cifs", "ext4"
  std::string source;                ///< "server:/export"
  std::vector<std::string> options;  ///< of this mount and of the file system: "rw", "vers=4.2"

  /// Whether other machines may have it mounted as well, by what kind it is.
  [[nodiscard]] bool isNetwork() const;
};

/// The mount that a path lies in, by the text of mountinfo; nothing where that names none. `path`
/// is absolute and without symbolic links.
std::optional<Mount> mountOf(const std::string& mountInfo, const std::string& path);

/// One line on what it is, then one for every option that breaks or weakens what stations rely on.
Findings judgeMount(const Mount& mount);

/// The options for which locks hold only within one machine: "nolock", "local_lock=all".
std::vector<std::string> lockBreakersOf(const Mount& mount);

}  // namespace korvel
