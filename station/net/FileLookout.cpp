#include "station/net/FileLookout.h"

#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <utility>

#include "station/base/QuietThread.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPause = std::chrono::milliseconds(100);
constexpr auto kLongest = std::chrono::milliseconds(1100);
constexpr auto kTimeToEnd = std::chrono::seconds(1);

}  // namespace

/// What the lookout and its thread share; lives until both are done.
class FileLookout::Looks {
 public:
  void add(const std::string& path, Found found) {
    {
      const std::lock_guard lock(mutex_);
      awaited_.push_back({path, std::move(found), Clock::now() + kLongest});
    }
    changes_.notify_all();
  }

  /// The thread's work.
  void look() {
    std::unique_lock lock(mutex_);
    while (!isEnding_) {
      if (awaited_.empty()) {
        changes_.wait(lock);
      } else {
        lookAtEach(lock);
        changes_.wait_for(lock, kPause, [this] { return isEnding_; });
      }
    }
    hasEnded_ = true;
    changes_.notify_all();
  }

  /// Asks the thread to end; whether it did so in time.
  bool end() {
    std::unique_lock lock(mutex_);
    isEnding_ = true;
    changes_.notify_all();
    return changes_.wait_for(lock, kTimeToEnd, [this] { return hasEnded_; });
  }

 private:
  struct Awaited {
    std::string path;
    Found found;
    Clock::time_point until;
  };

  void lookAtEach(std::unique_lock<std::mutex>& lock) {
    std::list<Awaited> current = std::move(awaited_);
    awaited_.clear();
    for (Awaited& each : current) {
      lock.unlock();
      const bool isThere = existsFresh(each.path);
      lock.lock();
      if (isEnding_) return;
      if (isThere) {
        each.found();
      } else if (Clock::now() < each.until) {
        awaited_.push_back(std::move(each));
      }
    }
  }

  std::mutex mutex_;
  std::condition_variable changes_;
  std::list<Awaited> awaited_;
  bool isEnding_ = false;
  bool hasEnded_ = false;
};

FileLookout::FileLookout()
    : looks_(std::make_shared<Looks>()),
      thread_(threadWithoutSignals([looks = looks_] { looks->look(); })) {}

FileLookout::~FileLookout() {
  if (looks_->end()) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

void FileLookout::await(const std::string& path, Found found) {
  looks_->add(path, std::move(found));
}

}  // namespace korvel
