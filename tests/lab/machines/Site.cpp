#include "tests/lab/machines/Site.h"

#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <cstdlib>
#include <utility>

namespace korvel {

namespace {

constexpr int kPort = 27015;
constexpr StationProcess::Seconds kReady(60);
/// A machine that came back without a goodbye waits over a minute for its first NFSv4 mount.
constexpr StationProcess::Seconds kCall(180);

std::string stateFolder() {
  const char* const folder = std::getenv("KV_MACHINES");
  return folder ? folder : "";
}

/// Numbers jobs throughout the process.
std::string nextJob() {
  static int count = 0;
  return "station" + std::to_string(++count);
}

}  // namespace

double Site::pace() {
  const char* const text = std::getenv("KV_LAB_PACE");
  return text ? std::atof(text) : 1;
}

Site::Site(std::string kind) : kind_(std::move(kind)) {
  on("server", {"mkdir", "-p", "-m", "777", projects("server")});
}

std::string Site::script() const {
  return std::string(KV_MACHINE_SCRIPTS) + (hasKernels() ? "/machines" : "/volume");
}

std::string Site::projects(const std::string& machine) const {
  if (!hasKernels()) {
    const std::string volume = stateFolder() + "/gluster/";
    return volume + (machine == "server" ? "brick" : "mnt/" + machine) + "/" + kind_;
  }
  return (machine == "server" ? "/media/disk/share/" : "/media/" + kind_ + "/") + kind_;
}

StationProcess& Site::start(const std::string& machine, const std::string& user) {
  Seat seat{machine, nextJob(), nullptr};
  StationProcess::Options options;
  options.prefix = {script(), "attach", machine, seat.job};
  options.program = KV_STATION;
  options.projects = projects(machine);
  options.user = options.host = user;
  options.port = kPort;
  options.pace = pace();
  options.sendTo = hasKernels() ? "" : "127.255.255.255";
  seat.station = std::make_unique<StationProcess>(std::move(options));
  seats_.push_back(std::move(seat));
  StationProcess& station = *seats_.back().station;
  EXPECT_TRUE(station.waitUntilReady(kReady))
      << kind_ << ": no station on " << machine << ": " << station.errorText();
  return station;
}

JsonValue Site::run(StationProcess& station, const std::string& line) {
  const JsonValue reply = station.command(line);
  EXPECT_TRUE(reply["ok"].asBool())
      << station.options().user << ": " << line << ": " << writeJson(reply);
  return reply["result"];
}

Site::Seat& Site::seatOf(const StationProcess& station) {
  return *std::find_if(seats_.begin(), seats_.end(),
                       [&station](const Seat& seat) { return seat.station.get() == &station; });
}

void Site::kill9(StationProcess& station) {
  const Seat& seat = seatOf(station);
  call({script(), "signal", seat.machine, seat.job, "KILL"});
}

void Site::end(StationProcess& station) {
  station.quit();
  std::erase_if(seats_, [&station](const Seat& seat) { return seat.station.get() == &station; });
}

void Site::cut(const std::string& machine) {
  call({script(), "cut", machine});
  std::erase_if(seats_, [&machine](const Seat& seat) { return seat.machine == machine; });
}

void Site::restore(const std::string& machine) {
  call({std::string(KV_MACHINE_SCRIPTS) + "/site", "restore", machine, kind_});
}

std::string Site::on(const std::string& machine, const std::vector<std::string>& words) const {
  std::vector<std::string> line{script(), "on", machine};
  line.insert(line.end(), words.begin(), words.end());
  return call(line).output;
}

ProgramRun Site::call(const std::vector<std::string>& words) {
  ProgramRun run = runProgram(words, {}, kCall * pace());
  EXPECT_EQ(run.status, 0) << words[1] << " " << words[2] << ": " << run.errors << run.output;
  return run;
}

void Site::endAll() {
  for (Seat& seat : seats_) seat.station->quit();
  seats_.clear();
}

}  // namespace korvel
