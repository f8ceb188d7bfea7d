#include "tests/lab/LabTest.h"

using namespace korvel;

namespace {

class PeopleTest : public LabTest {
 protected:
  /// The second station may not have the room that the first is in.
  static void expectRoomHeld(Workstation& first, Workstation& second) {
    const std::string room = "\"" + first.newName("Room") + "\"";
    first.run("room create " + room);
    first.run("room enter " + room);
    EXPECT_FALSE(second.station().command("room enter " + room)["ok"].asBool(true));
    first.run("room leave");
    second.run("room enter " + room);
    second.run("room leave");
  }

  void expectAllIsWell(Workstation& first, Workstation& second) {
    everyoneWorks(facility_);
    expectRoomHeld(first, second);
    expectEachMessageOnce();
    expectAgreement();
    shows(figures() + ", each came once; a room of one is closed to the other");
  }
};

TEST_F(PeopleTest, TwoStationsHaveTheSameUserName) {
  Workstation& first = facility_.workstation({{}, "SUITE1", "EDITOR", 0, {}}, {&office_});
  Workstation& second = facility_.workstation({{}, "SUITE2", "EDITOR", 0, {}}, {&office_});
  facility_.open();
  expectAllIsWell(first, second);
}

TEST_F(PeopleTest, TwoStationsHaveTheSameHostName) {
  Workstation& first = facility_.workstation({{}, "SUITE", "ANNA", 0, {}}, {&office_});
  Workstation& second = facility_.workstation({{}, "SUITE", "BEN", 0, {}}, {&office_});
  facility_.open();
  expectAllIsWell(first, second);
}

TEST_F(PeopleTest, AStationIsKilledAndRestartedWhileOthersWork) {
  openTwo();
  Workstation& carla = facility_.workstation("CARLA", {&office_});
  carla.switchOn();
  carla.enter("Film");
  const std::string edit = makeThings(carla);
  for (int i = 0; i < 100; ++i) {
    carla.station().type("edit trim " + edit + " 0/0 0 " + (i % 2 == 0 ? "0.125s" : "0.3125s"));
    carla.station().type("edit save " + edit);
  }
  makeThings(*anna_);
  carla.cutPower();
  everyoneWorks(facility_);
  carla.switchOn();
  makeThings(*ben_);
  carla.enter("Film");
  expectHealing();  // what CARLA changed and did not save is nowhere but in the others' memory
  facility_.awaitHearing();
  everyoneWorks(facility_);
  expectEachMessageOnce();
  expectAgreement();
  shows(figures() + "; after the restart each came once");
}

}  // namespace
