#include "tools/capture/CaptureQueue.h"

#include <utility>

namespace korvel {

void CaptureQueue::add(HeardMessage message) {
  const std::size_t size = sizeof message + message.bytes.size();
  const std::lock_guard lock(mutex_);
  if (bytes_ + size > kMaxWaiting) {
    ++byQueue_;
    return;
  }
  bytes_ += size;
  waiting_.push_back(std::move(message));
  if (waiting_.size() == 1) changed_.notify_one();
}

void CaptureQueue::fail(std::string problem) {
  const std::lock_guard lock(mutex_);
  problem_ = std::move(problem);
  changed_.notify_one();
}

std::vector<HeardMessage> CaptureQueue::take(std::chrono::milliseconds limit) {
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, limit,
                    [this] { return !waiting_.empty() || isWoken_ || !problem_.empty(); });
  isWoken_ = false;
  bytes_ = 0;
  return std::exchange(waiting_, {});
}

void CaptureQueue::wake() {
  const std::lock_guard lock(mutex_);
  isWoken_ = true;
  changed_.notify_one();
}

std::string CaptureQueue::problem() const {
  const std::lock_guard lock(mutex_);
  return problem_;
}

}  // namespace korvel
