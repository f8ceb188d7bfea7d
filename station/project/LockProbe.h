#pragma once

#include <functional>
#include <string>

#include "host/base/LightweightString.h"
#include "host/os/iFileManager.h"
#include "station/base/Result.h"

namespace korvel {

/// What a look at a lock file shows, without taking it.
enum class LockState {
  eFree,
  eHeld,        ///< a station holds it, perhaps this one
  eLeftBehind,  ///< the file is there and nobody holds it: its station is gone
  eUnknown,     ///< the file may not be looked at, or the file system offers no locks
};

/// Looks at a lock file without taking it, asked freshly.
LockState lookAtLock(const LightweightString<wchar_t>& lockFile);

/// Looks whether a lock that this station gave up is gone, and removes it if its file stayed:
/// others would take this station for one that died. What cannot be removed is told (`what`: "Room
/// \"Sound\"").
void clearGivenUp(const std::string& what, const LightweightString<wchar_t>& lockFile);

/// How lists show a state: "free", "held", "left behind", "unknown".
std::string lockStateText(LockState state);

/// The holder's name as it may be shown. `ask` reads it; while it reads nothing it is asked again,
/// for 100 ms in all, since a holder writes its name only after it has won. Empty when it stays
/// unreadable.
std::string awaitHolder(const std::function<LightweightString<wchar_t>()>& ask);

/// Who holds it, in words: the name, or that it cannot be read yet.
std::string holderText(const std::string& holder);

/// The refusal of a lock (`what`: "Room \"Sound\"") that the file manager gave for `reason`; `ask`
/// reads the holder's name, `advice` is what the user can do when it is held.
Error lockRefusal(const std::string& what, eFileError reason,
                  const std::function<LightweightString<wchar_t>()>& ask,
                  const std::string& advice);

}  // namespace korvel
