#include "station/watch/FolderWatch.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>
#include <utility>

#include "station/base/HostThread.h"
#include "station/os/FolderListing.h"

namespace korvel {

namespace {

constexpr std::chrono::nanoseconds kTick(kCoarsestTick);

/// What one report may hold: the host thread does nothing else while it takes one.
constexpr std::size_t kMostFiles = 64;
constexpr std::size_t kMostBytes = std::size_t{32} << 20;

/// Whether a second try to read the file may succeed.
bool mayPass(const Result<std::string>& bytes) {
  return !bytes &&
         (bytes.error().code == ErrorCode::eSystem || bytes.error().code == ErrorCode::eStale);
}

}  // namespace

WatchedFiles::WatchedFiles(WatchedFolder folder)
    : folder_(std::move(folder)),
      stamp_(folder_.known->folder),
      start_(std::move(folder_.known)),
      started_(Clock::now()) {
  for (const auto& [name, stamp] : start_->files) {
    if (isAtRest(stamp, *start_) || (folder_.cache && folder_.cache->find(name, stamp))) continue;
    young_.insert(name);
    recheck_ = started_ + kTick;
  }
  folder_.cache.reset();  // only the host thread may use it
}

/// Not before it is needed, so that entering a large project does not wait for it.
void WatchedFiles::takeUpStart() {
  if (!start_) return;
  for (const auto& [name, stamp] : start_->files) {
    known_.emplace_hint(known_.end(), name, Known{stamp, started_, !young_.contains(name)});
  }
  start_.reset();
  young_.clear();
}

Result<bool> WatchedFiles::hasMoved() {
  const auto stamp = stampOfFolder(folder_.path);
  if (stamp) return !(*stamp == stamp_) || Clock::now() >= recheck_;
  if (folder_.mayBeMissing && stamp.error().code == ErrorCode::eNotFound) {
    takeUpStart();
    return !known_.empty();
  }
  return stamp.error();
}

Result<std::vector<std::string>> WatchedFiles::look() {
  takeUpStart();
  if (folder_.shown) shown_.merge(folder_.shown->take());
  auto now = listStamped(folder_.path, folder_.isWanted);
  const bool isMissing = !now && now.error().code == ErrorCode::eNotFound;
  if (!now && !(folder_.mayBeMissing && isMissing)) return now.error();
  const bool isProven = known_.contains(folder_.proof);
  if (!now && isProven) return now.error();
  FolderListing listing = now ? std::move(*now) : FolderListing();
  if (isProven && !listing.files.contains(folder_.proof)) {
    return Error{ErrorCode::eNotFound,
                 "The folder " + folder_.path + " is there without its " + folder_.proof +
                     ". See whether the share is mounted.",
                 folder_.path};
  }
  // Within one tick of the share's clock the folder may change again without a new time of change.
  // So it is looked at once more when the tick is over.
  const bool hasChanged = !(listing.folder == stamp_);
  recheck_ = hasChanged ? Clock::now() + kTick : Clock::time_point::max();
  return differing(std::move(listing));
}

std::vector<std::string> WatchedFiles::differing(FolderListing now) {
  std::vector<std::string> names;
  for (const auto& [name, stamp] : now.files) {
    const auto known = known_.find(name);
    const bool isSame = known != known_.end() && known->second.stamp == stamp;
    if (!isSame || !known->second.isSure) names.push_back(name);
  }
  for (const auto& [name, known] : known_) {
    if (!now.files.contains(name)) names.push_back(name);
  }
  for (const std::string& name : shown_) {
    if (!now.files.contains(name) && !known_.contains(name)) names.push_back(name);
  }
  shown_.clear();
  stamp_ = now.folder;
  listed_ = std::move(now.files);
  return names;
}

FoundFiles WatchedFiles::readSome(std::vector<std::string>& names) {
  FoundFiles found;
  std::size_t bytes = 0;
  while (!names.empty() && found.size() < kMostFiles && bytes < kMostBytes) {
    const std::size_t count = std::min(kMostInFlight, names.size());
    const std::vector<std::string> next(names.end() - static_cast<std::ptrdiff_t>(count),
                                        names.end());
    names.resize(names.size() - count);
    FoundFiles some(count);
    const auto start = Clock::now();
    inFlight(count, [&](std::size_t each) { read(next[each], some[each]); });
    for (std::size_t each = 0; each < count; ++each) {
      note(next[each], some[each], start);
      if (some[each].bytes) bytes += some[each].bytes->size();
      found.push_back(std::move(some[each]));
    }
  }
  return found;
}

/// Called by several threads at once.
void WatchedFiles::read(const std::string& name, FoundFile& found) const {
  found.name = folder_.prefix + name;
  found.path = folder_.path + "/" + name;
  found.shown = folder_.shown;
  if (const FileStamp* const listed = listed_.find(name)) found.stamp = *listed;
  if (folder_.largest > 0) {
    auto content = readStamped(found.path, folder_.largest);
    if (content) {
      found.stamp = content->stamp;
      found.bytes = std::move(content->bytes);
    } else {
      found.bytes = content.error();
    }
  }
  // A file that the listing left out may have been put back while the folder was read, so absence
  // from the listing does not prove that it is gone.
  found.isGone = isSurelyGone(found.path);
}

void WatchedFiles::note(const std::string& name, FoundFile& found, Clock::time_point start) {
  if (found.isGone) {
    known_.erase(name);
    return;
  }
  Known& known = known_[name];
  if (!(known.stamp == found.stamp)) known = {found.stamp, start, false};
  // Measured by this machine's clock from when the state was first seen, so the share's clock may
  // be wrong.
  known.isSure = start - known.since >= kTick && !mayPass(found.bytes);
  found.isAtRest = known.isSure;
  if (!known.isSure) recheck_ = std::min(recheck_, std::max(start, known.since + kTick));
}

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

/// Time for the message of a change to come before the change is found.
constexpr milliseconds kSettle(400);
constexpr milliseconds kLongestSettle(2000);

/// A pause is at least this many times as long as what the share or this machine had to do.
constexpr int kPauseFactor = 5;
constexpr milliseconds kLongestPeriod(10'000);

/// What takes longer was no slow answer: the share hung, or was away.
constexpr milliseconds kHung(5000);

/// How long the end waits for the thread before it leaves the thread to the share.
constexpr milliseconds kPatience(200);

milliseconds since(Clock::time_point start) {
  return std::chrono::duration_cast<milliseconds>(Clock::now() - start);
}

}  // namespace

/// What the thread works with. It lives longer than the watch when the share holds the thread up.
class FolderWatch::Loop : public std::enable_shared_from_this<Loop> {
 public:
  Loop(HostThread& host, std::vector<WatchedFolder> folders, Take take)
      : host_(host), take_(std::move(take)) {
    for (WatchedFolder& folder : folders) watched_.push_back({WatchedFiles(std::move(folder))});
  }

