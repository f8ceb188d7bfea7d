#include <chrono>
#include <csignal>
#include <filesystem>
#include <thread>

#include "tests/share/SharedStations.h"

// What one station undoes, as the others see it.

using namespace korvel;

namespace {

class UndoShareTest : public SharedStations {
 protected:
  UndoShareTest() {
    startThree();
    std::filesystem::copy_file(sample("simple_cut.otio"), folder_ / "cut.otio");
    edit_ = run(*anna_, "edit import " + (folder_ / "cut.otio")).asString();
    run(*anna_, "edit rename " + edit_ + " cut");
    run(*anna_, "edit save cut");
    settle(*ben_);
    run(*ben_, "edit open " + edit_);
  }

  /// What a station shows of the project, without what is its own affair.
  static JsonValue shown(StationProcess& station) {
    const JsonValue state = run(station, "state");
    JsonValue common = JsonValue::object({{"bins", state["bins"]}, {"filters", state["filters"]}});
    JsonValue edits = JsonValue::array();
    for (const JsonValue& each : state["edits"].elements()) {
      const std::string cookie = each["cookie"].asString();
      edits.append(JsonValue::object({{"cookie", cookie},
                                      {"name", each["name"]},
                                      {"owner", each["owner"]},
                                      {"clips", run(station, "edit show " + cookie)["clips"]}}));
    }
    common.set("edits", std::move(edits));
    return common;
  }

  /// Both come to show the same before the folder was looked at a few times more: a message of an
  /// object may wait a second behind one whose file is not there, and what no message told is found
  /// two seconds later.
  void expectSame() {
    constexpr std::chrono::seconds kLongest(10);
    settle(*ben_);
    const std::string hers = writeJson(shown(*anna_));
    std::string his = writeJson(shown(*ben_));
    const auto begin = std::chrono::steady_clock::now();
    const auto deadline = begin + std::chrono::minutes(2);
    while (his != hers && std::chrono::steady_clock::now() < deadline) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
      his = writeJson(shown(*ben_));
    }
    EXPECT_EQ(hers, his);
    EXPECT_LT(std::chrono::steady_clock::now() - begin, kLongest);
  }

  static std::vector<std::string> sentSince(const StationProcess& station, std::size_t from) {
    std::vector<std::string> types;
    const auto sent = station.events("sent");
    for (std::size_t at = from; at < sent.size(); ++at) {
      types.push_back(sent[at]["type_name"].asString());
    }
    return types;
  }

  std::string edit_;
};

TEST_F(UndoShareTest, TheOthersSeeEveryStepUndoneAndDoneAgain) {
  run(*anna_, "edit trim cut 0/0 0 2");
  run(*anna_, "edit rename cut Harbour");
  run(*anna_, "edit save Harbour");
  const std::string bin = run(*anna_, "bin create Rushes").asString();
  run(*anna_, "bin add Rushes Harbour");
  run(*anna_, "filter create Day day");
  run(*anna_, "filter change Day night");
  run(*anna_, "bin destroy Rushes");
  run(*anna_, "edit give Harbour BEN --force");
  expectSame();
  for (int round = 0; round < 2; ++round) {
    for (int step = 0; step < 7; ++step) {
      const std::string text = run(*anna_, "undo").asString();
      EXPECT_EQ(run(*anna_, "state")["steps"]["redo"].asString(),
                "Redo" + text.substr(std::string("Undone:").size()));
    }
    EXPECT_NE(run(*anna_, "state")["steps"]["undo"].asString().find("trim of "), std::string::npos);
    run(*anna_, "undo");
    EXPECT_EQ(run(*anna_, "edit list").elements()[0]["name"].asString(), "cut");
    expectSame();
    for (int step = 0; step < 8; ++step) run(*anna_, "redo");
    expectSame();
  }
}

TEST_F(UndoShareTest, WhatWasUndoneWhileAStationStoodStillIsSoonGoneFromIt) {
  run(*anna_, "bin create Rushes");
  run(*anna_, "bin add Rushes cut");
  run(*anna_, "bin remove Rushes cut");
  expectSame();
  ben_->signal(SIGSTOP);
  for (int step = 0; step < 3; ++step) run(*anna_, "undo");
  ben_->signal(SIGCONT);
  expectSame();
  ben_->signal(SIGSTOP);
  for (int step = 0; step < 3; ++step) run(*anna_, "redo");
  for (int step = 0; step < 3; ++step) run(*anna_, "undo");
  ben_->signal(SIGCONT);
  expectSame();
}

