#pragma once

#include <string>

#include "host/base/Ptr.h"
#include "station/base/Result.h"

class iFile;

namespace korvel {

/// Keeps other stations from changing one object (an edit, a log, a bin, a rack, a filter) while
/// this one reads, changes and writes its file.
///
/// The lock is the exclusive open of a hidden file beside the object's (".<cookie>.json.lock"). It
/// is held for the few milliseconds of one change, and ends with this object, or with this
/// station. Readers need no lock: every write replaces the file in one step. Host thread.
class ObjectLock {
 public:
  /// Takes the lock of the object with this file; waits up to two seconds for a station that holds
  /// it.
  explicit ObjectLock(const std::string& objectFile);
  ObjectLock(const ObjectLock&) = delete;
  ObjectLock& operator=(const ObjectLock&) = delete;

  /// Gives the lock up and removes its file.
  ~ObjectLock();

  /// Success while the lock is held; else why it is not.
  [[nodiscard]] const Result<void>& taken() const { return taken_; }

 private:
  std::string path_;
  Kv::Ptr<iFile> file_;
  Result<void> taken_;
};

}  // namespace korvel
