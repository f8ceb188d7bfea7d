#include "tools/base/ShareTimeout.h"

#include <cstdio>
#include <exception>
#include <iostream>

#include "station/os/Posix.h"
#include "tools/base/ChildProcess.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr char kAnswered = '.';
constexpr char kRests = '-';
constexpr char kFirstStatus = '0';
constexpr auto kBetweenAnswers = std::chrono::milliseconds(50);

/// In the process that looks: the pipe to the one that waits.
int waiting_ = -1;

void tell(char what) {
  if (waiting_ >= 0) writeAll(waiting_, &what, 1);
}

ToolStatus lookSafely(const std::function<ToolStatus()>& look) {
  try {
    return look();
  } catch (const std::exception& error) {
    return toolProblem(eToolFinding, std::string("stopped: ") + error.what());
  }
}

void work(const std::function<ToolStatus()>& look, int pipe) {
  waiting_ = pipe;
  const ToolStatus status = lookSafely(look);
  shareRests();
  std::cout.flush();
  tell(static_cast<char>(kFirstStatus + status));
}

std::string secondsText(std::chrono::milliseconds time) {
  char text[32];
  std::snprintf(text, sizeof text, "%g s", static_cast<double>(time.count()) / 1000);
  return text;
}

}  // namespace

void declareTimeLimit(CommandOptions& options, ShareRequest& request) {
  options.number("--time-limit", "S", request.timeLimit, 1, 3600,
                 "Seconds that the share may be silent before this gives up");
}

ToolStatus lookAtShare(const std::string& directory, std::chrono::milliseconds limit,
                       const std::function<ToolStatus()>& look) {
  std::cout.flush();
  ChildProcess child([&look](int pipe) { work(look, pipe); });
  std::string told;
  for (;;) {
    const bool isResting = told.ends_with(kRests);
    const auto deadline = Clock::now() + (isResting ? std::chrono::hours(1) : limit);
    const ChildProcess::Reading reading = child.read(deadline, told);
    if (reading == ChildProcess::Reading::eEnded) {
      return toolProblem(eToolFinding, "the look at " + directory + " was ended before its answer");
    }
    if (reading == ChildProcess::Reading::eLate && !isResting) {
      return toolProblem(eToolFinding,
                         directory + " did not answer within " + secondsText(limit) +
                             ": see whether its server is up and reached (kv-share doctor); a "
                             "mount that stays so is ended with umount -f -l and mounted again");
    }
    if (told.empty() || told.back() < kFirstStatus) continue;
    return static_cast<ToolStatus>(told.back() - kFirstStatus);
  }
}

void shareAnswered() {
  static Clock::time_point next;
  const auto now = Clock::now();
  if (waiting_ < 0 || now < next) return;
  next = now + kBetweenAnswers;
  tell(kAnswered);
}

void shareRests() { tell(kRests); }

}  // namespace korvel
