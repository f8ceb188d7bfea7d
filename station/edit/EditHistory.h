#pragma once

#include <string>

#include "host/base/Cookie.h"
#include "station/base/Json.h"
#include "station/base/Result.h"
#include "station/edit/EditFile.h"

namespace korvel {

// The kept versions of the open project's edits and logs, as users see them. Host thread.
namespace EditHistory {

/// All versions, the newest first: version, time, user, size, changes, and which one is the file as
/// it is now. One that cannot be read has a problem instead of changes.
Result<JsonValue> list(const Cookie& cookie);

/// What became of `from` in `to`, in words. An empty `to` is the object as it is shown, unsaved
/// changes included; an empty `from` is its file.
Result<JsonValue> compare(const Cookie& cookie, const std::string& from, const std::string& to);

/// The document of a version.
Result<OtioDocument> read(const Cookie& cookie, const std::string& version);

/// Takes up what another wrote into an object's file where that is settings alone (a new owner), so
/// that the object can be saved; false where other content differs.
bool takeChangedSettings(EditFile& edit);

/// Why an object is not saved whose file another changed: who did, when, what differs, and what can
/// be done.
Error refusalOf(const EditFile& edit);

}  // namespace EditHistory

}  // namespace korvel
