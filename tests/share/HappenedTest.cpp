#include <chrono>
#include <thread>

#include "tests/share/SharedStations.h"

// Who did what, as another station lists it.

using namespace korvel;

namespace {

class HappenedTest : public SharedStations {
 protected:
  HappenedTest() {
    start("ANNA", 11);
    start("BEN", 12);
    anna_ = stations_[0].get();
    ben_ = stations_[1].get();
    project_ = run(*anna_, "project create Film").asString();
    run(*anna_, "project enter Film");
    run(*ben_, "project enter " + project_);
    edit_ = run(*anna_, "edit import " + sample("simple_cut.otio")).asString();
    await(*ben_, "presence", {{"user", "ANNA"}});  // whose messages they are is known by now
    run(*anna_, "edit rename " + edit_ + " Cut");
    run(*anna_, "edit save " + edit_);
    await(*ben_, "happened", {{"words", "ANNA saved Cut"}});
  }

  std::string edit_;
};

TEST_F(HappenedTest, ATrimIsToldWithItsClipBeforeAndAfterItIsSaved) {
  run(*anna_, "edit trim " + edit_ + " Clip-002 0 4");
  const JsonValue trim =
      await(*ben_, "happened", {{"words", "ANNA trimmed Clip-002 in Cut, not saved yet"}});
  EXPECT_FALSE(trim["own"].asBool());
  run(*anna_, "edit rename " + edit_ + " Quay");
  run(*anna_, "edit save " + edit_);
  await(*ben_, "happened", {{"words", "ANNA saved Quay"}});
  const auto mine = run(*ben_, "happened ANNA").elements();
  ASSERT_GE(mine.size(), 3u) << writeJson(run(*ben_, "happened"));
  EXPECT_EQ(mine[0]["words"].asString(), "ANNA saved Quay");
  EXPECT_EQ(mine[1]["words"].asString(), "ANNA renamed Cut to Quay, not saved yet");
  EXPECT_EQ(mine[2]["words"].asString(), "ANNA trimmed Clip-002 in Cut, not saved yet");
  EXPECT_EQ(run(*ben_, "happened Quay").elements().size(),
            run(*ben_, "happened " + edit_).elements().size());
}

TEST_F(HappenedTest, WhatWasDoneBeforeOneCameIsToldFromTheVersions) {
  run(*anna_, "edit trim " + edit_ + " Clip-002 0 4");
  run(*anna_, "edit save " + edit_);
  run(*ben_, "project leave");
  run(*ben_, "project enter Film");
  const JsonValue told = await(*ben_, "happened", {{"words", "ANNA trimmed Clip-002 in Cut"}});
  const auto all = run(*ben_, "happened").elements();
  ASSERT_EQ(all.size(), 1u) << writeJson(run(*ben_, "happened"));
  EXPECT_EQ(all[0]["id"].asLong(), told["id"].asLong());
  EXPECT_EQ(all[0]["by"].asString(), "ANNA");
}

TEST_F(HappenedTest, ANameThatIsNobodysAndNothingsIsSaid) {
  EXPECT_EQ(refusal(*ben_, "happened Quey").find("Quey") != std::string::npos, true);
  run(*ben_, "happened BEN");
  run(*ben_, "project leave");
  EXPECT_NE(refusal(*ben_, "happened"), "");
}

/// Who has unsaved changes that a station lacks, as `edit show` tells scripts; awaited.
class MissingTest : public HappenedTest {
 protected:
  bool lacks(StationProcess& station, const std::string& users) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (std::chrono::steady_clock::now() < deadline) {
      if (run(station, "edit show " + edit_)["missing_from"].asString() == users) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return false;
  }
};

TEST_F(MissingTest, WhoOpensAnEditLateIsToldWhatIsMissingUntilItIsSaved) {
  run(*anna_, "edit trim " + edit_ + " Clip-002 0 4");
  await(*ben_, "happened", {{"words", "ANNA trimmed Clip-002 in Cut, not saved yet"}});
  run(*ben_, "edit open " + edit_);
  EXPECT_TRUE(lacks(*ben_, "ANNA"));
  run(*anna_, "edit trim " + edit_ + " Clip-003 0 4");
  await(*ben_, "changed", {{"cookie", edit_}, {"how", "modified"}});
  EXPECT_EQ(run(*ben_, "edit show " + edit_)["missing_from"].asString(), "ANNA")
      << "what comes on top does not make it whole";
  bool isInState = false;
  const JsonValue state = run(*ben_, "state");
  for (const JsonValue& each : state["edits"].elements()) {
    isInState = isInState || each["missing_from"].asString() == "ANNA";
  }
  EXPECT_TRUE(isInState);
  run(*anna_, "edit save " + edit_);
  EXPECT_TRUE(lacks(*ben_, ""));
}

TEST_F(MissingTest, WhoHasItOpenFromTheFirstChangeOnLacksNothing) {
  run(*ben_, "edit open " + edit_);
  run(*anna_, "edit trim " + edit_ + " Clip-002 0 4");
  await(*ben_, "changed", {{"cookie", edit_}, {"how", "modified"}});
  // Her note has named it by then: what it says is no news.
  await(*ben_, "presence", {{"user", "ANNA"}, {"unsaved", "[\"" + edit_ + "\"]"}});
  EXPECT_EQ(run(*ben_, "edit show " + edit_)["missing_from"].asString(), "");
  run(*ben_, "edit close " + edit_);
  EXPECT_TRUE(lacks(*ben_, "ANNA")) << "what was shown went with closing";
}

TEST_F(MissingTest, AStationThatEntersLateLearnsItFromTheNoteAndItHealsWhenTheChangesAreDropped) {
  run(*anna_, "edit trim " + edit_ + " Clip-002 0 4");
  StationProcess& carla = start("CARLA", 13);
  run(carla, "project enter " + project_);
  run(carla, "edit open " + edit_);
  EXPECT_TRUE(lacks(carla, "ANNA"));
  run(*anna_, "edit revert " + edit_);
  EXPECT_TRUE(lacks(carla, ""));
  run(*anna_, "edit trim " + edit_ + " Clip-002 0 4");
  await(carla, "changed", {{"cookie", edit_}, {"how", "modified"}});
  EXPECT_EQ(run(carla, "edit show " + edit_)["missing_from"].asString(), "");
}

TEST_F(MissingTest, ItHealsWhenTheOtherStationGoes) {
  run(*anna_, "edit trim " + edit_ + " Clip-002 0 4");
  run(*ben_, "edit open " + edit_);
  EXPECT_TRUE(lacks(*ben_, "ANNA"));
  EXPECT_EQ(anna_->quit(), 0);
  EXPECT_TRUE(lacks(*ben_, ""));
}

}  // namespace
