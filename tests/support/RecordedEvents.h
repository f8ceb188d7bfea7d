#pragma once

#include <algorithm>
#include <cstdint>
#include <mutex>
#include <string>
#include <vector>

#include "station/base/Events.h"
#include "station/base/Json.h"
#include "station/base/Strings.h"

namespace korvel {

/// Keeps what the station tells while it lives. Lines and problems may come from any thread.
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

  void sent(const std::string& wireText) override { sentTexts.push_back(wireText); }
  void received(const std::string& wireText, const MessageFields&) override {
    receivedTexts.push_back(wireText);
  }
  void command(const std::string& name) override { commands.push_back(name); }
  void notification(const std::string& text) override { notifications.push_back(text); }

  void changed(const std::string& what, const Cookie& cookie, const std::string& how,
               Origin origin) override {
    changes.push_back(what + ' ' + utf8Text(cookie.asString()) + ' ' + how +
                      (origin == Origin::eLocal ? " local" : " remote"));
  }
  void log(bool toConsole, const std::string& text) override {
    const std::lock_guard lock(mutex_);
    lines.push_back((toConsole ? "console: " : "file: ") + text);
  }
  void network(const std::string& problem, std::uint64_t dropped) override {
    const std::lock_guard lock(mutex_);
    problems_.push_back({problem, dropped});
  }

  void audit(const std::string& what, const std::vector<JsonValue::Member>&) override {
    const std::lock_guard lock(mutex_);
    audits_.push_back(what);
  }

  [[nodiscard]] bool loggedThat(const std::string& part) const {
    const std::lock_guard lock(mutex_);
    return std::any_of(lines.begin(), lines.end(), [&part](const std::string& line) {
      return line.find(part) != std::string::npos;
    });
  }
  /// What the audit log would hold.
  [[nodiscard]] std::vector<std::string> audits() {
    const std::lock_guard lock(mutex_);
    return audits_;
  }
  [[nodiscard]] std::vector<Problem> problems() {
    const std::lock_guard lock(mutex_);
    return problems_;
  }
  /// The network's problems, a line each; empty when nothing was told.
  [[nodiscard]] std::string told() {
    std::string all;
    for (const auto& problem : problems()) all += problem.text + "\n";
    return all;
  }
  /// How many messages or datagrams the problems say were lost.
  [[nodiscard]] std::uint64_t dropped() {
    std::uint64_t sum = 0;
    for (const auto& problem : problems()) sum += problem.dropped;
    return sum;
  }

  std::vector<std::string> sentTexts;
  std::vector<std::string> receivedTexts;
  std::vector<std::string> changes;  ///< as "bin G0001 created local"
  std::vector<std::string> commands;
  std::vector<std::string> notifications;
  std::vector<std::string> lines;  ///< of the log, each with where it goes before it

 private:
  mutable std::mutex mutex_;
  std::vector<Problem> problems_;
  std::vector<std::string> audits_;
};

}  // namespace korvel
