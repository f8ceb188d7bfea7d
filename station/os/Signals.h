#pragma once

#include <functional>
#include <thread>

namespace korvel {

/// Takes SIGINT, SIGTERM and SIGHUP for the whole program: the first calls a function, on a thread
/// of this object; a second one ends the program at once, for a share that does not answer. SIGPIPE
/// is ignored from now on: who writes sees the failure.
///
/// To be made before other threads, which inherit that these signals are blocked.
class Signals {
 public:
  explicit Signals(std::function<void()> onFirst);
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Takes signals no longer; they stay blocked.
  ~Signals();

 private:
  void watch();

  std::function<void()> onFirst_;
  int signals_ = -1;
  int stop_ = -1;
  std::thread thread_;
};

}  // namespace korvel
