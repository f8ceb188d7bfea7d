#pragma once

#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

#include "host/edit/ThumbnailRenderTaskQueue.h"

namespace korvel {

/// Works tasks off in order on a thread of its own, which is started by the first of them. The end
/// of the queue waits for the task that runs and drops the others.
class ThumbnailQueue : public ThumbnailRenderTaskQueue {
 public:
  using Task = std::function<void()>;

  ThumbnailQueue() = default;
  ThumbnailQueue(const ThumbnailQueue&) = delete;
  ThumbnailQueue& operator=(const ThumbnailQueue&) = delete;
  ~ThumbnailQueue() override;

  /// Queues a task, which must not throw. Any thread.
  void add(Task task);

  [[nodiscard]] bool isIdle() const override;

 private:
  void work();

  mutable std::mutex mutex_;
  std::condition_variable wake_;
  std::deque<Task> tasks_;
  bool isRendering_ = false;
  bool isEnding_ = false;
  std::thread worker_;
};

}  // namespace korvel
