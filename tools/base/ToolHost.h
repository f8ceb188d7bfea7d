#pragma once

#include <string>

#include "station/base/HostThread.h"
#include "station/base/Result.h"
#include "station/net/NetworkService.h"
#include "station/os/HostOS.h"

namespace korvel {

/// As much of a station as looking at a projects directory needs: its file manager, without a
/// plug-in and without documents. One at a time.
class ToolHost {
 public:
  explicit ToolHost(const std::string& projectsDirectory);

  /// Whether the directory can be read; the failure says why not.
  [[nodiscard]] Result<void> checkDirectory() const;

 private:
  HostThread hostThread_;
  NetworkService network_;
  HostOS os_;
};

/// What a command line's DIR means: an absolute path without a separator at its end.
std::string directoryOf(const std::string& word);

}  // namespace korvel
