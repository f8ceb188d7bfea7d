#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <utility>

#include "station/net/NetworkHooks.h"

namespace korvel {

/// Counts what this station sent and heard of others, for what it tells of itself and of its
/// health. Any thread.
class TrafficCounts : public iTrafficObserver {
 public:
  /// `ownPort` is the port that this station's messages leave from; `next` is told of everything,
  /// too, and may be null.
  TrafficCounts(std::uint16_t ownPort, std::shared_ptr<iTrafficObserver> next)
      : ownPort_(ownPort), next_(std::move(next)) {}

  void heard(Ipv4 address, std::uint16_t port) override {
    if (port != ownPort_) ++heard_;
    if (next_) next_->heard(address, port);
  }
  void sent() override {
    ++sent_;
    if (next_) next_->sent();
  }
  void reached(bool everywhere) override { isCut_ = !everywhere; }

  [[nodiscard]] long sentCount() const { return sent_; }
  [[nodiscard]] long heardCount() const { return heard_; }

  /// Whether the latest message did not leave for every destination.
  [[nodiscard]] bool hasFailed() const { return isCut_; }

 private:
  const std::uint16_t ownPort_;
  const std::shared_ptr<iTrafficObserver> next_;
  std::atomic<long> sent_{0};
  std::atomic<long> heard_{0};
  std::atomic<bool> isCut_{false};
};

}  // namespace korvel
