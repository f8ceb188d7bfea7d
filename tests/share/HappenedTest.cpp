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

}  // namespace
