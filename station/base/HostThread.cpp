#include "station/base/HostThread.h"

#include <mutex>
#include <utility>

#include "station/base/HostParts.h"

namespace korvel {

namespace {

std::mutex mutex;
Activity theActivity;

Activity exchange(Activity next) {
  const std::lock_guard lock(mutex);
  return std::exchange(theActivity, std::move(next));
}

}  // namespace

ActivityScope::ActivityScope(std::string what)
    : before_(exchange({std::move(what), std::chrono::steady_clock::now()})) {}

ActivityScope::~ActivityScope() { exchange(std::move(before_)); }

Activity currentActivity() {
  const std::lock_guard lock(mutex);
  return theActivity;
}

void HostThread::post(Task task) {
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  wake_.notify_one();
}

void HostThread::postAfter(std::chrono::milliseconds delay, Task task) {
  {
    const std::lock_guard lock(mutex_);
    later_.emplace(Clock::now() + delay, std::move(task));
  }
  wake_.notify_one();
}

bool HostThread::postDelivery(Task delivery, std::size_t bytes) {
  {
    const std::lock_guard lock(mutex_);
    if (deliveries_.size() >= kMaxDeliveries || deliveryBytes_ + bytes > kMaxDeliveryBytes) {
      return false;
    }
    deliveries_.push_back({std::move(delivery), bytes});
    deliveryBytes_ += bytes;
  }
  wake_.notify_one();
  return true;
}

void HostThread::run() {
  Task next;
  while (takeNext(next, true)) next();
}

void HostThread::runPending() {
  Task next;
  while (takeNext(next, false)) next();
}

void HostThread::stop() {
  {
    const std::lock_guard lock(mutex_);
    stopped_ = true;
  }
  wake_.notify_one();
}

bool HostThread::takeNext(Task& next, bool wait) {
  // What the last task holds is released before this thread waits, and without the lock.
  next = nullptr;
  std::unique_lock lock(mutex_);
  queueWhatIsDue();
  if (wait) waitForWork(lock);
  if (wait && stopped_) return false;
  if (tasks_.empty() && deliveries_.empty()) return false;
  // In turn: a flood of messages must not keep commands waiting, nor the other way round.
  deliveryTurn_ = !deliveryTurn_;
  if (tasks_.empty() || (deliveryTurn_ && !deliveries_.empty())) {
    deliveryBytes_ -= deliveries_.front().bytes;
    next = std::move(deliveries_.front().task);
    deliveries_.pop_front();
  } else {
    next = std::move(tasks_.front());
    tasks_.pop_front();
  }
  return true;
}

void HostThread::waitForWork(std::unique_lock<std::mutex>& lock) {
  while (!stopped_ && tasks_.empty() && deliveries_.empty()) {
    if (later_.empty()) {
      wake_.wait(lock);
    } else {
      wake_.wait_until(lock, Clock::time_point(later_.begin()->first));
    }
    queueWhatIsDue();
  }
}

void HostThread::queueWhatIsDue() {
  if (later_.empty()) return;
  const auto end = later_.upper_bound(Clock::now());
  for (auto each = later_.begin(); each != end; ++each) tasks_.push_back(std::move(each->second));
  later_.erase(later_.begin(), end);
}

HostParts& hostParts() {
  static HostParts parts;
  return parts;
}

}  // namespace korvel
