#include <chrono>
#include <sstream>

#include "tests/lab/LabTest.h"
#include "tests/lab/Stranger.h"

using namespace korvel;

namespace {

using NetworksTest = LabTest;

TEST_F(NetworksTest, SixteenStationsShareAProject) {
  for (int i = 1; i <= 16; ++i) facility_.workstation("SUITE" + std::to_string(i), {&office_});
  facility_.open();
  everyoneWorks(facility_);
  everyoneGives(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows(figures() + ", each came once to fifteen others");
}

TEST_F(NetworksTest, ANetworkHasNoDefaultRoute) {
  facility_.workstation("ANNA", {&office_});
  facility_.workstation({{}, "BEN", {}, 0, {"--send-to", "255.255.255.255"}}, {&office_});
  facility_.workstation("CARLA", {&office_}).routeEverywhere();
  facility_.open();
  everyoneWorks(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows("directed and limited broadcasts; " + figures() + ", each came once");
}

TEST_F(NetworksTest, StationsHaveTwoNetworksInCommon) {
  Network& storage = facility_.network();
  for (const char* const host : {"ANNA", "BEN"}) facility_.workstation(host, {&office_, &storage});
  facility_.workstation("CARLA", {&storage});
  facility_.open();
  everyoneWorks(facility_);
  everyoneGives(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows(figures() + ", each came once, whatever the ways");
}

TEST_F(NetworksTest, LimitedBroadcastsLeaveByBothOfTwoNetworks) {
  Network& storage = facility_.network();
  for (const char* const host : {"ANNA", "BEN", "CARLA"}) {
    facility_.workstation({{}, host, {}, 0, {"--send-to", "255.255.255.255"}},
                          {&office_, &storage});
  }
  facility_.open();
  everyoneWorks(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows(figures() + ", each came once, whatever the ways");
}

TEST_F(NetworksTest, StationsMeetInAMulticastGroup) {
  Network& storage = facility_.network();
  for (const char* const host : {"ANNA", "BEN", "CARLA"}) {
    facility_.workstation({{}, host, {}, 0, {"--send-to", "239.7.7.7"}}, {&office_, &storage});
  }
  facility_.open();
  everyoneWorks(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows(figures() + ", each came once, whatever the ways");
}

TEST_F(NetworksTest, ACableIsPulledForAMinute) {
  openTwo();
  const std::string edit = makeThings(*anna_);
  expectAgreement();
  ben_->run("edit open " + edit);
  ben_->cable().pull();
  const auto end = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  std::string agreed;
  while (std::chrono::steady_clock::now() < end) {
    everyoneWorks(facility_);
    anna_->run("edit trim " + edit + " 0/0 0 0.0625s");
    anna_->run("edit save " + edit);
    agreed = expectCatchingUp();
    anna_->run("sleep 5");
  }
  ben_->cable().putBack();
  facility_.awaitHearing();
  everyoneWorks(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows(agreed + ", with the cable out; then each message came once");
}

TEST_F(NetworksTest, AnInterfaceAppearsLater) {
  openTwo();
  Network& distant = facility_.network();
  Workstation& carla = facility_.workstation("CARLA", {});
  Workstation& dave = facility_.workstation("DAVE", {&distant});
  for (Workstation* const late : {&carla, &dave}) {
    late->switchOn();
    late->enter("Film");
  }
  facility_.plug(carla, office_);
  for (Workstation* const machine : {anna_, ben_, &carla}) facility_.plug(*machine, distant);
  facility_.awaitHearing();
  everyoneWorks(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows("a first and a second network while stations run; " + figures() + ", then each came once");
}

TEST_F(NetworksTest, StationsWorkInTwoProjectsOnOneNetwork) {
  openTwo();
  anna_->run("project create Series");
  for (const char* const host : {"CARLA", "DAVE"}) {
    Workstation& machine = facility_.workstation(host, {&office_});
    machine.switchOn();
    machine.enter("Series");
  }
  facility_.awaitHearing();
  everyoneWorks(facility_);
  expectEachMessageOnce();
  std::istringstream lines(facility_.difference(std::chrono::seconds(2)));
  for (std::string line; std::getline(lines, line);) {
    // Required: messages about media are taken whatever project is open.
    EXPECT_TRUE(line.ends_with(":") || line.starts_with("+ media")) << line;
  }
  expectHealing();
  shows("media files alone are listed in both, until a project is entered again");
}

TEST_F(NetworksTest, TwoPortsDoNotHearEachOther) {
  for (const char* const host : {"ANNA", "BEN"}) facility_.workstation(host, {&office_});
  for (const char* const host : {"CARLA", "DAVE"}) {
    facility_.workstation({{}, host, {}, 27016, {}}, {&office_});
  }
  facility_.open();
  atOnce(facility_, [](Workstation& machine) { changeThings(machine, makeThings(machine)); });
  expectEachMessageOnce();
  expectHealing();
  shows(figures() + ", each came to those on its port alone");
}

TEST_F(NetworksTest, AForeignProgramFloodsThePortWithGarbage) {
  openTwo();
  Stranger stranger(facility_, office_, 500);
  for (int round = 0; round < 3; ++round) everyoneWorks(facility_);
  const std::size_t garbage = stranger.stop();
  EXPECT_GT(garbage, 0u);
  const long dropped = facility_.droppedCount();
  if (dropped > 0) {
    expectHealing();
  } else {
    expectEachMessageOnce(Facility::Strangers::eSend);
    expectAgreement();
  }
  shows(figures() + " among " + std::to_string(garbage) + " foreign datagrams; " +
        std::to_string(dropped) + " told as dropped");
}

}  // namespace
