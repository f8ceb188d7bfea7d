#include "station/net/DuplicateFilter.h"

#include <sodium.h>

#include <algorithm>
#include <cstdlib>

namespace korvel {

DuplicateFilter::DuplicateFilter() : secret_() {
  if (sodium_init() < 0) std::abort();  // without random bytes nothing here is safe
  randombytes_buf(secret_.data(), secret_.size());
}

bool DuplicateFilter::isDuplicate(const Datagram& datagram, Time now) {
  forgetBefore(now - kWindow);
  const Key key = keyOf(datagram);
  Message& message = messages_[key];
  const Way way{datagram.source, datagram.interface};
  auto counter = std::find_if(message.brought.begin(), message.brought.end(),
                              [&](const auto& entry) { return entry.first == way; });
  if (counter == message.brought.end()) {
    if (message.brought.size() == kMaxWays) return true;
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

std::size_t DuplicateFilter::waysOf(const Datagram& datagram) const {
  const auto found = messages_.find(keyOf(datagram));
  return found == messages_.end() ? 0 : found->second.brought.size();
}

DuplicateFilter::Key DuplicateFilter::keyOf(const Datagram& datagram) const {
  crypto_generichash_state state;
  Key key{};
  crypto_generichash_init(&state, secret_.data(), secret_.size(), sizeof key);
  const auto add = [&state](const void* bytes, std::size_t size) {
    crypto_generichash_update(&state, static_cast<const unsigned char*>(bytes), size);
  };
  add(&datagram.port, sizeof datagram.port);
  add(datagram.bytes.data(), datagram.bytes.size());
  crypto_generichash_final(&state, reinterpret_cast<unsigned char*>(key.data()), sizeof key);
  return key;
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
