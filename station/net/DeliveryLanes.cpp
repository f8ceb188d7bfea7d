#include "station/net/DeliveryLanes.h"

#include <algorithm>

namespace korvel {

namespace {

/// What a waiting message takes beside its bytes.
constexpr std::size_t kOverhead = 160;

/// A lane that nobody used for so long, and that has nothing to tell, makes room for another.
constexpr auto kIdle = std::chrono::minutes(2);

/// The lane of the sources that are too many.
constexpr DeliveryLanes::Source kRest{};

}  // namespace

bool DeliveryLanes::Allowance::take(const SourceLimit& limit, Time now) {
  if (limit.perSecond <= 0) return true;
  const double seconds = std::chrono::duration<double>(now - since_).count();
  left_ = isUsed_ ? std::min(limit.atOnce, left_ + seconds * limit.perSecond) : limit.atOnce;
  isUsed_ = true;
  since_ = now;
  if (left_ < 1) return false;
  left_ -= 1;
  return true;
}

bool DeliveryLanes::add(const Source& source, Kind kind, std::string bytes, Time now) {
  const std::lock_guard lock(mutex_);
  Lane& lane = laneOf(source, now);
  if (!isAllowed(lane, kind, now)) {
    noteLoss(lane, lane.loss.overLimit, now);
    return false;
  }
  const std::size_t size = bytes.size() + kOverhead;
  if (lane.bytes + size > kMaxLaneBytes || bytes_ + size > kMaxBytes) {
    noteLoss(lane, lane.loss.noRoom, now);
    return false;
  }
  if (lane.waiting.empty()) turns_.push_back(lane.loss.source);
  lane.waiting.push_back(std::move(bytes));
  lane.bytes += size;
  bytes_ += size;
  return true;
}

std::optional<DeliveryLanes::Item> DeliveryLanes::next() {
  const std::lock_guard lock(mutex_);
  if (turns_.empty()) return std::nullopt;
  const Source source = turns_.front();
  Lane& lane = lanes_.at(source);
  std::string bytes = std::move(lane.waiting.front());
  lane.waiting.pop_front();
  lane.bytes -= bytes.size() + kOverhead;
  bytes_ -= bytes.size() + kOverhead;
  if (lane.waiting.empty()) {
    turns_.pop_front();
  } else {
    turns_.splice(turns_.end(), turns_, turns_.begin());
  }
  return Item{source, std::move(bytes)};
}

std::list<DeliveryLanes::Loss> DeliveryLanes::lossesToTell(Time now,
                                                           std::chrono::milliseconds quiet) {
  const std::lock_guard lock(mutex_);
  std::list<Loss> losses;
  for (auto& [source, lane] : lanes_) {
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
  auto found = lanes_.find(source);
  if (found == lanes_.end() && lanes_.size() >= kMaxLanes) {
    std::erase_if(lanes_, [now](const auto& each) {
      const Lane& lane = each.second;
      return lane.waiting.empty() && !lane.hasLoss() && now - lane.lastUse >= kIdle;
    });
    if (lanes_.size() >= kMaxLanes) source = kRest;
    found = lanes_.find(source);
  }
  if (found == lanes_.end()) {
    found = lanes_.try_emplace(source).first;
    found->second.loss.source = source;
  }
  found->second.lastUse = now;
  return found->second;
}

bool DeliveryLanes::isAllowed(Lane& lane, Kind kind, Time now) const {
  if (!lane.all.take(limits_.all, now)) return false;
  if (kind == Kind::eWords) return lane.words.take(limits_.words, now);
  if (kind == Kind::eRequest) return lane.requests.take(limits_.requests, now);
  return true;
}

void DeliveryLanes::noteLoss(Lane& lane, std::uint64_t& count, Time now) {
  if (!lane.hasLoss()) lane.firstLoss = now;
  lane.lastLoss = now;
  ++count;
}

}  // namespace korvel
