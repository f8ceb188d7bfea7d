#pragma once

#include <string>
#include <vector>

#include "host/base/Cookie.h"
#include "station/edit/OtioClips.h"
#include "station/keep/TrashFolder.h"

namespace korvel {

// What the local user did with edits and logs, noted so that it can be undone (UndoList). Each is
// undone only where the object still is as it was left. To be called right after it was done. Host
// thread.
namespace EditSteps {

/// A clip, which is as `before` shows it no longer, was trimmed.
void noteTrim(const Cookie& cookie, const ClipInfo& before);

void noteRename(const Cookie& cookie, const std::string& before);

/// The object was given away by this owner. Although the user may not change it any more, it is
/// taken back as long as nobody saved it since.
void noteGift(const Cookie& cookie, const std::string& before);

/// Objects were moved to the trash, of which the first had this name.
void noteDeletion(const std::vector<Trashed>& trashed, const std::string& name);

}  // namespace EditSteps

}  // namespace korvel
