#include "tests/lab/Work.h"

#include <gtest/gtest.h>

namespace {

std::string quoted(const std::string& text) { return "\"" + text + "\""; }

void trim(Workstation& machine, const std::string& edit, const std::string& end) {
  machine.run("edit trim " + edit + " 0/0 0 " + end);
  machine.run("edit save " + edit);
}

}  // namespace

std::string makeThings(Workstation& machine) {
  const std::string sample = KV_SAMPLES "/simple_cut.otio";
  const std::string of = " of " + machine.host();
  const std::string edit = machine.run("edit import " + quoted(sample)).asString();
  machine.run("edit open " + edit);
  machine.run("edit rename " + edit + " " + quoted("Cut" + of));
  trim(machine, edit, "0.125s");
  const std::string log = machine.run("log create " + quoted("Shot" + of)).asString();
  const std::string bin = machine.run("bin create " + quoted("Dailies" + of)).asString();
  machine.run("bin add " + bin + " " + edit + " " + log);
  const std::string rack = machine.run("rack create " + quoted("Shelf" + of)).asString();
  machine.run("rack add " + rack + " " + bin);
  const std::string filter =
      machine.run("filter create " + quoted("Night" + of) + " \"scene < 10\"").asString();
  machine.run("filter change " + filter + " \"scene < 12\"");
  machine.run("media add " + quoted(machine.mediaFile()));
  machine.run("room create " + machine.host());
  machine.run("room enter " + machine.host());
  return edit;
}

void changeThings(Workstation& machine, const std::string& edit) {
  trim(machine, edit, "0.3125s");
  const std::string bin =
      machine.run("bin create " + quoted("Selects of " + machine.host())).asString();
  machine.run("bin add " + bin + " " + edit);
  machine.run("bin destroy " + bin);
  machine.run("room leave");
}

void everyoneWorks(const Facility& facility) {
  std::map<Workstation*, std::string> edits;
  for (const auto& machine : facility.machines()) {
    if (machine->isOn()) edits[machine.get()] = makeThings(*machine);
  }
  for (const auto& [machine, own] : edits) {
    for (const auto& [other, edit] : edits) {
      if (other != machine) machine->run("edit open " + edit);
    }
  }
  for (const auto& [machine, edit] : edits) changeThings(*machine, edit);
}

void everyoneGives(const Facility& facility) {
  const auto& machines = facility.machines();
  for (std::size_t i = 0; i < machines.size(); ++i) {
    Workstation& giver = *machines[i];
    Workstation& taker = *machines[(i + 1) % machines.size()];
    const std::string edit = giver.run("edit create Gift").asString();
    giver.run("edit give " + edit + " " + taker.host());
    EXPECT_TRUE(taker.station().waitFor("changed", {{"what", "permissions"}, {"cookie", edit}}))
        << taker.host() << " was not told of its gift";
    taker.run("edit open " + edit);
    taker.run("edit rename " + edit + " " + quoted("Gift from " + giver.host()));
    taker.run("edit save " + edit);
  }
}
