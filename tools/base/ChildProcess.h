#pragma once

#include <sys/types.h>

#include <chrono>
#include <functional>
#include <string>

#include "station/os/Posix.h"

namespace korvel {

/// A process that runs a function, and a pipe by which it answers. It ends with the function, with
/// its parent, with kill() or when this is destroyed.
class ChildProcess {
 public:
  /// `work` gets the descriptor to write answers to.
  explicit ChildProcess(const std::function<void(int pipe)>& work);
  ChildProcess(const ChildProcess&) = delete;
  ChildProcess& operator=(const ChildProcess&) = delete;
  ~ChildProcess();

  /// kill -9. Waits until the process is gone, a fifth of a second at most: one that the system
  /// does not let die, since its mount hangs, is left to itself.
  void kill();

  enum class Reading { eGot, eEnded, eLate };

  /// Waits for a piece of the answer and appends it to `bytes`.
  Reading read(std::chrono::steady_clock::time_point deadline, std::string& bytes);

 private:
  Descriptor pipe_;
  pid_t process_ = -1;
};

}  // namespace korvel
