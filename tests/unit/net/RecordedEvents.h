#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "station/base/Events.h"

/// Notes the network's events while it lives.
class RecordedEvents : public iStationEvents {
 public:
  struct Problem {
    std::string text;
    std::uint64_t dropped;
  };

  RecordedEvents() { installEvents(this); }
  RecordedEvents(const RecordedEvents&) = delete;
  RecordedEvents& operator=(const RecordedEvents&) = delete;
  ~RecordedEvents() override { installEvents(nullptr); }

  void sent(const std::string& wireText) override { sent_.push_back(wireText); }
  void received(const std::string& wireText) override { received_.push_back(wireText); }
  void changed(const std::string&, const Cookie&, const std::string&, Origin) override {}
  void log(bool, const std::string&) override {}
  void command(const std::string&) override {}
  void network(const std::string& problem, std::uint64_t dropped) override {
    const std::lock_guard lock(mutex_);
    problems_.push_back({problem, dropped});
  }
  void notification(const std::string&) override {}
  void panel(const std::vector<std::string>&) override {}

  [[nodiscard]] std::vector<Problem> problems() {
    const std::lock_guard lock(mutex_);
    return problems_;
  }

  /// The problems' texts, joined; empty when nothing was told.
  [[nodiscard]] std::string told() {
    std::string all;
    for (const auto& problem : problems()) all += problem.text + "\n";
    return all;
  }
  [[nodiscard]] std::uint64_t dropped() {
    std::uint64_t sum = 0;
    for (const auto& problem : problems()) sum += problem.dropped;
    return sum;
  }

  std::vector<std::string> sent_;
  std::vector<std::string> received_;

 private:
  std::mutex mutex_;
  std::vector<Problem> problems_;
};

/// Asks again and again until it is so, ten seconds at most.
inline bool becomesTrue(const std::function<bool()>& isSo) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!isSo()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
  }
  return true;
}
