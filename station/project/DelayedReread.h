#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

#include "station/base/HostThread.h"

namespace korvel {

/// Second and third looks at what another station said it wrote.
///
/// On a network file system a message can arrive before the file that it announces: for a moment a
/// look finds the old file, and without another look the old content would be shown until the next
/// change. So a file that is read because of a message is read again a little later, and shown if
/// it differs by then. Without delays nothing is. Host thread. One object a process.
class DelayedReread {
 public:
  /// Looks again, and does nothing where all is as it was.
  using Look = std::function<void()>;
  using Delays = std::vector<std::chrono::milliseconds>;

  /// Looks when each of the delays, the shortest first, has passed since the message; some time may
  /// pass beyond it, as long as the first delay and whatever else the host thread does.
  DelayedReread(HostThread& thread, Delays delays);
  DelayedReread(const DelayedReread&) = delete;
  DelayedReread& operator=(const DelayedReread&) = delete;
  ~DelayedReread();

  /// Looks later at the object of this name, in place of what was arranged for it before; changes
  /// made then count as remote. Does nothing where the present change is not remote, and in a
  /// process without this object.
  static void arrange(const std::string& name, Look look);

  /// What a file system of this kind (`statfs::f_type`) wants. Nothing where the opening of a
  /// folder shows what is in it, on NFS and this machine's own disks: a file is in its place before
  /// its message leaves, and what comes later still the watch of the folder finds. 150 ms and 2 s
  /// on others: SMB may show the old content for a second.
  static Delays delaysOn(std::int64_t kind);

  /// The same for the file system that holds a folder; the longest where that cannot be told.
  static Delays delaysIn(const std::string& folder);

 private:
  using Clock = std::chrono::steady_clock;

  struct Arranged {
    Look look;
    Clock::time_point message;
    std::size_t done = 0;  ///< how many of the delays are over
  };

  void add(const std::string& name, Look look);
  void postSweep(std::chrono::milliseconds delay);
  void sweep();
  std::vector<Look> takeDue();

  HostThread& thread_;
  Delays delays_;
  std::map<std::string, Arranged> arranged_;
  bool isPosted_ = false;
};

}  // namespace korvel
