#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "station/base/Events.h"
#include "station/base/Strings.h"

/// Keeps what the station tells: changes as "bin G0001 created local".
class RecordedEvents : public iStationEvents {
 public:
  RecordedEvents() { installEvents(this); }
  RecordedEvents(const RecordedEvents&) = delete;
  RecordedEvents& operator=(const RecordedEvents&) = delete;
  ~RecordedEvents() override { installEvents(nullptr); }

  void sent(const std::string&) override {}
  void received(const std::string&) override {}
  void network(const std::string&, std::uint64_t) override {}
  void panel(const std::vector<std::string>&) override {}

  void changed(const std::string& what, const Cookie& cookie, const std::string& how,
               Origin origin) override {
    changes.push_back(what + ' ' + utf8Text(cookie.asString()) + ' ' + how +
                      (origin == Origin::eLocal ? " local" : " remote"));
  }
  void log(bool, const std::string& text) override { logged += text; }
  void command(const std::string& name) override { commands.push_back(name); }
  void notification(const std::string& text) override { notifications.push_back(text); }

  [[nodiscard]] bool loggedThat(const std::string& part) const {
    return logged.find(part) != std::string::npos;
  }

  std::vector<std::string> changes;
  std::vector<std::string> commands;
  std::vector<std::string> notifications;
  std::string logged;
};
