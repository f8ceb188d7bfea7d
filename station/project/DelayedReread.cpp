#include "station/project/DelayedReread.h"

#include <sys/vfs.h>
#include <utility>

#include "station/base/Events.h"
#include "station/os/Posix.h"

namespace korvel {

namespace {

/// Looks in one task of the host thread: the station goes on answering in between.
constexpr std::size_t kMostAtOnce = 50;

DelayedReread* theDelayedReread = nullptr;

}  // namespace

DelayedReread::DelayedReread(HostThread& thread, Delays delays)
    : thread_(thread), delays_(std::move(delays)) {
  theDelayedReread = this;
}

DelayedReread::~DelayedReread() {
  if (theDelayedReread == this) theDelayedReread = nullptr;
}

DelayedReread::Delays DelayedReread::delaysOn(std::int64_t kind) {
  if (isFreshOnceOpened(kind)) return {};
  return {std::chrono::milliseconds(150), std::chrono::milliseconds(2000)};
}

DelayedReread::Delays DelayedReread::delaysIn(const std::string& folder) {
  struct statfs system {};
  return delaysOn(::statfs(folder.c_str(), &system) == 0 ? system.f_type : 0);
}

void DelayedReread::arrange(const std::string& name, Look look) {
  if (!theDelayedReread || theDelayedReread->delays_.empty()) return;
  if (currentOrigin() == Origin::eRemote) theDelayedReread->add(name, std::move(look));
}

void DelayedReread::add(const std::string& name, Look look) {
  arranged_[name] = {std::move(look), Clock::now(), 0};
  if (!isPosted_) postSweep(delays_.front());
}

void DelayedReread::postSweep(std::chrono::milliseconds delay) {
  isPosted_ = true;
  thread_.postAfter(delay, [this] { sweep(); });
}

void DelayedReread::sweep() {
  const std::vector<Look> due = takeDue();
  {
    const RemoteChangeScope remote;
    for (const Look& look : due) look();
  }
  // Only now: a look that arranges another one must not post a second sweep.
  isPosted_ = false;
  const bool isMoreDue = due.size() == kMostAtOnce;
  if (!arranged_.empty()) postSweep(isMoreDue ? std::chrono::milliseconds(0) : delays_.front());
}

std::vector<DelayedReread::Look> DelayedReread::takeDue() {
  const auto now = Clock::now();
  std::vector<Look> due;
  for (auto each = arranged_.begin(); each != arranged_.end() && due.size() < kMostAtOnce;) {
    Arranged& arranged = each->second;
    const bool isDue = now >= arranged.message + delays_[arranged.done];
    if (isDue) due.push_back(arranged.look);
    const bool isOver = isDue && ++arranged.done == delays_.size();
    each = isOver ? arranged_.erase(each) : std::next(each);
  }
  return due;
}

}  // namespace korvel
