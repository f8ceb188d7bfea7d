#pragma once

#include <string>
#include <vector>

#include "station/base/HostThread.h"
#include "station/base/Result.h"
#include "station/base/StationSettings.h"
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

/// What a kv-station would be started with here by these words of its command line; its
/// configuration file counts, too. The failure is one for the user of kv-share.
Result<StationSettings> stationOptions(const std::vector<std::string>& words);

}  // namespace korvel
