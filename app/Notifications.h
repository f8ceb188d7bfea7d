#pragma once

#include <cstddef>
#include <deque>
#include <mutex>
#include <string>

#include "app/iEventSink.h"

/// Keeps the texts that reached this station and that no panel took, with the time of day, so that
/// none is lost unseen; of very many the latest. Any thread.
class Notifications : public iEventSink {
 public:
  static constexpr std::size_t kMost = 10'000;

  void take(const StationEvent& event) override;

  /// An array of objects: "time" ("2024-05-31 12:00:00", local) and "text".
  [[nodiscard]] JsonValue list() const;

 private:
  mutable std::mutex mutex_;
  std::deque<JsonValue> kept_;
};
