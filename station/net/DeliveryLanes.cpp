#include "station/net/DeliveryLanes.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <list>
#include <mutex>
#include <utility>

#include "station/base/HostThread.h"
#include "station/os/SharedFiles.h"

namespace korvel {

namespace {

/// What a waiting message takes beside its bytes.
constexpr std::size_t kOverhead = 160;

/// A lane without messages and losses that was not used for this long makes room for another.
constexpr auto kIdle = std::chrono::minutes(2);

/// The lane of the words of unproven senders.
constexpr DeliveryLanes::Source kUnproven{Ipv4{}, 1};

}  // namespace

double DeliveryLanes::Allowance::leftAt(const SourceLimit& limit, Time now) const {
  const double seconds = std::chrono::duration<double>(now - since_).count();
  return isUsed_ ? std::min(limit.atOnce, left_ + seconds * limit.perSecond) : limit.atOnce;
}

bool DeliveryLanes::Allowance::isUsedUp(const SourceLimit& limit, Time now) const {
  return limit.perSecond > 0 && leftAt(limit, now) < 1;
}

bool DeliveryLanes::Allowance::take(const SourceLimit& limit, Time now) {
  if (limit.perSecond <= 0) return true;
  left_ = leftAt(limit, now);
  isUsed_ = true;
  since_ = now;
  if (left_ < 1) return false;
  left_ -= 1;
  return true;
}

bool DeliveryLanes::add(const Source& source, Kind kind, std::string bytes, Time now,
                        std::uint64_t sender) {
  const std::lock_guard lock(mutex_);
  Lane& lane = laneOf(source, now);
  if (std::uint64_t* const count = beyondLimit(lane, kind, now)) {
    noteLoss(lane, *count, now);
    return false;
  }
  const std::size_t size = bytes.size() + kOverhead;
  const bool isUnproven = kind == Kind::eUnprovenWords;
  Lane& way = isUnproven ? laneOf(kUnproven, now) : lane;
  const std::size_t most = isUnproven ? kMaxUnprovenBytes : kMaxLaneBytes;
  if (way.bytes + size > most || bytes_ + size > kMaxBytes) {
    noteLoss(lane, lane.loss.noRoom, now);
    return false;
  }
  // Only lanes with messages have a turn, so next() costs the same however many sources there are.
  if (way.waiting.empty()) turns_.push_back(way.loss.source);
  way.waiting.push_back({source, std::move(bytes), sender, now});
  way.bytes += size;
  bytes_ += size;
  return true;
}

bool DeliveryLanes::refuseBeyondLimit(const Source& source, Time now) {
  const std::lock_guard lock(mutex_);
  Lane& lane = laneOf(source, now);
  if (!lane.all.isUsedUp(limits_.all, now)) return false;
  noteLoss(lane, lane.loss.overLimit, now);
  return true;
}

void DeliveryLanes::refuse(const Source& source, bool isForged, Time now) {
  const std::lock_guard lock(mutex_);
  Lane& lane = laneOf(source, now);
  noteLoss(lane, isForged ? lane.loss.forged : lane.loss.unsealed, now);
}

std::optional<DeliveryLanes::Item> DeliveryLanes::next() {
  const std::lock_guard lock(mutex_);
  if (turns_.empty()) return std::nullopt;
  const Source source = turns_.front();
  Lane& lane = lanes_.at(source);
  Waiting message = std::move(lane.waiting.front());
  lane.waiting.pop_front();
  lane.bytes -= message.bytes.size() + kOverhead;
  bytes_ -= message.bytes.size() + kOverhead;
  if (lane.waiting.empty()) {
    turns_.pop_front();
  } else {
    turns_.splice(turns_.end(), turns_, turns_.begin());
  }
  return Item{message.source, std::move(message.bytes), message.sender, message.arrived};
}

std::list<DeliveryLanes::Loss> DeliveryLanes::lossesToTell(Time now,
                                                           std::chrono::milliseconds quiet) {
  const std::lock_guard lock(mutex_);
  std::list<Loss> losses;
  for (auto& [source, lane] : lanes_) {
    // One report for a whole flood: the network problem must not become a flood of its own.
    const bool isOver = now - lane.lastLoss >= quiet || now - lane.firstLoss >= kBetweenTellings;
    const bool mayBeTold = !lane.wasTold || now - lane.told >= kBetweenTellings;
    if (!lane.hasLoss() || !isOver || !mayBeTold) continue;
    losses.push_back(std::exchange(lane.loss, {source}));
    lane.told = now;
    lane.wasTold = true;
  }
  return losses;
}

std::list<DeliveryLanes::Loss> DeliveryLanes::allLosses() {
  const std::lock_guard lock(mutex_);
  std::list<Loss> losses;
  for (auto& [source, lane] : lanes_) {
    if (lane.hasLoss()) losses.push_back(std::exchange(lane.loss, {source}));
  }
  return losses;
}

bool DeliveryLanes::hasLosses() const {
  const std::lock_guard lock(mutex_);
  return std::ranges::any_of(lanes_, [](const auto& each) { return each.second.hasLoss(); });
}

DeliveryLanes::Lane& DeliveryLanes::laneOf(Source source, Time now) {
  const auto count = [this, &source] {
    return source.isSealed ? sealedLanes_ : lanes_.size() - sealedLanes_;
  };
  auto found = lanes_.find(source);
  if (found == lanes_.end() && count() >= kMaxLanes && source != kUnproven) {
    removeIdle(now);
    // Sender addresses can be forged. Without this bound each forged one would take memory.
    if (count() >= kMaxLanes) source = {Ipv4{}, 0, source.isSealed};
    found = lanes_.find(source);
  }
  if (found == lanes_.end()) {
    found = lanes_.try_emplace(source).first;
    found->second.loss.source = source;
    sealedLanes_ += source.isSealed ? 1 : 0;
  }
  found->second.lastUse = now;
  return found->second;
}

void DeliveryLanes::removeIdle(Time now) {
  std::erase_if(lanes_, [this, now](const auto& each) {
    const Lane& lane = each.second;
    const bool isIdle = lane.waiting.empty() && !lane.hasLoss() && now - lane.lastUse >= kIdle;
    if (isIdle && each.first.isSealed) --sealedLanes_;
    return isIdle;
  });
}

std::uint64_t* DeliveryLanes::beyondLimit(Lane& lane, Kind kind, Time now) {
  const bool areWords = kind == Kind::eWords || kind == Kind::eUnprovenWords;
  if (!lane.all.take(limits_.all, now) || (areWords && !lane.words.take(limits_.words, now)) ||
      (kind == Kind::eRequest && !lane.requests.take(limits_.requests, now))) {
    return &lane.loss.overLimit;
  }
  const bool isBeyond = kind == Kind::eUnprovenWords && !unproven_.take(limits_.words, now);
  return isBeyond ? &lane.loss.unproven : nullptr;
}

void DeliveryLanes::noteLoss(Lane& lane, std::uint64_t& count, Time now) {
  if (!lane.hasLoss()) lane.firstLoss = now;
  lane.lastLoss = now;
  ++count;
}

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPause = std::chrono::milliseconds(100);
constexpr auto kLongest = std::chrono::milliseconds(1100);
constexpr auto kTimeToEnd = std::chrono::seconds(1);

}  // namespace

