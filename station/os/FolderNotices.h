#pragma once

#include <chrono>
#include <map>
#include <set>
#include <string>

#include "station/os/Posix.h"

namespace korvel {

/// Tells at once when names in folders change on this machine. On a network file system it tells
/// of this machine's own changes alone. One thread waits; wake() may be called by any.
class FolderNotices {
 public:
  using Clock = std::chrono::steady_clock;

  FolderNotices();

  /// Watches a folder, and goes on watching one that was watched before. False where that is not
  /// possible: it is missing, or the machine allows no more watches.
  bool watch(const std::string& folder);

  /// Waits until something changes, wake() is called or the moment has come. The folders that
  /// changed, as given to watch().
  std::set<std::string> await(Clock::time_point until);

  /// Waits until the moment has come, or wake() was called.
  void pause(Clock::time_point until);

  /// Ends this and every later wait at once.
  void wake();

 private:
  std::set<std::string> taken();

  Descriptor notices_;
  Descriptor wakes_;
  std::map<int, std::string> folders_;  ///< by watch number
};

}  // namespace korvel
