#pragma once

#include <signal.h>
#include <sys/prctl.h>

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace korvel {

/// Keeps all signals from the calling thread for as long as it lives.
class SignalsBlocked {
 public:
  SignalsBlocked() {
    sigset_t all;
    sigfillset(&all);
    pthread_sigmask(SIG_SETMASK, &all, &before_);
  }
  SignalsBlocked(const SignalsBlocked&) = delete;
  SignalsBlocked& operator=(const SignalsBlocked&) = delete;
  ~SignalsBlocked() { pthread_sigmask(SIG_SETMASK, &before_, nullptr); }

 private:
  sigset_t before_;
};

/// A thread that no signal is delivered to: those are the main thread's. It takes the mask over
/// from the thread that makes it. std::system_error where there is no thread to be had.
template <typename Work>
std::thread threadWithoutSignals(Work work) {
  const SignalsBlocked blocked;
  return std::thread(std::move(work));
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

/// What the host thread is doing, to be shown when it does not answer.
struct Activity {
  std::string what;  ///< "message EditSaved"; empty for nothing in particular
  std::chrono::steady_clock::time_point since;
};

/// Names what the host thread does for as long as it lives; what was named before is named again
/// afterwards. Host thread.
class ActivityScope {
 public:
  explicit ActivityScope(std::string what);
  ActivityScope(const ActivityScope&) = delete;
  ActivityScope& operator=(const ActivityScope&) = delete;
  ~ActivityScope();

 private:
  Activity before_;
};

/// The activity of the host thread now. Any thread; never waits for the host thread.
Activity currentActivity();

/// Something that the host thread waits for beside its queues, as a socket that it reads itself
/// while it has nothing else to do. Called on the host thread.
class iIdleSource {
 public:
  virtual ~iIdleSource() = default;

  /// A wait begins: the descriptor to be waited for as well, or -1 for none now.
  virtual int beginWait() = 0;

  /// The wait is over; whether there is something at the descriptor. May queue deliveries.
  virtual void endWait(bool isReadable) = 0;
};

/// The station's one host thread: documents, managers, notifications and the delivery of datagrams
/// all run on it.
///
/// Two lanes lead to it. Tasks (commands, timers' work) are never lost. Deliveries (datagrams) are
/// bounded in count and in bytes, and refused beyond that, so that a flood cannot take the
/// machine's memory. run() takes from the two in turn, each in order, so that neither starves the
/// other.
class HostThread {
 public:
  using Task = std::function<void()>;

  static constexpr std::size_t kMaxDeliveries = 400'000;
  static constexpr std::size_t kMaxDeliveryBytes = 256u << 20;

  HostThread();
  HostThread(const HostThread&) = delete;
  HostThread& operator=(const HostThread&) = delete;
  ~HostThread();

  /// Queues a task. Any thread.
  void post(Task task);

  /// Queues a task once `delay` has passed. Any thread.
  void postAfter(std::chrono::nanoseconds delay, Task task);

  /// Queues the delivery of something of `bytes` size; false when the lane is full and nothing was
  /// queued. Any thread.
  bool postDelivery(Task delivery, std::size_t bytes);

  /// Has run() wait for this as well, or no longer. The source must live until then. On the host
  /// thread, or while run() does not run.
  void waitFor(iIdleSource& source) { sources_.push_back(&source); }
  void waitNoMoreFor(iIdleSource& source) { std::erase(sources_, &source); }

  /// Runs what is queued on the calling thread, which is the host thread from now on, until stop()
  /// was called.
  void run();

  /// Runs what is queued now and returns; for tests and for the end of the program.
  void runPending();

  /// Makes run() return after the current task. Any thread, and signal-safe it is not.
  void stop();

 private:
  struct Delivery {
    Task task;
    std::size_t bytes;
  };

  using Clock = std::chrono::steady_clock;

  bool takeNext(Task& next, bool wait);
  void waitForWork(std::unique_lock<std::mutex>& lock);
  void waitUntil(Clock::time_point time);
  void queueWhatIsDue();
  void wake();

  std::mutex mutex_;
  const int wake_;  ///< readable when something was queued while the thread waited
  std::atomic<bool> isWaiting_{false};
  std::vector<iIdleSource*> sources_;
  std::deque<Task> tasks_;
  std::multimap<Clock::time_point, Task> later_;
  std::deque<Delivery> deliveries_;
  std::size_t deliveryBytes_ = 0;
  bool deliveryTurn_ = false;
  bool stopped_ = false;
};

}  // namespace korvel
