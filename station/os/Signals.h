#pragma once

#include <functional>
#include <thread>

namespace korvel {

/// Takes SIGINT, SIGTERM and SIGHUP for the whole program: the first calls a function, on a thread
/// of this object; a second one ends the program at once, for a share that does not answer. SIGPIPE
/// is ignored from now on: who writes sees the failure. An interrupt may be taken by somebody who
/// does not end for it, such as the reader of a line; that one does not count.
///
/// To be made before other threads, which inherit that these signals are blocked.
class Signals {
 public:
  /// Whether an interrupt (SIGINT) was taken.
  using TakeInterrupt = std::function<bool()>;

  explicit Signals(std::function<void()> onFirst, TakeInterrupt takeInterrupt = {});
  Signals(const Signals&) = delete;
  Signals& operator=(const Signals&) = delete;

  /// Takes signals no longer; they stay blocked.
  ~Signals();

 private:
  void watch();

  std::function<void()> onFirst_;
  TakeInterrupt takeInterrupt_;
  int signals_ = -1;
  int stop_ = -1;
  std::thread thread_;
};

}  // namespace korvel
