#pragma once

#include <signal.h>
#include <sys/prctl.h>

#include <thread>
#include <utility>

namespace korvel {

/// A thread that no signal is delivered to: those are the main thread's.
template <typename Work>
std::thread threadWithoutSignals(Work work) {
  sigset_t all;
  sigset_t before;
  sigfillset(&all);
  pthread_sigmask(SIG_SETMASK, &all, &before);
  std::thread thread(std::move(work));
  pthread_sigmask(SIG_SETMASK, &before, nullptr);
  return thread;
}

/// The same for a thread that looks at the share by the clock. It bears the name "kv-watch", by
/// which tools tell it from those that do what a user asked for.
template <typename Work>
std::thread watchThread(Work work) {
  return threadWithoutSignals([work = std::move(work)]() mutable {
    ::prctl(PR_SET_NAME, "kv-watch");
    work();
  });
}

}  // namespace korvel
