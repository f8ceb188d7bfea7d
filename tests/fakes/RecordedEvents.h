#pragma once

#include <mutex>
#include <string>
#include <vector>

#include "station/base/Events.h"

/// Keeps the log lines for as long as it lives, each with where it goes before it.
class RecordedEvents : public iStationEvents {
 public:
  RecordedEvents() { installEvents(this); }
  RecordedEvents(const RecordedEvents&) = delete;
  RecordedEvents& operator=(const RecordedEvents&) = delete;
  ~RecordedEvents() override { installEvents(nullptr); }

  void sent(const std::string&) override {}
  void received(const std::string&) override {}
  void changed(const std::string&, const Cookie&, const std::string&, Origin) override {}
  void log(bool toConsole, const std::string& text) override {
    const std::lock_guard lock(mutex_);
    lines.push_back((toConsole ? "console: " : "file: ") + text);
  }
  void command(const std::string&) override {}
  void network(const std::string&, std::uint64_t) override {}
  void notification(const std::string&) override {}
  void panel(const std::vector<std::string>&) override {}

  std::vector<std::string> lines;

 private:
  std::mutex mutex_;
};
