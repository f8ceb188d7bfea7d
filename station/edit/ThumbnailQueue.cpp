#include "station/edit/ThumbnailQueue.h"

#include <utility>

using namespace korvel;

ThumbnailRenderTaskQueue& ThumbnailRenderTaskQueue::instance() {
  static ThumbnailQueue queue;
  return queue;
}

namespace korvel {

ThumbnailQueue::~ThumbnailQueue() {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  wake_.notify_one();
  if (worker_.joinable()) worker_.join();
}

void ThumbnailQueue::add(Task task) {
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(task));
    if (!worker_.joinable()) worker_ = std::thread([this] { work(); });
  }
  wake_.notify_one();
}

bool ThumbnailQueue::isIdle() const {
  const std::lock_guard lock(mutex_);
  return tasks_.empty() && !isRendering_;
}

void ThumbnailQueue::work() {
  std::unique_lock lock(mutex_);
  while (true) {
    wake_.wait(lock, [this] { return isEnding_ || !tasks_.empty(); });
    if (isEnding_) return;
    const Task task = std::move(tasks_.front());
    tasks_.pop_front();
    isRendering_ = true;
    lock.unlock();
    // Without the lock, so that the host thread can queue more meanwhile.
    task();
    lock.lock();
    isRendering_ = false;
  }
}

}  // namespace korvel
