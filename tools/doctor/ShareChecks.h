#pragma once

#include "tools/base/MountInfo.h"
#include "tools/doctor/Check.h"
#include "tools/doctor/DoctorFacts.h"

namespace korvel {

/// What a projects directory needs, tried as stations use it; the facts must outlive the checks.
std::vector<Check> shareChecks(const DoctorFacts& facts);

/// How much free space is little, and how much is none. Bytes; `files` are those that can still be
/// made, of `allFiles` (0 where the file system does not count them).
Findings judgeSpace(unsigned long long freeBytes, unsigned long long files,
                    unsigned long long allFiles);

/// The folder's group and its bits, by its mode.
Findings judgeGroup(unsigned mode, const std::string& path);

/// How far the machine's clock is before (positive) or behind the share's, in seconds.
Findings judgeClock(double seconds);

/// The mount that holds a folder, by the facts' mountinfo; nothing where it cannot be read.
std::optional<Mount> mountOfFolder(const DoctorFacts& facts);

}  // namespace korvel
