#include "tests/share/SharedStations.h"

#include <cstdlib>

namespace korvel {

SharedStations::SharedStations(const std::filesystem::path& parent) : folder_(parent) {
  ::setenv("XDG_CONFIG_HOME", (folder_ / "config").c_str(), 1);  // none of this user's
  ::setenv("XDG_STATE_HOME", (folder_ / "state").c_str(), 1);
  std::filesystem::create_directory(folder_ / "projects");
}

StationProcess& SharedStations::start(const std::string& name, int machine,
                                      const std::vector<std::string>& more) {
  StationProcess::Options options;
  options.program = KV_STATION;
  options.projects = folder_ / "projects";
  options.user = name;
  options.host = name;
  options.machine = machine;
  options.port = port_;
  options.more = more;
  stations_.push_back(std::make_unique<StationProcess>(std::move(options)));
  StationProcess& station = *stations_.back();
  EXPECT_TRUE(station.waitUntilReady()) << name << ": " << station.errorText();
  return station;
}

void SharedStations::startThree(const std::vector<std::string>& more) {
  anna_ = &start("ANNA", 11, more);
  ben_ = &start("BEN", 12, more);
  carla_ = &start("CARLA", 13, more);
  project_ = run(*anna_, "project create Film").asString();
  for (StationProcess* station : {anna_, ben_, carla_}) run(*station, "project enter Film");
  for (StationProcess* station : {anna_, ben_, carla_}) settle(*station);
}

JsonValue SharedStations::run(StationProcess& station, const std::string& line) {
  const JsonValue reply = station.command(line);
  EXPECT_TRUE(reply["ok"].asBool())
      << station.options().user << ": " << line << ": " << writeJson(reply) << station.errorText();
  return reply["result"];
}

std::string SharedStations::refusal(StationProcess& station, const std::string& line) {
  const JsonValue reply = station.command(line);
  EXPECT_TRUE(reply.isObject()) << line << ": no reply";
  EXPECT_FALSE(reply["ok"].asBool()) << line << ": " << writeJson(reply);
  return reply["error"].asString();
}

JsonValue SharedStations::await(StationProcess& station, const std::string& event,
                                const Keys& keys) {
  const auto found = station.waitFor(event, keys);
  std::string wanted = event;
  for (const auto& [key, value] : keys) wanted += " " + key + "=" + value;
  EXPECT_TRUE(found) << station.options().user << " saw no " << wanted;
  return found ? *found : JsonValue();
}

void SharedStations::settle(StationProcess& station) {
  const std::string words = "settled " + std::to_string(++markers_);
  send({"user-message", "--target", "nobody here", "--data", words});
  await(station, "received", {{"data", words}});
  run(station, "whoami");
}

std::size_t SharedStations::sentCount(const StationProcess& station) {
  std::size_t count = 0;
  for (const JsonValue& event : station.events("sent")) {
    if (event["type_name"].asString() != "RoomChange") ++count;
  }
  return count;
}

void SharedStations::send(std::vector<std::string> words) {
  std::vector<std::string> line{KV_SHARE,    "send",           "--port", std::to_string(port_),
                                "--send-to", "127.255.255.255"};
  line.insert(line.begin() + 2, words.front());
  line.insert(line.end(), words.begin() + 1, words.end());
  const ProgramRun sent = runProgram(line);
  EXPECT_EQ(sent.status, 0) << words.front() << ": " << sent.errors;
}

std::string SharedStations::sample(const std::string& name) const {
  return std::string(KV_SAMPLES) + "/" + name;
}

std::vector<std::string> SharedStations::stationWords(std::vector<std::string> more) const {
  std::vector<std::string> words{KV_STATION,       "--projects",          folder_ / "projects",
                                 "--port",         std::to_string(port_), "--send-to",
                                 "127.255.255.255"};
  words.insert(words.end(), more.begin(), more.end());
  return words;
}

}  // namespace korvel
