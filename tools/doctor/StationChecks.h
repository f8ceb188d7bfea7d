#pragma once

#include "tools/doctor/Check.h"
#include "tools/doctor/DoctorFacts.h"

namespace korvel {

/// The names that a station here would have, by which others know it; the facts must outlive the
/// checks.
std::vector<Check> stationChecks(const DoctorFacts& facts);

/// A user's or host's name (`what`).
Findings judgeName(const std::string& what, const std::string& name);

/// Whether another station has the user's name: by the age of the name's marker in seconds
/// (negative where there is none) and whether a station runs on this machine.
enum class StationHere { eRuns, eNone };
Findings judgeMarker(const std::string& user, long age, StationHere here);

}  // namespace korvel
