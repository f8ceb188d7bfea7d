#include "station/base/Notifications.h"

#include <array>
#include <ctime>
#include <utility>

#include "station/base/Events.h"

namespace korvel {

namespace {

std::deque<Notification>& keptNotifications() {
  static std::deque<Notification> kept;
  return kept;
}

std::uint64_t shownTexts = 0;

}  // namespace

std::string Notification::timeText() const {
  const std::time_t seconds = std::chrono::system_clock::to_time_t(time);
  std::tm parts{};
  ::localtime_r(&seconds, &parts);
  std::array<char, 32> written{};
  const std::size_t length =
      std::strftime(written.data(), written.size(), "%Y-%m-%d %H:%M:%S", &parts);
  return {written.data(), length};
}

void notifyUser(const std::string& text) { notifyUser(Notification{{}, text}); }

void notifyUser(Notification notification) {
  auto& kept = keptNotifications();
  notification.time = std::chrono::system_clock::now();
  kept.push_back(std::move(notification));
  if (kept.size() > kMostNotifications) kept.pop_front();
  noteTextShown();
  events().notification(kept.back().text);
}

std::uint64_t textsShown() { return shownTexts; }

void noteTextShown() { ++shownTexts; }

const std::deque<Notification>& notifications() { return keptNotifications(); }

}  // namespace korvel
