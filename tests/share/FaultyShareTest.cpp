#include <linux/capability.h>
#include <sched.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>
#include <iterator>

#include "tests/share/SharedStations.h"
#include "tests/support/BecomesTrue.h"

using namespace korvel;

namespace {

/// A projects directory that stops being usable.
class FaultyShareTest : public SharedStations {
 protected:
  ~FaultyShareTest() override {
    stations_.clear();
    if (isMounted_) ::umount2(projects().c_str(), MNT_DETACH);
    if (!ownMount_.empty()) ::umount2(ownMount_.c_str(), MNT_DETACH);
  }

  [[nodiscard]] std::string projects() const { return folder_ / "projects"; }

  /// A file system of its own for the projects directory; false where this system allows none.
  bool mountProjects(const char* options) {
    if (::unshare(CLONE_NEWNS) != 0) return false;
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
    isMounted_ = ::mount("share", projects().c_str(), "tmpfs", 0, options) == 0;
    return isMounted_;
  }

  /// The same for the folder in which stations keep unsaved changes.
  bool mountState(const char* options) {
    const std::string state = folder_ / "state";
    std::filesystem::create_directory(state);
    if (::unshare(CLONE_NEWNS) != 0) return false;
    if (::mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0) return false;
    if (::mount("state", state.c_str(), "tmpfs", 0, options) != 0) return false;
    ownMount_ = state;
    return true;
  }

  /// A private project "Secret", and "Film" with an edit, a bin, a filter and the rooms "Sound" and
  /// "Colour"; `station` is in none of them.
  void prepare(StationProcess& station) {
    for (const std::string line : {"project create Secret --private", "project create Film",
                                   "project enter Film", "room create Sound", "room create Colour",
                                   "bin create Dailies", "filter create Day day"}) {
      run(station, line);
    }
    run(station, "edit import \"" + sample("simple_cut.otio") + "\"");
    run(station, "edit create Reel");
    run(station, "bin add Dailies Reel");
    run(station, "edit create Old");
    run(station, "edit delete Old");
    run(station, "project leave");
  }

  /// Every command that writes is refused for this reason, and what the station holds is unchanged.
  void expectNothingCanBeWritten(StationProcess& station, const std::string& reason) {
    const auto refused = [&](const std::string& line) {
      const std::string said = refusal(station, line);
      EXPECT_NE(said.find(reason), std::string::npos) << line << ": " << said;
    };
    refused("project create New");
    run(station, "project enter Film");
    const std::string before = shownState(run(station, "state"));
    for (const std::string line :
         {"room create Late", "edit create New", "bin create New", "bin remove Dailies Reel",
          "filter create New new", "filter change Day night", "edit give Reel BEN --force"}) {
      refused(line);
    }
    refused("edit import \"" + sample("simple_cut.otio") + "\"");
    refused("media add \"" + sample("simple_cut.otio") + "\"");
    EXPECT_EQ(shownState(run(station, "state")), before);
    run(station, "edit rename Reel Roll");
    refused("edit save Roll");
    EXPECT_TRUE(run(station, "edit show Roll")["dirty"].asBool());
  }

  /// Nothing goes to the trash or comes from it, and each refusal has one of these reasons.
  void expectTheTrashStays(StationProcess& station, const std::vector<std::string>& reasons) {
    run(station, "project enter Film");
    const std::string before = shownState(run(station, "state"));
    const std::string trash = writeJson(run(station, "trash list"));
    for (const char* line :
         {"edit delete Reel", "bin destroy Dailies", "trash restore Old", "trash empty"}) {
      const std::string said = refusal(station, line);
      EXPECT_TRUE(std::ranges::any_of(
          reasons, [&](const auto& reason) { return said.find(reason) != said.npos; }))
          << line << ": " << said;
    }
    EXPECT_EQ(shownState(run(station, "state")), before);
    EXPECT_EQ(writeJson(run(station, "trash list")), trash);
    run(station, "project leave");
  }

