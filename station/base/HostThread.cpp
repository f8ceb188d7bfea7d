#include "station/base/HostThread.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <ctime>
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

HostThread::HostThread() : wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {}

HostThread::~HostThread() {
  if (wake_ >= 0) ::close(wake_);
}

void HostThread::post(Task task) {
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
  }
  wake();
}

void HostThread::postAfter(std::chrono::nanoseconds delay, Task task) {
  {
    const std::lock_guard lock(mutex_);
    later_.emplace(Clock::now() + delay, std::move(task));
  }
  wake();
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
  wake();
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
  wake();
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
    const auto until = later_.empty() ? Clock::time_point::max() : later_.begin()->first;
    isWaiting_ = true;
    lock.unlock();
    waitUntil(until);
    lock.lock();
    queueWhatIsDue();
  }
}

namespace {

/// Without a descriptor to be woken by, the thread looks this often whether something was queued.
constexpr auto kWithoutWake = std::chrono::milliseconds(50);

timespec timeUntil(std::chrono::steady_clock::time_point time) {
  const auto left = time - std::chrono::steady_clock::now();
  const auto nanoseconds = std::max<std::int64_t>(std::chrono::nanoseconds(left).count(), 0);
  constexpr std::int64_t kSecond = 1'000'000'000;
  return {nanoseconds / kSecond, nanoseconds % kSecond};
}

}  // namespace

void HostThread::waitUntil(Clock::time_point time) {
  std::vector<pollfd> awaited{{wake_, POLLIN, 0}};
  for (iIdleSource* const each : sources_) awaited.push_back({each->beginWait(), POLLIN, 0});
  if (wake_ < 0) time = std::min(time, Clock::now() + kWithoutWake);
  const bool hasEnd = time != Clock::time_point::max();
  const timespec left = hasEnd ? timeUntil(time) : timespec{};
  if (::ppoll(awaited.data(), awaited.size(), hasEnd ? &left : nullptr, nullptr) <= 0) {
    for (pollfd& each : awaited) each.revents = 0;
  }
  isWaiting_ = false;
  eventfd_t count = 0;
  if (awaited[0].revents != 0) ::eventfd_read(wake_, &count);
  for (std::size_t i = 0; i < sources_.size(); ++i) {
    sources_[i]->endWait(awaited[i + 1].revents != 0);
  }
}

void HostThread::wake() {
  if (isWaiting_.exchange(false) && wake_ >= 0) ::eventfd_write(wake_, 1);
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
