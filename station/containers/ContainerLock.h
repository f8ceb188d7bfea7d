#pragma once

#include <string>

#include "host/base/Ptr.h"
#include "station/base/Result.h"

class iFile;

namespace korvel {

/// Keeps other stations from changing one container while this one reads, changes and writes it.
///
/// The lock is the exclusive open of a hidden file beside the container's (".<cookie>.json.lock").
/// It is held for the few milliseconds of one change, and ends with this object, or with this
/// station. Host thread.
class ContainerLock {
 public:
  /// Takes the lock of the container with this file; waits up to two seconds for a station that
  /// holds it.
  explicit ContainerLock(const std::string& containerFile);
  ContainerLock(const ContainerLock&) = delete;
  ContainerLock& operator=(const ContainerLock&) = delete;

  /// Gives the lock up and removes its file.
  ~ContainerLock();

  /// Success while the lock is held; else why it is not.
  [[nodiscard]] const Result<void>& taken() const { return taken_; }

 private:
  std::string path_;
  Kv::Ptr<iFile> file_;
  Result<void> taken_;
};

}  // namespace korvel
