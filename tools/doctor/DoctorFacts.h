#pragma once

#include <string>

#include "station/base/StationSettings.h"
#include "tools/doctor/LockTrial.h"

namespace korvel {

/// What the checks look at: a station as it would be started here, and where the machine tells of
/// itself.
struct DoctorFacts {
  StationSettings station;
  int port = 27015;
  std::string mountInfo = "/proc/self/mountinfo";
  std::string largestBuffer = "/proc/sys/net/core/rmem_max";
  ExclusiveOpen open = openAsStationsDo;
};

}  // namespace korvel
