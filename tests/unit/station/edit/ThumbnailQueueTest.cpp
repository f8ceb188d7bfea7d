#include "station/edit/ThumbnailQueue.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <future>
#include <vector>

using namespace korvel;

namespace {

bool becomesIdle(const ThumbnailRenderTaskQueue& queue) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!queue.isIdle() && std::chrono::steady_clock::now() < deadline) std::this_thread::yield();
  return queue.isIdle();
}

TEST(ThumbnailQueue, IsIdleWhileNothingIsQueued) {
  EXPECT_TRUE(ThumbnailRenderTaskQueue::instance().isIdle());
}

TEST(ThumbnailQueue, IsNotIdleUntilTheLastTaskIsDone) {
  ThumbnailQueue queue;
  std::promise<void> gate;
  std::shared_future<void> opened = gate.get_future().share();
  queue.add([opened] { opened.wait(); });
  EXPECT_FALSE(queue.isIdle());
  gate.set_value();
  EXPECT_TRUE(becomesIdle(queue));
}

TEST(ThumbnailQueue, WorksInOrderOnAThreadOfItsOwn) {
  ThumbnailQueue queue;
  std::vector<int> done;
  std::atomic<bool> isOwnThread = false;
  const std::thread::id here = std::this_thread::get_id();
  for (int number = 0; number < 100; ++number) {
    queue.add([&, number] {
      done.push_back(number);
      isOwnThread = std::this_thread::get_id() != here;
    });
  }
  ASSERT_TRUE(becomesIdle(queue));
  EXPECT_TRUE(isOwnThread);
  ASSERT_EQ(done.size(), 100U);
  EXPECT_TRUE(std::is_sorted(done.begin(), done.end()));
}

TEST(ThumbnailQueue, DropsWhatWaitsWhenItEnds) {
  std::atomic<int> ran = 0;
  std::promise<void> started;
  {
    ThumbnailQueue queue;
    queue.add([&] {
      started.set_value();
      ++ran;
    });
    started.get_future().wait();
  }
  EXPECT_EQ(ran, 1);
}

}  // namespace
