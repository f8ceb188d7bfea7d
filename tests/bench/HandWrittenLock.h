#pragma once

#include <string>

namespace korvel {

/// What taking and releasing a lock asks of the system at least, written down by hand: the measure
/// of what the classes in front of it cost.
///
/// Every look at a file comes after one at its folder; a lock is won only when the path still leads
/// to the locked file; a removal takes the lock first; new files take their folder's group and
/// rights.
class HandWrittenLock {
 public:
  explicit HandWrittenLock(const std::string& folder);

  /// Makes the lock file, takes the lock, and writes the name beside it; false on any failure.
  bool take(const std::string& name);

  /// Gives the lock up and removes both files; false on any failure.
  bool release();

  /// Whether the lock file is there.
  bool isOccupied() const;

  /// The first 200 bytes of the name beside the lock; empty when there is none.
  std::string owner() const;

 private:
  bool look() const;
  int openOrMake(const std::string& path) const;
  int openLocked() const;
  bool isAtPath(int file, const std::string& path) const;
  bool writeName(const std::string& name) const;
  bool removeLocked(const std::string& path, const std::string& content) const;

  std::string folder_;
  std::string lock_;
  std::string info_;
  std::string name_;
  int held_ = -1;
};

}  // namespace korvel
