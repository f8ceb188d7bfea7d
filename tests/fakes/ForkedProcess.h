#pragma once

#include <sys/types.h>

#include <functional>

namespace korvel {

/// A pipe through which one process tells another that something happened.
class Signal {
 public:
  Signal();
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;
  ~Signal();

  void send() const;

  /// True when the signal was sent within ten seconds.
  [[nodiscard]] bool wait() const;

 private:
  int ends_[2];
};

/// A function that runs in a forked process; its result is the exit status. Killed and waited for
/// when destroyed.
class ForkedProcess {
 public:
  explicit ForkedProcess(const std::function<int()>& function);
  ForkedProcess(const ForkedProcess&) = delete;
  ForkedProcess& operator=(const ForkedProcess&) = delete;
  ~ForkedProcess();

  /// SIGKILL; returns when the process is gone.
  void kill();

  /// The exit status, or -1 when a signal ended the process.
  int wait();

 private:
  pid_t pid_;
};

/// Runs a function in a forked process that may not do more than an ordinary user; its result.
int runAsOrdinaryUser(const std::function<int()>& function);

/// Runs a function in a forked process where a file system of one page is mounted at `folder`,
/// read-only if `readOnly` is not 0; its result, or -2 where this system allows no mounts.
int runWithTinyFileSystem(const char* folder, int readOnly, const std::function<int()>& function);

}  // namespace korvel