TEST_F(UndoShareTest, AnUndoneStepSendsWhatSuchAChangeSends) {
  const auto types = [&](const std::string& line) {
    const std::size_t before = anna_->events("sent").size();
    run(*anna_, line);
    return sentSince(*anna_, before);
  };
  using Types = std::vector<std::string>;
  run(*anna_, "edit trim cut 0/0 0 2");
  EXPECT_EQ(types("undo"), Types{"EditModification"});
  run(*anna_, "edit revert cut");
  run(*anna_, "bin create Rushes");
  EXPECT_EQ(types("undo"), Types{"ContainerModification"});
  run(*anna_, "edit delete cut");
  EXPECT_EQ(types("undo"), Types{"EditCreated"});
  EXPECT_EQ(types("redo"), Types{"EditDeleted"});
}

TEST_F(UndoShareTest, AnothersChangeInBetweenMakesAnUndoRefuse) {
  run(*anna_, "bin create Rushes");
  run(*anna_, "bin add Rushes cut");
  await(*anna_, "steps", {{"undo", "Undo putting 1 object into bin Rushes"}});
  settle(*ben_);
  run(*ben_, "bin remove Rushes " + edit_);
  settle(*anna_);
  EXPECT_NE(refusal(*anna_, "undo").find("no longer possible, and was dropped"), std::string::npos);
  EXPECT_EQ(run(*anna_, "undo").asString(), "Undone: making of bin Rushes");
  EXPECT_NE(refusal(*ben_, "redo").find("nothing to redo"), std::string::npos);
  expectSame();
}

TEST_F(UndoShareTest, AGiftIsTakenBackUntilItsNewOwnerSaves) {
  run(*anna_, "edit give cut BEN --force");
  settle(*ben_);
  EXPECT_TRUE(run(*ben_, "edit may cut")["allowed"].asBool());
  run(*anna_, "undo");
  settle(*ben_);
  EXPECT_FALSE(run(*ben_, "edit may cut")["allowed"].asBool());
  EXPECT_TRUE(run(*anna_, "edit may cut")["allowed"].asBool());
  run(*anna_, "redo");
  settle(*ben_);
  run(*ben_, "edit rename cut Bens");
  run(*ben_, "edit save Bens");
  settle(*anna_);
  EXPECT_NE(refusal(*anna_, "undo").find("was changed since"), std::string::npos);
  EXPECT_FALSE(run(*anna_, "edit may Bens")["allowed"].asBool());
}

TEST_F(UndoShareTest, WhatIsUndoneToWhatWasSavedIsUnsavedNoMore) {
  const auto isDirty = [](StationProcess& station) {
    const JsonValue edits = run(station, "edit list");
    return edits.elements().at(0)["dirty"].asBool();
  };
  run(*anna_, "edit trim cut 0/0 1 2");
  run(*anna_, "edit rename cut Harbour");
  settle(*ben_);
  EXPECT_TRUE(isDirty(*anna_) && isDirty(*ben_));
  run(*anna_, "undo");
  EXPECT_TRUE(isDirty(*anna_));
  const auto sent = anna_->events("sent").size();
  run(*anna_, "undo");
  settle(*ben_);
  EXPECT_FALSE(isDirty(*anna_));
  EXPECT_FALSE(isDirty(*ben_)) << "neither where it is open";
  EXPECT_EQ(sentSince(*anna_, sent).size(), 1u) << "the step itself is all that goes out";
  run(*anna_, "redo");
  EXPECT_TRUE(isDirty(*anna_));
  EXPECT_NE(refusal(*anna_, "project leave").find("unsaved"), std::string::npos);
  run(*anna_, "undo");
  run(*anna_, "project leave");
  run(*anna_, "project enter Film");
  EXPECT_TRUE(run(*anna_, "state")["recovery"].elements().empty()) << "nothing to recover";
}

TEST_F(UndoShareTest, AReturnToAnOlderVersionIsAStepOfItsOwn) {
  run(*anna_, "edit rename cut Harbour");
  run(*anna_, "edit save Harbour");
  const JsonValue versions = run(*anna_, "edit history Harbour");
  const std::string first = versions.elements().back()["version"].asString();
  run(*anna_, "edit restore Harbour " + first);
  const auto name = [](StationProcess& station) {
    const JsonValue edits = run(station, "edit list");
    return edits.elements().at(0)["name"].asString();
  };
  const std::string before = name(*anna_);
  EXPECT_NE(before, "Harbour");
  EXPECT_EQ(run(*anna_, "undo").asString(), "Undone: return of " + before + " to version " + first);
  EXPECT_EQ(name(*anna_), "Harbour");
  expectSame();
  run(*anna_, "redo");
  EXPECT_EQ(name(*anna_), before);
  run(*anna_, "undo");
  EXPECT_EQ(run(*anna_, "edit history Harbour").elements().front()["user"].asString(), "ANNA");
  // What was saved since is not lost to a step.
  run(*anna_, "redo");
  run(*anna_, "edit rename " + edit_ + " Quay");
  run(*anna_, "edit save Quay");
  run(*anna_, "undo");
  run(*anna_, "edit save " + edit_ + " --over");
  EXPECT_NE(refusal(*anna_, "undo").find("changed since"), std::string::npos);
}

}  // namespace
