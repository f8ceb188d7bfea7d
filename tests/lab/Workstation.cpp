#include "tests/lab/Workstation.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <utility>

namespace korvel {

Workstation::Workstation(Setup setup)
    : setup_(std::move(setup)), space_(std::make_unique<Space>(setup_.host)) {}

Cable& Workstation::plugInto(const Space& switches, Network& network) {
  const std::string name = "eth" + std::to_string(cables_.size());
  cables_.push_back(std::make_unique<Cable>(switches, network, *space_, name));
  return *cables_.back();
}

void Workstation::routeEverywhere() {
  const std::string& address = cable().address();
  const std::string router = address.substr(0, address.rfind('.')) + ".254";
  space_->ip("route add default via " + router + " dev eth0");
}

void Workstation::switchOn() {
  station_.reset();  // the old one is gone before the new one starts
  StationProcess::Options options;
  options.program = KV_STATION;
  options.projects = setup_.projects;
  options.prefix = space_->prefix();
  options.sendTo.clear();
  options.user = user();
  options.port = setup_.port;
  options.more = setup_.more;
  station_ = std::make_unique<StationProcess>(std::move(options));
  isOn_ = true;
  isReady_ = false;
  notCounted_.clear();
}

void Workstation::cutPower() {
  station_->kill9();
  isOn_ = false;
}

void Workstation::waitUntilReady() {
  if (isReady_) return;
  isReady_ = station_->waitUntilReady();
  EXPECT_TRUE(isReady_) << name() << ": " << station_->errorText();
}

void Workstation::enter(const std::string& project) {
  waitUntilReady();
  project_ = project;
  run("project enter \"" + project + "\"");
}

JsonValue Workstation::run(const std::string& line) {
  const JsonValue reply = station_->command(line);
  EXPECT_TRUE(reply["ok"].asBool())
      << name() << ": " << line << ": " << writeJson(reply) << station_->errorText();
  return reply["result"];
}

void Workstation::openAllEdits() {
  const JsonValue edits = run("edit list");
  for (const JsonValue& edit : edits.elements()) run("edit open " + edit["cookie"].asString());
}

std::string Workstation::name() const { return user() + " at " + host(); }

std::string Workstation::newName(const std::string& kind) {
  return kind + " " + std::to_string(++named_) + " of " + name();
}

std::string Workstation::newMediaFile() {
  const std::string path =
      std::filesystem::path(setup_.projects).parent_path() / (newName("Take") + ".mov");
  std::ofstream(path) << path;
  return path;
}

ProjectView Workstation::view() { return ProjectView(run("state")); }

std::map<std::string, int> Workstation::messages(const std::string& event) const {
  std::map<std::string, int> counts;
  const std::vector<JsonValue> all = station_->events(event);
  const auto before = notCounted_.find(event);
  for (std::size_t i = before == notCounted_.end() ? 0 : before->second; i < all.size(); ++i) {
    ++counts[all[i]["text_hex"].asString()];
  }
  return counts;
}

void Workstation::countFromNow() {
  for (const char* const event : {"sent", "received"}) {
    notCounted_[event] = station_->events(event).size();
  }
}

}  // namespace korvel
