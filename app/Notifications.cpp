#include "app/Notifications.h"

#include <ctime>

namespace {

std::string timeOfDay() {
  const std::time_t now = std::time(nullptr);
  std::tm parts{};
  ::localtime_r(&now, &parts);
  char text[32];
  return {text, std::strftime(text, sizeof text, "%Y-%m-%d %H:%M:%S", &parts)};
}

}  // namespace

void Notifications::take(const StationEvent& event) {
  if (event.name != "notification") return;
  JsonValue kept = JsonValue::object({{"time", timeOfDay()}});
  for (const auto& [key, value] : event.value.members()) {
    if (key != "event" && key != "time") kept.set(key, value);
  }
  const std::lock_guard lock(mutex_);
  kept_.push_back(std::move(kept));
  if (kept_.size() > kMost) kept_.pop_front();
}

JsonValue Notifications::list() const {
  const std::lock_guard lock(mutex_);
  JsonValue all = JsonValue::array();
  for (const JsonValue& each : kept_) all.append(each);
  return all;
}
