#pragma once

#include <chrono>
#include <functional>
#include <thread>

namespace korvel {

/// Asks again and again until it is so, two minutes at most.
inline bool becomesTrue(const std::function<bool()>& isSo) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
  while (!isSo()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}

}  // namespace korvel