/// What the lookout and its thread share. A thread that waits for the share may live longer than
/// the lookout.
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
      // Without the mutex: this may wait for the share, and add() must not.
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

AwaitedFiles::AwaitedFiles(HostThread& hostThread, MessageGate::Judge judge, Deliver deliver)
    : hostThread_(hostThread), judge_(std::move(judge)), deliver_(std::move(deliver)) {}

namespace {

bool isMissing(const MessageGate& gate) {
  return gate.action == MessageGate::eAwaitFile && !existsFresh(gate.file);
}

// Waited for is only what awaits a file. The plug-in makes no pause in a message that was waited
// for: any other wait of its would keep the processor busy.
AwaitedFiles::Waited waitedFor(bool isFileMissing) {
  return isFileMissing ? AwaitedFiles::Waited::eYes : AwaitedFiles::Waited::eNo;
}

}  // namespace

void AwaitedFiles::take(const DeliveryLanes::Source& source, ReceivedMessage message) {
  const std::string& object = message.fields.cookie;
  if (!hasRoom(source)) deliverHeld(source, object);
  const bool mayBeHeld = hasRoom(source);
  // A message behind a held one waits even when its own file is there: the order of an object's
  // messages stays.
  const bool isBehind = mayBeHeld && queues_.contains(object);
  const MessageGate gate = judge_ ? judge_(message) : MessageGate{};
  if (gate.action == MessageGate::eDrop && !isBehind) return;
  const bool isFileMissing = isMissing(gate);
  if (mayBeHeld && (isBehind || isFileMissing)) return hold(source, std::move(message), gate.file);
  deliver_(message, waitedFor(isFileMissing));
}

