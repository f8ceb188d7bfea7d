#include "tests/lab/Work.h"

#include <gtest/gtest.h>

#include <map>
#include <thread>

namespace korvel {

namespace {

/// A station that is behind waits a second for each file that is gone by the time it is told of it.
constexpr StationProcess::Seconds kPatience{60};

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

std::string made(Workstation& machine, const std::string& command, const std::string& kind) {
  return machine.run(command + " " + quoted(machine.newName(kind))).asString();
}

void trim(Workstation& machine, const std::string& edit, const std::string& end) {
  machine.run("edit trim " + edit + " 0/0 0 " + end);
  machine.run("edit save " + edit);
}

}  // namespace

std::string makeThings(Workstation& machine) {
  const std::string edit =
      machine.run("edit import " + quoted(KV_SAMPLES "/simple_cut.otio")).asString();
  machine.run("edit open " + edit);
  machine.run("edit rename " + edit + " " + quoted(machine.newName("Cut")));
  trim(machine, edit, "0.125s");
  const std::string log = made(machine, "log create", "Shot");
  const std::string bin = made(machine, "bin create", "Dailies");
  machine.run("bin add " + bin + " " + edit + " " + log);
  machine.run("rack add " + made(machine, "rack create", "Shelf") + " " + bin);
  const std::string night = quoted(machine.newName("Night"));
  machine.run("filter create " + night + " \"scene < 10\"");
  machine.run("filter change " + night + " \"scene < 12\"");
  machine.run("media add " + quoted(machine.newMediaFile()));
  const std::string room = quoted(machine.newName("Room"));
  machine.run("room create " + room);
  machine.run("room enter " + room);
  machine.run("bin add " + made(machine, "bin create", "Selects") + " " + edit);
  return edit;
}

void changeThings(Workstation& machine, const std::string& edit) {
  trim(machine, edit, "0.3125s");
  const JsonValue bins = machine.run("bin list");
  for (const JsonValue& bin : bins.elements()) {
    const std::string& name = bin["name"].asString();
    const bool isOwn = name.ends_with(" of " + machine.name());
    if (isOwn && name.starts_with("Selects")) machine.run("bin destroy " + quoted(name));
  }
  machine.run("room leave");
}

void everyoneWorks(const Facility& facility) {
  std::map<const Workstation*, std::string> edits;
  for (const auto& machine : facility.machines()) {
    if (machine->isOn()) edits[machine.get()];
  }
  atOnce(facility, [&edits](Workstation& machine) { edits[&machine] = makeThings(machine); });
  atOnce(facility, [](Workstation& machine) { machine.openAllEdits(); });
  atOnce(facility, [&edits](Workstation& machine) { changeThings(machine, edits[&machine]); });
}

void everyoneGives(const Facility& facility) {
  const auto& machines = facility.machines();
  for (std::size_t i = 0; i < machines.size(); ++i) {
    Workstation& giver = *machines[i];
    Workstation& taker = *machines[(i + 1) % machines.size()];
    const std::string edit = made(giver, "edit create", "Gift");
    giver.run("edit give " + edit + " " + taker.host() + " --force");
    EXPECT_TRUE(
        taker.station().waitFor("changed", {{"what", "permissions"}, {"cookie", edit}}, kPatience))
        << taker.name() << " was not told of its gift";
    taker.run("edit open " + edit);
    taker.run("edit rename " + edit + " " + quoted(taker.newName("Present")));
    taker.run("edit save " + edit);
  }
}

void atOnce(const Facility& facility, const std::function<void(Workstation&)>& work) {
  std::vector<std::thread> hands;
  for (const auto& machine : facility.machines()) {
    if (machine->isOn()) hands.emplace_back([&work, &machine] { work(*machine); });
  }
  for (std::thread& hand : hands) hand.join();
}

}  // namespace korvel
