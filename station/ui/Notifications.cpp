#include "station/ui/Notifications.h"

#include <array>
#include <ctime>

std::string Notification::timeText() const {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  gmtime_r(&seconds, &parts);
  std::array<char, 32> written{};
  const std::size_t length =
      std::strftime(written.data(), written.size(), "%Y-%m-%dT%H:%M:%SZ", &parts);
  return {written.data(), length};
}

void Notifications::add(std::string text) {
  kept_.push_back({std::chrono::system_clock::now(), std::move(text)});
  if (kept_.size() > kMaxKept) kept_.pop_front();
}
