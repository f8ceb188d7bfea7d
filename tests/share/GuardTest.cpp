#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <linux/capability.h>

#include <algorithm>
#include <chrono>
#include <fstream>
#include <set>

#include "tests/share/SharedStations.h"
#include "tests/support/Slowdown.h"

using namespace korvel;

namespace {

/// Who is in which project or room, as stations see it of each other.
class GuardTest : public SharedStations {
 protected:
  GuardTest() : SharedStations("/dev/shm") {
    anna_ = &start("ANNA", 11);
    ben_ = &start("BEN", 12);
  }

  /// The file of the private project "Secret", which anna makes and holds.
  std::string holdSecret() {
    const std::string cookie = run(*anna_, "project create Secret --private").asString();
    run(*anna_, "project enter Secret");
    return folder_ / ("projects/" + cookie + "/Lock");
  }

  /// Ben's refusal of a command that must name the holder within a tenth of a second; the soonest
  /// of some, since the machine does other things, too.
  void expectRefusedAtOnce(const std::string& line, const std::string& holder) {
    double soonest = 1e9;
    for (int round = 0; round < 5; ++round) {
      const auto begin = std::chrono::steady_clock::now();
      const std::string said = refusal(*ben_, line);
      const std::chrono::duration<double> took = std::chrono::steady_clock::now() - begin;
      soonest = std::min(soonest, took.count());
      EXPECT_NE(said.find("held by " + holder), std::string::npos) << said;
      EXPECT_NE(said.find("Wait until it is left"), std::string::npos) << said;
    }
    EXPECT_LT(soonest, 0.1 * kSlowdown) << line;
  }