  /// A lock is refused for this reason and nothing is believed to be held.
  void expectNoLockCanBeHad(StationProcess& station, const std::string& reason) {
    const std::string secret = refusal(station, "project enter Secret");
    EXPECT_NE(secret.find(reason), std::string::npos) << secret;
    EXPECT_EQ(refusal(station, "edit list").find("No project is open"), 0U);
    run(station, "project enter Film");
    const std::string room = refusal(station, "room enter Sound");
    EXPECT_NE(room.find(reason), std::string::npos) << room;
    const JsonValue rooms = run(station, "room list");
    for (const JsonValue& each : rooms.elements()) {
      EXPECT_FALSE(each["here"].asBool()) << writeJson(each);
    }
    run(station, "project leave");
  }

  void setRights(mode_t ofFolders, mode_t ofFiles) {
    ::chmod(projects().c_str(), ofFolders);
    for (const auto& each : std::filesystem::recursive_directory_iterator(projects())) {
      ::chmod(each.path().c_str(), each.is_directory() ? ofFolders : ofFiles);
    }
  }

  /// The files with this ending below a folder of this test's.
  [[nodiscard]] std::vector<std::string> filesBelow(const std::string& folder,
                                                    const std::string& ending) const {
    std::vector<std::string> files;
    if (!std::filesystem::exists(folder_ / folder)) return files;
    for (const auto& each : std::filesystem::recursive_directory_iterator(folder_ / folder)) {
      if (each.path().string().ends_with(ending)) files.push_back(each.path());
    }
    return files;
  }

  static std::string bytesOf(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
  }

  static bool hasLogged(const StationProcess& station, const std::string& part) {
    for (const JsonValue& event : station.events("log")) {
      if (event["text"].asString().find(part) != std::string::npos) return true;
    }
    return false;
  }

  /// A state without the rooms, whose holders change, and without how often the share was asked.
  static std::string shownState(JsonValue state) {
    state.remove("rooms");
    state.remove("watch");
    return writeJson(state);
  }

  static std::size_t timesLogged(const StationProcess& station, const std::string& part) {
    std::size_t times = 0;
    for (const JsonValue& event : station.events("log")) {
      times += event["text"].asString().find(part) != std::string::npos;
    }
    return times;
  }

