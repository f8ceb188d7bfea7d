#include <signal.h>

#include <fstream>
#include <set>

#include "tests/share/SharedStations.h"
#include "tests/support/ToolRun.h"

// What people made is kept: whatever ends a station, and whatever other stations save.

using namespace korvel;

namespace {

namespace fs = std::filesystem;

class KeepingTest : public SharedStations {
 protected:
  /// A station in the project "Film" with the sample edit, called "cut".
  StationProcess& startWithEdit() {
    StationProcess& anna = start("ANNA", 11);
    run(anna, "project create Film");
    run(anna, "project enter Film");
    fs::copy_file(sample("simple_cut.otio"), folder_ / "cut.otio");
    cookie_ = run(anna, "edit import " + (folder_ / "cut.otio")).asString();
    run(anna, "edit rename " + cookie_ + " cut");
    // Else what is kept of the rename may come after the save, and pass for a later change.
    awaitKept();
    run(anna, "edit save cut");
    awaitKept(0);
    return anna;
  }

  /// Waits until so many files with unsaved changes of the edit are on the disk of this machine.
  void awaitKept(std::size_t files = 1) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (std::chrono::steady_clock::now() < deadline) {
      std::size_t found = 0;
      std::error_code gone;
      for (fs::recursive_directory_iterator each(folder_ / "state", gone), end; each != end;
           each.increment(gone)) {
        found += each->path().filename() == cookie_ + ".json";
      }
      if (found == files) return;
      ::usleep(10'000);
    }
    ADD_FAILURE() << "not " << files << " files are kept";
  }

  /// ANNA's next station, after one that was killed with an unsaved trim of the edit.
  StationProcess& startAfterKill() {
    StationProcess& anna = startWithEdit();
    run(anna, "edit trim cut 0/0 0 2");
    awaitKept();
    anna.kill9();
    return start("ANNA", 11);
  }

  static bool wasTold(const StationProcess& station, const std::string& part) {
    for (const JsonValue& event : station.events("log")) {
      if (event["text"].asString().find(part) != std::string::npos) return true;
    }
    return false;
  }

