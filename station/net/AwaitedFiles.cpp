#include "station/net/AwaitedFiles.h"

#include <utility>

#include "station/os/SharedFiles.h"

namespace korvel {

AwaitedFiles::AwaitedFiles(HostThread& hostThread, MessageGate::Judge judge, Deliver deliver)
    : hostThread_(hostThread), judge_(std::move(judge)), deliver_(std::move(deliver)) {}

void AwaitedFiles::take(const DeliveryLanes::Source& source, ReceivedMessage message) {
  const std::string& object = message.fields.cookie;
  const bool isBehind = queues_.contains(object);
  const MessageGate gate = judge_ ? judge_(message.fields) : MessageGate{};
  if (gate.action == MessageGate::eDrop && !isBehind) return;
  const bool isMissing = gate.action == MessageGate::eAwaitFile && !existsFresh(gate.file);
  if (!isBehind && !isMissing) return deliver_(message, Waited::eNo);
  if (!hasRoom(source)) return deliver_(message, Waited::eYes);
  hold(source, std::move(message), gate.file);
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

// A share that does not answer keeps the lookout busy: the clock ends the wait all the same.
void AwaitedFiles::await(const std::string& object, const std::string& file) {
  Held& first = queues_.at(object).front();
  if (std::exchange(first.isAwaited, true)) return;
  const auto left = std::chrono::ceil<std::chrono::milliseconds>(first.until - Clock::now());
  hostThread_.postAfter(left, later(object));
  lookout_.await(file, [this, goOn = later(object)] { hostThread_.post(goOn); });
}

/// Looks at an object's first message again: its file came, or its time is over.
void AwaitedFiles::goOn(const std::string& object) {
  for (auto found = queues_.find(object); found != queues_.end(); found = queues_.find(object)) {
    Queue& queue = found->second;
    const MessageGate gate = judge_(queue.front().message.fields);
    const bool isMissing = gate.action == MessageGate::eAwaitFile && !existsFresh(gate.file);
    if (isMissing && Clock::now() < queue.front().until) return await(object, gate.file);
    const Held first = takeFirst(queue);
    if (gate.action == MessageGate::eDrop) continue;
    deliver_(first.message, isMissing ? Waited::eYes : Waited::eNo);
  }
}

AwaitedFiles::Held AwaitedFiles::takeFirst(Queue& queue) {
  Held first = std::move(queue.front());
  queue.pop_front();
  if (queue.empty()) queues_.erase(first.message.fields.cookie);
  if (--counts_[first.source] == 0) counts_.erase(first.source);
  --held_;
  return first;
}

}  // namespace korvel
