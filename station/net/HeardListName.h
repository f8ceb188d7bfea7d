#pragma once

#include <string>

#include "station/os/Posix.h"

namespace korvel {

/// The name that a program's list of heard stations has in its folder, and what people call the
/// program there. Programs of one name on this machine are told apart: the first has the plain
/// name, the second has "-2" in the file's and " (2)" in its own. A name is free again when its
/// program has ended, however it ended. Touches no file.
class HeardListName {
 public:
  HeardListName(const std::string& folder, const std::string& station, const std::string& ending);

  [[nodiscard]] const std::string& path() const { return path_; }
  [[nodiscard]] const std::string& station() const { return station_; }

 private:
  std::string path_;
  std::string station_;
  Descriptor claim_;  ///< a socket whose name no other program of this machine can have
};

}  // namespace korvel
