#include "station/net/DuplicateFilter.h"

#include <algorithm>
#include <functional>

namespace korvel {

namespace {

std::uint64_t keyOf(const Datagram& datagram) {
  return std::hash<std::string_view>()(datagram.bytes) * 31 + datagram.port;
}

}  // namespace

bool DuplicateFilter::isDuplicate(const Datagram& datagram, Time now) {
  forgetBefore(now - kWindow);
  const std::uint64_t key = keyOf(datagram);
  Message& message = messages_[key];
  const Way way{datagram.source, datagram.interface};
  auto counter = std::find_if(message.brought.begin(), message.brought.end(),
                              [&](const auto& entry) { return entry.first == way; });
  if (counter == message.brought.end()) {
    counter = message.brought.insert(counter, {way, message.forgotten});
  }
  const std::size_t times = message.forgotten + message.taken;
  counter->second = std::max(counter->second, message.forgotten);
  if (counter->second++ < times) return true;
  ++message.taken;
  ages_.emplace_back(now, key);
  if (ages_.size() > kMaxRemembered) forgetOldest();
  return false;
}

void DuplicateFilter::forgetBefore(Time time) {
  while (!ages_.empty() && ages_.front().first < time) forgetOldest();
}

void DuplicateFilter::forgetOldest() {
  const auto found = messages_.find(ages_.front().second);
  ages_.pop_front();
  ++found->second.forgotten;
  if (--found->second.taken == 0) messages_.erase(found);
}

}  // namespace korvel
