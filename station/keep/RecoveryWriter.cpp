#include "station/keep/RecoveryWriter.h"

#include <exception>
#include <utility>

namespace korvel {

RecoveryWriter::~RecoveryWriter() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  changed_.notify_all();
  if (thread_.joinable()) thread_.join();
}

void RecoveryWriter::add(Job job) {
  {
    const std::lock_guard lock(mutex_);
    jobs_.push_back(std::move(job));
    if (!thread_.joinable()) thread_ = std::thread([this] { work(); });
  }
  changed_.notify_all();
}

void RecoveryWriter::finish() {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return jobs_.empty() && !isBusy_; });
}

void RecoveryWriter::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return !jobs_.empty() || isEnding_; });
    if (jobs_.empty()) return;
    const Job job = std::move(jobs_.front());
    jobs_.pop_front();
    isBusy_ = true;
    lock.unlock();
    try {
      job();
    } catch (const std::exception&) {
      // Without memory this change is not kept now; the next one of the edit is written whole.
    }
    lock.lock();
    isBusy_ = false;
    changed_.notify_all();
  }
}

}  // namespace korvel
