#pragma once

#include <chrono>
#include <string>

namespace korvel {

/// What the host thread is at, for whoever wonders why it does not answer.
struct Activity {
  std::string what;  ///< "message EditSaved"; empty for nothing in particular
  std::chrono::steady_clock::time_point since;
};

/// Names what the host thread does for as long as it lives; what was named before is named again
/// afterwards. Host thread.
class ActivityScope {
 public:
  explicit ActivityScope(std::string what);
  ActivityScope(const ActivityScope&) = delete;
  ActivityScope& operator=(const ActivityScope&) = delete;
  ~ActivityScope();

 private:
  Activity before_;
};

/// What is named now. Any thread; never waits for the host thread.
Activity currentActivity();

}  // namespace korvel