  void run() {
    while (!isEnding()) {
      for (Watched& each : watched_) {
        if (!isEnding() && Clock::now() >= each.due) ask(each);
      }
      if (!isEnding()) await();
    }
    const std::lock_guard lock(mutex_);
    hasEnded_ = true;
    changed_.notify_all();
  }

  /// Ends the reports, and the thread as soon as the share lets it. Whether it ended in time.
  bool end() {
    std::unique_lock lock(mutex_);
    isEnding_ = true;
    changed_.notify_all();
    notices_.wake();
    // A thread that waits for the share cannot be interrupted. Leaving a project must not hang with
    // it.
    return changed_.wait_for(lock, kPatience, [this] { return hasEnded_; });
  }

  void askNow() {
    const std::lock_guard lock(mutex_);
    isHurried_ = true;
    notices_.wake();
  }

  ShareAnswer answer() {
    const std::lock_guard lock(mutex_);
    return answer_;
  }

  WatchCounts counts() {
    const std::lock_guard lock(mutex_);
    return counts_;
  }

 private:
  struct Watched {
    WatchedFiles files;
    Clock::time_point due{};
    milliseconds looked{0};  ///< how long the last look at its files took
    bool isTold = false;     ///< the machine told of a change
  };

  bool isEnding() {
    const std::lock_guard lock(mutex_);
    return isEnding_;
  }

  void await() {
    const auto due = std::ranges::min_element(watched_, {}, &Watched::due)->due;
    const auto changed = notices_.await(due);
    const std::lock_guard lock(mutex_);
    const bool isHurried = std::exchange(isHurried_, false);
    for (Watched& each : watched_) {
      each.isTold |= changed.contains(each.files.folder().path);
      if (each.isTold || isHurried) each.due = std::min(each.due, Clock::now());
    }
  }

