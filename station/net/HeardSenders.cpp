#include "station/net/HeardSenders.h"

namespace korvel {

void HeardSenders::heard(Ipv4 address, std::uint16_t port, std::time_t now) {
  const Who who{address, port};
  auto found = senders_.find(who);
  if (found == senders_.end()) {
    if (senders_.size() == kMostSenders) forgetOne();
    found = senders_.emplace(who, Known{{0, now, now}, once_.insert(once_.end(), who)}).first;
  } else {
    often_.splice(often_.end(), found->second.count == 1 ? once_ : often_, found->second.place);
  }
  ++found->second.count;
  found->second.last = now;
}

void HeardSenders::forEach(const std::function<void(const Who&, const Sender&)>& call) const {
  for (const auto& [who, sender] : senders_) call(who, sender);
}

void HeardSenders::forgetOne() {
  Order& order = once_.empty() ? often_ : once_;
  senders_.erase(order.front());
  order.pop_front();
  ++forgotten_;
}

}  // namespace korvel