  /// A line of "room list" or "project list" by its name.
  static JsonValue listed(StationProcess& station, const std::string& command,
                          const std::string& name) {
    const JsonValue all = run(station, command);
    for (const JsonValue& each : all.elements()) {
      if (each["name"].asString() == name) return each;
    }
    ADD_FAILURE() << name << " is not in " << writeJson(all);
    return {};
  }
};

TEST_F(GuardTest, ASecondStationIsRefusedWithTheHoldersNameAtOnceAndEntersAfterIt) {
  holdSecret();
  expectRefusedAtOnce("project enter Secret", "ANNA");
  EXPECT_EQ(listed(*ben_, "project list", "Secret")["owner"].asString(), "ANNA");
  EXPECT_EQ(anna_->quit(), 0);
  run(*ben_, "project enter Secret");
  EXPECT_EQ(listed(*ben_, "project list", "Secret")["owner"].asString(), "BEN");
}

TEST_F(GuardTest, AfterTheHolderWasKilledTheSecondEntersAtOnce) {
  holdSecret();
  expectRefusedAtOnce("project enter Secret", "ANNA");
  anna_->kill9();
  EXPECT_EQ(listed(*ben_, "project list", "Secret")["lock"].asString(), "left behind");
  run(*ben_, "project enter Secret");
  EXPECT_EQ(listed(*ben_, "project list", "Secret")["lock"].asString(), "held");
  EXPECT_EQ(listed(*ben_, "project list", "Secret")["owner"].asString(), "BEN");
}

TEST_F(GuardTest, RoomsShowWhoIsInThemAndAMoveTakesTheNewOneFirst) {
  run(*anna_, "project create Film");
  for (StationProcess* station : {anna_, ben_}) run(*station, "project enter Film");
  for (const char* name : {"Sound", "Colour"}) run(*anna_, std::string("room create ") + name);
  run(*anna_, "room enter Sound");
  EXPECT_EQ(listed(*ben_, "room list", "Sound")["by"].asString(), "ANNA");
  expectRefusedAtOnce("room enter Sound", "ANNA");
  run(*ben_, "room enter Colour");
  refusal(*anna_, "room enter Colour");
  EXPECT_TRUE(listed(*anna_, "room list", "Sound")["here"].asBool());
  run(*ben_, "room leave");
  run(*anna_, "room enter Colour");
  EXPECT_EQ(listed(*ben_, "room list", "Sound")["state"].asString(), "free");
  EXPECT_EQ(run(*ben_, "active").asLong(), 2);
  anna_->kill9();
  EXPECT_EQ(listed(*ben_, "room list", "Colour")["state"].asString(), "left behind");
  run(*ben_, "room enter Colour");
  EXPECT_EQ(listed(*ben_, "room list", "Colour")["by"].asString(), "BEN");
}

TEST_F(GuardTest, WhateverTheInformationFileHoldsTheProjectStaysHeld) {
  struct Row {
    const char* what;
    std::string content;
    std::string owner;
  };
  const std::string cut = std::string(199, 'x') + "\xC3\xBC";
  const std::string info = holdSecret() + ".inf";
  for (const Row& row :
       std::vector<Row>{{"nothing", "", ""},
                        {"300 bytes", std::string(300, 'n'), std::string(200, 'n')},
                        {"no UTF-8", "A\xFF\xFE\x80", "A"},
                        {"a cut letter", cut, std::string(199, 'x')},
                        {"control bytes", "A\x1B[2J\nB", "A?[2J?B"}}) {
    SCOPED_TRACE(row.what);
    std::ofstream(info, std::ios::binary) << row.content;
    const JsonValue shown = listed(*ben_, "project list", "Secret");
    EXPECT_EQ(shown["lock"].asString(), "held");
    EXPECT_EQ(shown["owner"].asString().substr(0, row.owner.size()), row.owner) << writeJson(shown);
    const std::string said = refusal(*ben_, "project enter Secret");
    const std::string holder = row.owner.empty() ? "another station" : row.owner;
    EXPECT_NE(said.find("is held by " + holder), std::string::npos) << said;
  }
}

TEST_F(GuardTest, AFolderOrALinkInPlaceOfTheInformationFileIsNoName) {
  const std::string lock = holdSecret();
  std::filesystem::remove(lock + ".inf");
  std::filesystem::create_directory(lock + ".inf");
  EXPECT_NE(refusal(*ben_, "project enter Secret").find("held by another station"),
            std::string::npos);
  std::filesystem::remove(lock + ".inf");
  std::ofstream(folder_ / "elsewhere") << "MALLORY";
  std::filesystem::create_symlink(folder_ / "elsewhere", lock + ".inf");
  EXPECT_EQ(listed(*ben_, "project list", "Secret")["owner"].asString(), "");
  EXPECT_EQ(anna_->quit(), 0);
  run(*ben_, "project enter Secret");
  std::ifstream file(folder_ / "elsewhere");
  std::string content;
  std::getline(file, content);
  EXPECT_EQ(content, "MALLORY");  // a holder's name is not written through a link
}

TEST_F(GuardTest, ALockFileThatIsNoFileOrAnotherUsersAloneIsToldAndNothingIsHeld) {
  const std::string cookie = run(*anna_, "project create Secret --private").asString();
  const std::string lock = folder_ / ("projects/" + cookie + "/Lock");
  std::filesystem::create_directory(lock);
  EXPECT_NE(refusal(*ben_, "project enter Secret").find("no plain file is in its place"),
            std::string::npos);
  std::filesystem::remove(lock);
  std::ofstream(lock).flush();
  ::chmod(lock.c_str(), 0000);
  if (::geteuid() == 0) {
    for (const int right : {CAP_DAC_OVERRIDE, CAP_DAC_READ_SEARCH}) ::prctl(PR_CAPBSET_DROP, right);
  }
  StationProcess& carla = start("CARLA", 13);
  const std::string said = refusal(carla, "project enter Secret");
  EXPECT_NE(said.find("its lock file cannot be opened, since this user may not use it"),
            std::string::npos)
      << said;
  EXPECT_EQ(refusal(carla, "edit list").find("No project is open"), 0U);
  EXPECT_EQ(listed(carla, "project list", "Secret")["lock"].asString(), "unknown");
}

TEST_F(GuardTest, RoomsMayBeCalledWhateverPeopleTypeAndStayInTheirFolder) {
  const std::string cookie = run(*anna_, "project create Film").asString();
  for (StationProcess* station : {anna_, ben_}) run(*station, "project enter Film");
  for (const std::string name :
       {"two words", "M\xC3\xBCller \xE2\x82\xAC", "..", "../../up", "a/b", "end/", ".hidden", "5%",
        "it's \\\"quoted\\\"", "*?<>|", "blank at end "}) {
    SCOPED_TRACE(name);
    run(*anna_, "room create \"" + name + "\"");
    run(*anna_, "room enter \"" + name + "\"");
    EXPECT_NE(refusal(*ben_, "room enter \"" + name + "\"").find("ANNA"), std::string::npos);
  }
  for (const std::size_t length : {300U, 4'000U}) {
    const std::string said = refusal(*anna_, "room create " + std::string(length, 'r'));
    EXPECT_NE(said.find(std::to_string(length) + " bytes; at most"), std::string::npos) << said;
  }
  EXPECT_NE(refusal(*anna_, "room create \"\"").find("needs a name"), std::string::npos);
  std::set<std::string> beside;
  for (const auto& each : std::filesystem::directory_iterator(folder_ / "projects")) {
    beside.insert(each.path().filename());
  }
  EXPECT_EQ(beside, (std::set<std::string>{".stations", "ANNA.cli", "BEN.cli", cookie}));
}

}  // namespace
