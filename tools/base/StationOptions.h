#pragma once

#include <string>
#include <vector>

#include "station/base/Result.h"
#include "station/base/StationSettings.h"

namespace korvel {

/// What a kv-station would be started with here by these words of its command line; its
/// configuration file counts, too. The failure is one for the user of kv-share.
Result<StationSettings> stationOptions(const std::vector<std::string>& words);

}  // namespace korvel