  std::string cookie_;
};

TEST_F(KeepingTest, WhatAKilledStationHadUnsavedIsTakenUpByTheNext) {
  StationProcess& again = startAfterKill();
  run(again, "project enter Film");
  EXPECT_TRUE(wasTold(again, "in 1 edit: \"cut\""));
  EXPECT_EQ(run(again, "state")["recovery"].elements().size(), 1U);
  run(again, "edit recover cut");
  const JsonValue clip = run(again, "edit show cut")["clips"].elements()[0];
  EXPECT_DOUBLE_EQ(clip["end"].asDouble(), 2.0 / 24);
  run(again, "edit save cut");
  EXPECT_EQ(run(again, "state")["recovery"].elements().size(), 0U);
  EXPECT_EQ(again.quit(), 0);
}

TEST_F(KeepingTest, WhatWasLeftUnsavedIsNotGivenAwayWithoutAWord) {
  StationProcess& again = startAfterKill();
  StationProcess& ben = start("BEN", 12);
  run(again, "project enter Film");
  run(ben, "project enter Film");
  EXPECT_NE(refusal(again, "edit give cut BEN").find("were left when a station ended"),
            std::string::npos);
  run(ben, "ask cut");
  ASSERT_TRUE(again.waitFor("asked"));
  EXPECT_NE(refusal(again, "answer 1 give").find("edit recover"), std::string::npos);
  run(again, "edit give cut BEN --force");
  run(again, "edit recover cut");
  EXPECT_TRUE(wasTold(again, "You may not change the edit \"cut\" any more"));
  run(again, "edit save-copy cut Mine");
  const JsonValue copy = run(again, "edit show Mine")["clips"].elements()[0];
  EXPECT_DOUBLE_EQ(copy["end"].asDouble(), 2.0 / 24) << "nothing is lost";
}

TEST_F(KeepingTest, AScriptLeavesAndEndsWithUnsavedChangesOnlyWhenItSaysSo) {
  StationProcess& anna = startWithEdit();
  run(anna, "project create Other");
  run(anna, "edit trim cut 0/0 0 2");
  for (const char* line : {"project leave", "project enter Other", "quit"}) {
    EXPECT_NE(refusal(anna, line).find("1 edit: \"cut\""), std::string::npos) << line;
    EXPECT_NE(refusal(anna, line).find("--discard"), std::string::npos) << line;
  }
  run(anna, "project enter Film");  // it is open: nothing is left
  run(anna, "project enter Other --save");
  run(anna, "project enter Film");
  EXPECT_DOUBLE_EQ(run(anna, "edit show cut")["clips"].elements()[0]["end"].asDouble(), 2.0 / 24);
  run(anna, "edit trim cut 0/0 0 1");
  run(anna, "project leave --discard");
  run(anna, "project enter Film");
  EXPECT_DOUBLE_EQ(run(anna, "edit show cut")["clips"].elements()[0]["end"].asDouble(), 2.0 / 24);
  EXPECT_FALSE(wasTold(anna, "There are unsaved changes"));
  run(anna, "edit trim cut 0/0 0 1");
  anna.type("quit --save");
  EXPECT_EQ(anna.waitForExit(), 0) << anna.errorText();
}

TEST_F(KeepingTest, TheEndOfInputAndASignalKeepWhatIsUnsavedAndSaySo) {
  StationProcess* anna = &startWithEdit();
  for (const bool isSignal : {false, true}) {
    run(*anna, "edit trim cut 0/0 0 2");
    isSignal ? anna->signal(SIGTERM) : anna->endInput();
    EXPECT_EQ(anna->waitForExit(), 0) << anna->errorText();
    EXPECT_TRUE(wasTold(*anna, "are kept on this machine: \"cut\""));
    anna = &start("ANNA", 11);
    run(*anna, "project enter Film");
    EXPECT_TRUE(wasTold(*anna, "There are unsaved changes of "));
    run(*anna, "edit recover cut");
    run(*anna, "edit revert cut");
  }
}

TEST_F(KeepingTest, ASaveThatMissedAnothersIsRefusedWithNameAndDifference) {
  StationProcess& anna = startWithEdit();
  StationProcess& ben = start("BEN", 12, {"--network-mode", "off", "--set", "Administrator=1"});
  run(ben, "project enter Film");
  run(anna, "edit trim cut 0/0 0 2");
  run(ben, "edit rename cut Cut-2");
  run(ben, "edit save Cut-2");
  const std::string refused = refusal(anna, "edit save cut");
  for (const char* part : {"saved by BEN", "renamed to \"Cut-2\", was \"cut\"", "--over"}) {
    EXPECT_NE(refused.find(part), std::string::npos) << refused;
  }
  run(anna, "edit save-copy cut Mine");
  run(anna, "edit save cut --over");
  const JsonValue history = run(anna, "edit history cut");
  ASSERT_GE(history.elements().size(), 3U);
  EXPECT_EQ(history.elements()[0]["user"].asString(), "ANNA");
  EXPECT_EQ(history.elements()[1]["user"].asString(), "BEN");
  run(anna, "edit restore cut " + history.elements()[1]["version"].asString());
  EXPECT_EQ(run(anna, "edit show Cut-2")["name"].asString(), "Cut-2");
}

TEST_F(KeepingTest, EveryVersionThatTwoStationsReportAsSavedIsInFileOrHistory) {
  constexpr int kSaves = 200;
  StationProcess& anna = startWithEdit();
  EXPECT_EQ(anna.quit(), 0);
  const std::vector<std::string> deaf{"--network-mode",  "off",   "--set",
                                      "Administrator=1", "--set", "history_versions=2000"};
  std::vector<StationProcess*> both{&start("ANNA", 11, deaf), &start("BEN", 12, deaf)};
  for (StationProcess* station : both) run(*station, "project enter Film");
  for (int round = 0; round < kSaves; ++round) {
    for (StationProcess* station : both) {
      station->type("edit rename " + cookie_ + " " + station->options().user + "-" +
                    std::to_string(round));
      station->type("edit save " + cookie_ + " --over");
    }
  }
  // Replies come in the order of the commands, so the last one's ends them.
  for (StationProcess* station : both) {
    station->type("whoami");
    ASSERT_TRUE(station->waitFor("reply", {{"command", "whoami"}}, StationProcess::Seconds(300)));
  }
  std::set<std::string> saved;
  for (StationProcess* station : both) {
    std::string name;
    for (const JsonValue& reply : station->events("reply")) {
      const std::string line = reply["line"].asString();
      if (line.starts_with("edit rename")) name = line.substr(line.rfind(' ') + 1);
      if (line.starts_with("edit save") && reply["ok"].asBool()) saved.insert(name);
    }
  }
  EXPECT_EQ(saved.size(), std::size_t{2 * kSaves});
  std::set<std::string> kept;
  for (const auto& entry : fs::recursive_directory_iterator(folder_ / "projects")) {
    if (entry.path().extension() != ".otio") continue;
    std::ifstream file(entry.path(), std::ios::binary);
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const auto json = parseJson(text);
    ASSERT_TRUE(json) << entry.path();
    kept.insert((*json)["name"].asString());
  }
  for (const std::string& name : saved) EXPECT_EQ(kept.count(name), 1U) << name << " is lost";
}

TEST_F(KeepingTest, TheAdministratorSeesHowMuchVersionsAndTrashTake) {
  StationProcess& anna = startWithEdit();
  const std::string more(20'000, 'x');
  std::ofstream(folder_ / "more.otio")
      << R"({"OTIO_SCHEMA":"Timeline.1","name":"More","tracks":{"OTIO_SCHEMA":"Stack.1",)"
      << R"("children":[]},"metadata":{"filling":")" << more << R"("}})";
  const auto amounts = [this] {
    const auto json = parseJson(runTool({"history", folder_ / "projects", "--json"}).out);
    return json ? (*json)["projects"].elements().at(0) : JsonValue();
  };
  const JsonValue before = amounts();
  EXPECT_EQ(before["history"]["objects"].asLong(), 1);
  EXPECT_EQ(before["history"]["versions"].asLong(), 2);
  EXPECT_EQ(before["trash"]["files"].asLong(), 0);
  const std::string large = run(anna, "edit import " + (folder_ / "more.otio")).asString();
  for (const char* name : {"B", "C", "D"}) {
    run(anna, "edit rename " + large + " " + name);
    run(anna, "edit save " + large);
  }
  const JsonValue saved = amounts();
  EXPECT_EQ(saved["history"]["objects"].asLong(), 2);
  EXPECT_EQ(saved["history"]["versions"].asLong(), 6);
  // The newest version is the edit's own file under a second name, and takes no room.
  const long grown = saved["history"]["bytes"].asLong() - before["history"]["bytes"].asLong();
  EXPECT_GT(grown, 3 * 20'000);
  EXPECT_LT(grown, 4 * 20'000);
  run(anna, "edit delete D");
  EXPECT_EQ(amounts()["trash"]["files"].asLong(), 1);
  EXPECT_GT(amounts()["trash"]["bytes"].asLong(), 20'000);
}

TEST_F(KeepingTest, AnExportReplacesAFileOnlyWhenItSaysSo) {
  StationProcess& anna = startWithEdit();
  const std::string file = folder_ / "out.otio";
  run(anna, "edit export cut " + file);
  EXPECT_NE(refusal(anna, "edit export cut " + file).find("--force"), std::string::npos);
  run(anna, "edit export cut " + file + " --force");
  run(anna, "edit create cut");
  EXPECT_TRUE(wasTold(anna, "There was an edit or log called \"cut\" already"));
}

}  // namespace
