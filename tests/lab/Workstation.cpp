#include "tests/lab/Workstation.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <utility>

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
  options.user = setup_.user.empty() ? setup_.host : setup_.user;
  options.more = setup_.more;
  station_ = std::make_unique<StationProcess>(std::move(options));
  isOn_ = true;
}

void Workstation::cutPower() {
  station_->kill9();
  isOn_ = false;
}

void Workstation::waitUntilReady() {
  EXPECT_TRUE(station_->waitUntilReady()) << host() << ": " << station_->errorText();
}

void Workstation::enter(const std::string& project) {
  waitUntilReady();
  run("project enter \"" + project + "\"");
}

JsonValue Workstation::run(const std::string& line) {
  const JsonValue reply = station_->command(line);
  EXPECT_TRUE(reply["ok"].asBool())
      << host() << ": " << line << ": " << writeJson(reply) << station_->errorText();
  return reply["result"];
}

std::string Workstation::mediaFile() {
  const std::string name = host() + "-" + std::to_string(++mediaFiles_) + ".mov";
  std::ofstream(setup_.projects + "/../" + name) << name;
  return std::filesystem::canonical(setup_.projects + "/../" + name);
}

ProjectView Workstation::view() { return ProjectView(run("state")); }

std::map<std::string, int> Workstation::messages(const std::string& event) const {
  std::map<std::string, int> counts;
  for (const JsonValue& each : station_->events(event)) ++counts[each["text_hex"].asString()];
  return counts;
}
