#pragma once

#include <signal.h>

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

}  // namespace korvel
