#include "app/HumanText.h"

#include "app/Rendering.h"

namespace {

void print(std::FILE* stream, const std::string& text) {
  std::fwrite(text.data(), 1, text.size(), stream);
  std::fputc('\n', stream);
  std::fflush(stream);
}

/// An event's text under a key, or its hexadecimal form.
std::string textOf(const JsonValue& event, const std::string& key) {
  if (const JsonValue* text = event.find(key)) return renderForPeople(*text);
  return "bytes that are no text: " + event[key + "_hex"].asString();
}

}  // namespace

void HumanText::answer(const std::string& text) {
  if (!text.empty()) show(answers_, text);
}

void HumanText::problem(const std::string& text) { show(problems_, text); }

void HumanText::take(const StationEvent& event) {
  if (event.name == "log" && event.value["to"].asString() == "console") {
    show(problems_, textOf(event.value, "text"));
  } else if (event.name == "notification") {
    show(answers_, "Notification: " + textOf(event.value, "text"));
  } else if (event.name == "network") {
    show(problems_, "Network: " + textOf(event.value, "problem"));
  }
}

void HumanText::show(std::FILE* stream, const std::string& text) {
  const std::lock_guard lock(mutex_);
  if (!wake_) {
    print(stream, text);
    return;
  }
  held_.emplace_back(stream, text);
  wake_();
}

void HumanText::hold(std::function<void()> wake) {
  const std::lock_guard lock(mutex_);
  wake_ = std::move(wake);
}

void HumanText::showHeld() {
  const std::lock_guard lock(mutex_);
  for (const auto& [stream, text] : held_) print(stream, text);
  held_.clear();
}

void HumanText::release() {
  showHeld();
  hold(nullptr);
}