  void ask(Watched& each) {
    noteAsked();
    // Each time: the folder may have been made, or made anew, since. On a network file system only
    // this machine's changes are noticed, so the question below is always asked as well.
    notices_.watch(each.files.folder().path);
    const auto start = Clock::now();
    const auto moved = each.files.hasMoved();
    const milliseconds took = since(start);
    Result<void> result;
    if (!moved) result = moved.error();
    if (moved && (*moved || std::exchange(each.isTold, false))) result = look(each);
    noteAnswer(each, std::move(result), took);
    const auto now = Clock::now();
    // A slow share is asked less often, so that the watch does not add to its load. One that hung
    // is asked as usual: its users wait to hear that it is back.
    const milliseconds pause = took < kHung ? took * kPauseFactor : milliseconds(0);
    const std::chrono::nanoseconds least = std::min(pause, kLongestPeriod);
    each.due = now + std::max(untilNextBeat(each.files.folder().period), least);
    if (each.files.recheck() > now) each.due = std::min(each.due, each.files.recheck());
  }

  Result<void> look(Watched& each) {
    // The message of this change is likely on its way. When it comes first, the change is told
    // once, as that station's.
    notices_.pause(Clock::now() +
                   std::clamp<milliseconds>(each.looked * kPauseFactor, kSettle, kLongestSettle));
    const auto start = Clock::now();
    auto differing = each.files.look();
    if (!differing) return differing.error();
    count(&WatchCounts::listed, 1);
    while (!differing->empty() && !isEnding()) {
      FoundFiles found = each.files.readSome(*differing);
      if (each.files.folder().largest > 0) count(&WatchCounts::read, found.size());
      report(std::move(found));
    }
    each.looked = since(start);
    return {};
  }

  /// Returns when the host thread has taken the report: reports never pile up there.
  void report(FoundFiles found) {
    std::unique_lock lock(mutex_);
    if (found.empty() || isEnding_) return;
    isTaken_ = false;
    const auto shared = std::make_shared<const FoundFiles>(std::move(found));
    // Weak: the task may run when the project has been left.
    host_.post([weak = weak_from_this(), shared] {
      if (const auto loop = weak.lock()) loop->hand(*shared);
    });
    changed_.wait(lock, [this] { return isTaken_ || isEnding_; });
  }

  /// On the host thread, which also destroys the watch: so it cannot end in the middle of this.
  void hand(const FoundFiles& found) {
    if (isEnding()) return;
    take_(found);
    const std::lock_guard lock(mutex_);
    isTaken_ = true;
    changed_.notify_all();
  }

  /// Of any folder: a share that hangs holds up whatever is asked first.
  void noteAsked() {
    const std::lock_guard lock(mutex_);
    answer_.isAwaited = true;
    answer_.asked = Clock::now();
    ++counts_.asked;
  }

  void count(std::size_t WatchCounts::*what, std::size_t more) {
    const std::lock_guard lock(mutex_);
    counts_.*what += more;
  }

  void noteAnswer(const Watched& each, Result<void> result, milliseconds took) {
    const std::lock_guard lock(mutex_);
    answer_.isAwaited = false;
    if (&each == &watched_.front()) answer_ = {std::move(result), took, Clock::now(), false, {}};
  }

  HostThread& host_;  ///< used while the watch lives
  Take take_;
  std::vector<Watched> watched_;
  FolderNotices notices_;
  std::mutex mutex_;
  std::condition_variable changed_;
  ShareAnswer answer_;
  WatchCounts counts_;
  bool isHurried_ = false;
  bool isTaken_ = false;
  bool isEnding_ = false;
  bool hasEnded_ = false;
};

FolderWatch::FolderWatch(HostThread& host, std::vector<WatchedFolder> folders, Take take)
    : loop_(std::make_shared<Loop>(host, std::move(folders), std::move(take))),
      thread_(watchThread([loop = loop_] { loop->run(); })) {}

FolderWatch::~FolderWatch() {
  if (loop_->end()) {
    thread_.join();
  } else {
    thread_.detach();
  }
}

ShareAnswer FolderWatch::answer() const { return loop_->answer(); }

WatchCounts FolderWatch::counts() const { return loop_->counts(); }

void FolderWatch::askNow() { loop_->askNow(); }

}  // namespace korvel
