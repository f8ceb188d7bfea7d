#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <string>

#include "host/os/iFileManager.h"
#include "tools/base/ChildProcess.h"

namespace korvel {

/// How an exclusive open came out.
struct OpenOutcome {
  Kv::Ptr<iFile> file;  ///< open where it was won
  eFileError problem = eFileError::eNone;
};

/// Opens a file exclusively, as a station takes a lock; makes it where it is missing.
using ExclusiveOpen = std::function<OpenOutcome(const std::string& path)>;

/// The station's own file manager.
OpenOutcome openAsStationsDo(const std::string& path);

/// A process that holds a file exclusively until it is killed or this is destroyed.
class LockHolder {
 public:
  /// Waits until the process holds the file or could not take it.
  LockHolder(const ExclusiveOpen& open, const std::string& path);
  [[nodiscard]] bool isHolding() const { return problem_ == eFileError::eNone; }
  [[nodiscard]] eFileError problem() const { return problem_; }

  /// kill -9.
  void kill() { child_.kill(); }

 private:
  ChildProcess child_;
  eFileError problem_ = eFileError::eOther;
};

/// Opens until it is won or `patience` is over; how long it took, or nothing.
std::optional<std::chrono::milliseconds> timeUntilFree(const ExclusiveOpen& open,
                                                       const std::string& path,
                                                       std::chrono::milliseconds patience);

/// Why a file could not be opened exclusively, and what to do: "the file system offers no locks,
/// ...". Not for one that is held.
std::string refusalText(eFileError problem);

}  // namespace korvel
