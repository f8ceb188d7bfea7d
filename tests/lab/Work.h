#pragma once

#include "tests/lab/Facility.h"

/// What people do on one workstation: an edit that is trimmed, renamed and saved, a log, a bin, a
/// rack, a filter, a room and a media file, each made, changed and left. Changes nothing of others.
/// Returns the edit's cookie.
std::string makeThings(Workstation& machine);

/// An edit of this machine's, made before, is trimmed and saved again, then a bin is made and
/// destroyed.
void changeThings(Workstation& machine, const std::string& edit);

/// Every machine makes things; every one opens the edits of all; every one changes its own again,
/// which the others have open by then.
void everyoneWorks(const Facility& facility);

/// Every machine gives its newest edit to the next, which waits for the word of it and changes it.
void everyoneGives(const Facility& facility);
