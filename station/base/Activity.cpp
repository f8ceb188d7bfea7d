#include "station/base/Activity.h"

#include <mutex>
#include <utility>

namespace korvel {

namespace {

std::mutex mutex;
Activity now;

Activity exchange(Activity next) {
  const std::lock_guard lock(mutex);
  return std::exchange(now, std::move(next));
}

}  // namespace

ActivityScope::ActivityScope(std::string what)
    : before_(exchange({std::move(what), std::chrono::steady_clock::now()})) {}

ActivityScope::~ActivityScope() { exchange(std::move(before_)); }

Activity currentActivity() {
  const std::lock_guard lock(mutex);
  return now;
}

}  // namespace korvel
