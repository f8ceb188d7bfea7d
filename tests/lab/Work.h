#pragma once

#include <functional>
#include <string>

#include "tests/lab/Facility.h"

namespace korvel {

/// What people do on one workstation: an edit that is trimmed, renamed and saved, a log, a bin, a
/// rack, a filter and a media file, each made and changed, in a room of its own. Changes nothing of
/// others. Returns the edit's cookie.
std::string makeThings(Workstation& machine);

/// An edit of this machine's, made before, is trimmed and saved again, a bin of it destroyed, the
/// room left.
void changeThings(Workstation& machine, const std::string& edit);

/// Every machine makes things, all at once; every one opens the edits that it lists; every one
/// changes its own again, which the others have open by then.
void everyoneWorks(const Facility& facility);

/// Every machine gives an edit to the next, which waits for the word of it and changes it.
void everyoneGives(const Facility& facility);

/// Does something for every machine that is on, for all at the same time.
void atOnce(const Facility& facility, const std::function<void(Workstation&)>& work);

}  // namespace korvel