/// Delivers what is held of a source's messages about an object, in their order. What is held of
/// other sources stays: a stranger could otherwise end the waiting for a colleague's file.
void AwaitedFiles::deliverHeld(const DeliveryLanes::Source& source, const std::string& object) {
  // Found anew each time: delivering a message may change the queues.
  for (auto found = queues_.find(object); found != queues_.end(); found = queues_.find(object)) {
    const auto first = std::ranges::find(found->second, source, &Held::source);
    if (first == found->second.end()) return goOn(object);
    const Held held = takeOut(found->second, first);
    const MessageGate gate = judge_(held.message);
    if (gate.action != MessageGate::eDrop) deliver_(held.message, waitedFor(isMissing(gate)));
  }
}

bool AwaitedFiles::hasRoom(const DeliveryLanes::Source& source) const {
  const auto count = counts_.find(source);
  return held_ < kMaxInAll && (count == counts_.end() || count->second < kMaxOfSource);
}

void AwaitedFiles::hold(const DeliveryLanes::Source& source, ReceivedMessage message,
                        const std::string& file) {
  const std::string object = message.fields.cookie;
  Queue& queue = queues_[object];
  queue.push_back({source, std::move(message), Clock::now() + kLongest, false});
  ++counts_[source];
  ++held_;
  if (queue.size() == 1) await(object, file);
}

std::function<void()> AwaitedFiles::later(const std::string& object) {
  return [weak = weak_from_this(), object] {
    if (const auto self = weak.lock()) self->goOn(object);
  };
}

// The lookout's thread may wait for a share that does not answer. So a timer ends the wait as well.
void AwaitedFiles::await(const std::string& object, const std::string& file) {
  Held& first = queues_.at(object).front();
  if (std::exchange(first.isAwaited, true)) return;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(first.until - Clock::now());
  hostThread_.postAfter(left, later(object));
  lookout_.await(file, [this, goOn = later(object)] { hostThread_.post(goOn); });
}

/// Looks at an object's first message again: its file came, or its time is over.
void AwaitedFiles::goOn(const std::string& object) {
  // Found anew each time: delivering a message may change the queues.
  for (auto found = queues_.find(object); found != queues_.end(); found = queues_.find(object)) {
    Queue& queue = found->second;
    const MessageGate gate = judge_(queue.front().message);
    const bool isFileMissing = isMissing(gate);
    if (isFileMissing && Clock::now() < queue.front().until) return await(object, gate.file);
    const Held first = takeOut(queue, queue.begin());
    if (gate.action != MessageGate::eDrop) deliver_(first.message, waitedFor(isFileMissing));
  }
}

AwaitedFiles::Held AwaitedFiles::takeOut(Queue& queue, const Queue::iterator& which) {
  Held held = std::move(*which);
  queue.erase(which);
  if (queue.empty()) queues_.erase(held.message.fields.cookie);
  if (--counts_[held.source] == 0) counts_.erase(held.source);
  --held_;
  return held;
}

}  // namespace korvel