  bool isMounted_ = false;
  std::string ownMount_;
};

TEST_F(FaultyShareTest, OnAReadOnlyMountEverythingIsRefusedThatWritesOrLocks) {
  if (!mountProjects("size=4m")) return;
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  ASSERT_EQ(anna.quit(), 0);
  ASSERT_EQ(::mount("share", projects().c_str(), "tmpfs", MS_REMOUNT | MS_RDONLY, nullptr), 0);
  StationProcess& reader = start("ANNA", 11);
  EXPECT_TRUE(hasLogged(reader, "the share is mounted read-only"));
  expectNoLockCanBeHad(reader, "read-only");
  expectTheTrashStays(reader, {"read-only"});
  expectNothingCanBeWritten(reader, "read-only");
  EXPECT_EQ(reader.quit(), 0);
}

TEST_F(FaultyShareTest, AMountThatTurnsReadOnlyWhileAProjectIsHeldIsToldAndQuitStillEnds) {
  if (!mountProjects("size=4m")) return;
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  run(anna, "project enter Film");
  run(anna, "room enter Sound");
  // The holder's own descriptor keeps the mount busy for a plain remount.
  if (::mount(nullptr, projects().c_str(), nullptr, MS_REMOUNT | MS_BIND | MS_RDONLY, nullptr) !=
      0) {
    return;
  }
  const std::string room = refusal(anna, "room enter Colour");
  EXPECT_NE(room.find("read-only"), std::string::npos) << room;
  const JsonValue rooms = run(anna, "room list");
  for (const JsonValue& each : rooms.elements()) {
    EXPECT_EQ(each["here"].asBool(), each["name"].asString() == "Sound") << writeJson(rooms);
  }
  EXPECT_EQ(anna.quit(), 0);
}

TEST_F(FaultyShareTest, OnAFullFileSystemWritesAreRefusedAndWhatIsThereStays) {
  if (!mountProjects("size=2m")) return;
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  std::ofstream fill(projects() + "/fill", std::ios::binary);
  const std::string block(4096, 'x');
  while (fill.write(block.data(), 4096).flush()) continue;
  expectNothingCanBeWritten(anna, "No space left on device");
  run(anna, "project leave --discard");
  run(anna, "project enter Film");
  EXPECT_EQ(run(anna, "edit list").elements().size(), 2U);
  EXPECT_EQ(anna.quit(), 0);
}

TEST_F(FaultyShareTest, OnAFullFileSystemEmptyingTheTrashMakesRoom) {
  if (!mountProjects("size=2m")) return;
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  run(anna, "project enter Film");
  std::ofstream(folder_ / "large.otio")
      << R"({"OTIO_SCHEMA":"Timeline.1","name":"Large","tracks":{"OTIO_SCHEMA":"Stack.1",)"
      << R"("children":[]},"metadata":{"filling":")" << std::string(300'000, 'x') << R"("}})";
  run(anna, "edit import " + (folder_ / "large.otio"));
  run(anna, "edit rename Large Big");
  run(anna, "edit save Big");
  std::ofstream fill(projects() + "/fill", std::ios::binary);
  const std::string block(4096, 'x');
  while (fill.write(block.data(), 4096).flush()) continue;
  run(anna, "edit rename Reel Roll");
  EXPECT_NE(refusal(anna, "edit save Roll").find("No space left on device"), std::string::npos);
  run(anna, "edit delete Big");
  EXPECT_NE(refusal(anna, "edit save Roll").find("No space left on device"), std::string::npos);
  run(anna, "trash restore Big");
  run(anna, "edit delete Big");
  EXPECT_EQ(run(anna, "trash empty")["removed"].asLong(), 2);
  run(anna, "edit save Roll");
}

TEST_F(FaultyShareTest, UnsavedChangesForWhichThisMachineHasNoRoomAreToldOnceAndKeptLater) {
  if (!mountState("size=256k")) return;
  StationProcess& anna = start("ANNA", 11);
  run(anna, "project create Film");
  run(anna, "project enter Film");
  run(anna, "edit create Reel");
  std::ofstream fill(ownMount_ + "/fill", std::ios::binary);
  const std::string block(4096, 'x');
  while (fill.write(block.data(), 4096).flush()) continue;
  run(anna, "edit rename Reel Rolle");
  await(anna, "health", {{"unsaved", "bad"}});
  for (const char* name : {"\"zwei \xE2\x82\xAC\"", "drei"}) {
    run(anna, std::string("edit rename Rolle ") + name);
    run(anna, std::string("edit rename ") + name + " Rolle");
  }
  const JsonValue health = run(anna, "state")["health"];
  EXPECT_EQ(health["share"].asString(), "good");
  EXPECT_NE(health["why"].asString().find("not being kept on this machine: The disk is full"),
            std::string::npos);
  std::filesystem::remove(ownMount_ + "/fill");
  fill.close();
  await(anna, "health", {{"unsaved", "good"}});
  EXPECT_EQ(timesLogged(anna, "not being kept on this machine"), 1U);
  EXPECT_EQ(timesLogged(anna, "are kept on this machine again"), 1U);
  anna.kill9();
  StationProcess& again = start("ANNA", 11);
  run(again, "project enter Film");
  run(again, "edit recover Rolle");
  EXPECT_TRUE(run(again, "edit show Rolle")["dirty"].asBool());
}

TEST_F(FaultyShareTest, WithoutRoomForAnotherFileNoLockIsHad) {
  if (!mountProjects("nr_inodes=40")) return;
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  ASSERT_EQ(anna.quit(), 0);
  for (int number = 0; number < 40; ++number) {
    std::ofstream(projects() + "/fill" + std::to_string(number)).flush();
  }
  StationProcess& late = start("ANNA", 11);
  EXPECT_TRUE(hasLogged(late, "the share is full"));
  expectNoLockCanBeHad(late, "since the share is full");
  EXPECT_EQ(late.quit(), 0);
}

TEST_F(FaultyShareTest, AProjectFolderThatGoesAwayInTheMiddleIsToldByEveryCommand) {
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  const std::string cookie = run(anna, "project enter Film")["cookie"].asString();
  run(anna, "room enter Sound");
  std::filesystem::rename(projects() + "/" + cookie, folder_ / "away");
  for (const std::string line :
       {"room create Late", "room enter Colour", "room list", "edit create New", "edit show Reel",
        "bin create New", "filter change Day night", "edit give Reel BEN --force",
        "edit delete Reel", "bin destroy Dailies", "trash list", "trash restore Old",
        "trash empty"}) {
    EXPECT_NE(refusal(anna, line), "") << line;
  }
  EXPECT_EQ(run(anna, "state")["bins"].elements().size(), 1U);
  EXPECT_NE(refusal(anna, "edit import \"" + sample("simple_cut.otio") + "\""), "");
  run(anna, "state");
  run(anna, "project leave --discard");
  EXPECT_NE(refusal(anna, "project enter Film").find("There is no project"), std::string::npos);
  std::filesystem::rename(folder_ / "away", projects() + "/" + cookie);
  run(anna, "project enter Film");
  run(anna, "room enter Sound");
  run(anna, "edit delete Reel");
  EXPECT_EQ(run(anna, "trash list").elements().size(), 2U);
  run(anna, "trash restore Old");
  run(anna, "undo");
  run(anna, "undo");
  EXPECT_EQ(run(anna, "edit show Reel")["name"].asString(), "Reel");
}

TEST_F(FaultyShareTest, AProjectsDirectoryThatGoesAwayInTheMiddleIsToldAndQuitStillEnds) {
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  run(anna, "project enter Secret");
  std::filesystem::rename(projects(), folder_ / "away");
  for (const std::string line :
       {"project list", "project create New", "project enter Film", "active", "edit create New"}) {
    const std::string said = refusal(anna, line);
    EXPECT_NE(said.find(projects()), std::string::npos) << line << ": " << said;
  }
  EXPECT_EQ(anna.quit(), 0);
}

TEST_F(FaultyShareTest, NothingIsWrittenIntoTheFolderThatAMountLeavesAndNothingCountsAsGone) {
  if (!mountProjects("size=4m")) return;
  StationProcess& anna = start("ANNA", 11);
  StationProcess& ben = start("BEN", 12);
  await(ben, "presence", {{"how", "came"}, {"user", "ANNA"}});
  prepare(anna);
  run(anna, "project enter Film");
  run(anna, "edit rename Reel Rolle");
  const std::string edits = writeJson(run(anna, "edit list"));
  const std::string away = folder_ / "away";
  std::filesystem::create_directory(away);
  ASSERT_EQ(::mount(projects().c_str(), away.c_str(), nullptr, MS_MOVE, nullptr), 0);
  for (StationProcess* station : {&anna, &ben}) await(*station, "health", {{"share", "bad"}});
  EXPECT_TRUE(becomesTrue([&] { return hasLogged(anna, "Others cannot see"); }));
  for (StationProcess* station : {&anna, &ben}) {
    for (const char* line : {"project create Neu", "project list", "project enter Neu --discard"}) {
      const std::string said = refusal(*station, line);
      EXPECT_NE(said.find("See whether the share is mounted"), std::string::npos) << said;
    }
  }
  for (const char* line : {"edit save Rolle --over", "edit create New", "edit delete Rolle",
                           "bin create New", "room create New", "trash empty"}) {
    refusal(anna, line);
  }
  EXPECT_EQ(writeJson(run(anna, "edit list")), edits);
  EXPECT_TRUE(std::filesystem::is_empty(projects()));
  ASSERT_EQ(::mount(away.c_str(), projects().c_str(), nullptr, MS_MOVE, nullptr), 0);
  for (StationProcess* station : {&anna, &ben}) await(*station, "health", {{"share", "good"}});
  run(anna, "edit save Rolle");
  run(ben, "project create Neu");
  for (const JsonValue& event : ben.events("presence")) {
    EXPECT_NE(event["how"].asString(), "went") << writeJson(event);
  }
  std::size_t destroyed = 0;
  for (const JsonValue& event : anna.events("changed")) {
    destroyed += event["how"].asString() == "destroyed";
  }
  EXPECT_EQ(destroyed, 1U) << "\"Old\" alone, before";
}

TEST_F(FaultyShareTest, WhatAnotherUserKeepsToHimselfIsNamedAndLeft) {
  if (::geteuid() != 0) GTEST_SKIP() << "files cannot be given to another user";
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  run(anna, "project enter Film");
  run(anna, "edit save Reel");
  run(anna, "edit rename Reel Roll");
  run(anna, "edit save Roll");
  run(anna, "edit rename Roll Lost");
  ASSERT_TRUE(becomesTrue([&] { return !filesBelow("state", ".json").empty(); }));
  anna.kill9();
  std::vector<std::string> theirs = filesBelow("state", ".json");
  for (const std::string& each : filesBelow("projects", ".otio")) {
    const bool isVersion =
        each.find("/.history/") != each.npos && bytesOf(each).find("Roll") == each.npos;
    if (isVersion || each.find("/.trash/") != each.npos) theirs.push_back(each);
  }
  ASSERT_GE(theirs.size(), 3u);
  std::vector<std::string> bytes;
  for (const std::string& each : theirs) {
    bytes.push_back(bytesOf(each));
    ASSERT_EQ(::chown(each.c_str(), 65534, 65534), 0);
    ASSERT_EQ(::chmod(each.c_str(), 0600), 0);
  }
  ASSERT_EQ(::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE), 0);
  ASSERT_EQ(::prctl(PR_CAPBSET_DROP, CAP_DAC_READ_SEARCH), 0);
  StationProcess& reader = start("ANNA", 11);
  run(reader, "project enter Film");
  EXPECT_TRUE(hasLogged(reader, "Unsaved changes cannot be read and are left as they are"));
  const JsonValue trash = run(reader, "trash list");
  EXPECT_NE(trash.elements()[0]["problem"].asString().find("Permission denied"), std::string::npos);
  EXPECT_NE(refusal(reader, "edit restore Roll 1").find("Permission denied"), std::string::npos);
  EXPECT_EQ(run(reader, "edit history Roll").elements().size(), 3u);
  run(reader, "edit rename Roll Rolled");
  run(reader, "edit save Rolled");
  EXPECT_EQ(reader.quit(), 0);
  for (std::size_t i = 0; i < theirs.size(); ++i)
    EXPECT_EQ(bytesOf(theirs[i]), bytes[i]) << theirs[i];
}

TEST_F(FaultyShareTest, InAFolderWithoutRightsEverythingIsRefusedThatWritesOrLocks) {
  StationProcess& anna = start("ANNA", 11);
  prepare(anna);
  ASSERT_EQ(anna.quit(), 0);
  setRights(0555, 0444);
  // An administrator's processes would write all the same; those that start from here on do not.
  if (::geteuid() == 0) {
    ASSERT_EQ(::prctl(PR_CAPBSET_DROP, CAP_DAC_OVERRIDE), 0);
  }
  StationProcess& reader = start("ANNA", 11);
  EXPECT_TRUE(hasLogged(reader, "this user may not use it"));
  expectNoLockCanBeHad(reader, "since this user may not use it");
  expectTheTrashStays(reader, {"may not use it", "Permission denied"});
  expectNothingCanBeWritten(reader, "user may not use it");
  EXPECT_EQ(reader.quit(), 0);
  setRights(0755, 0644);
}

}  // namespace
