#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace korvel {

/// Does the writing of recovery files on a thread of its own, in order, so that nobody waits for a
/// disk. Any thread.
class RecoveryWriter {
 public:
  using Job = std::function<void()>;

  RecoveryWriter() = default;
  RecoveryWriter(const RecoveryWriter&) = delete;
  RecoveryWriter& operator=(const RecoveryWriter&) = delete;

  /// Does what is queued, then ends.
  ~RecoveryWriter();

  void add(Job job);

  /// Waits until everything that was added before is done.
  void finish();

 private:
  void work();

  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Job> jobs_;
  bool isBusy_ = false;
  bool isEnding_ = false;
  std::thread thread_;  ///< runs from the first job on
};

}  // namespace korvel
