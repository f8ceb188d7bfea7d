#include "station/edit/UnsavedEdits.h"

#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>

#include "station/os/SharedFiles.h"
#include "tests/support/DocumentStation.h"

namespace korvel {

namespace {

namespace fs = std::filesystem;

/// A station that keeps unsaved changes on its machine.
class UnsavedEditsTest : public DocumentStation {
 protected:
  UnsavedEditsTest() {
    choose("anna");
    unsaved_ = std::make_unique<UnsavedEdits>(thread_, edits);
    projects.addPart(*unsaved_);
    enterAgain();
  }

  ~UnsavedEditsTest() override {
    if (projects.current()) (void)projects.leave();
  }

  void choose(const std::string& user) {
    StationSettings chosen;
    chosen.projectsDirectory = folder.path();
    chosen.user = user;
    chosen.recovery = root();
    installSettings(chosen);
  }

  [[nodiscard]] std::string root() const { return state_ / "state/korvel/recovery"; }

  void enterAgain() {
    if (projects.current()) {
      ASSERT_TRUE(projects.leave());
    }
    events.logged.clear();
    ASSERT_TRUE(projects.enter("Film"));
  }

  /// The recovery files that there are.
  [[nodiscard]] std::vector<std::string> files() const {
    std::vector<std::string> found;
    if (!fs::exists(root())) return found;
    for (const auto& entry : fs::recursive_directory_iterator(root())) {
      if (entry.path().extension() == ".json") found.push_back(entry.path());
    }
    return found;
  }

  [[nodiscard]] Notes unsavedNames() const {
    Notes names;
    for (const NamedObject& each : unsaved_->list()) names.push_back(each.name);
    return names;
  }

  static constexpr std::chrono::milliseconds kTries{3000};  // time for more than one other try

  /// Whether something is so in time, while the host thread does what it has to.
  template <typename IsSo>
  bool soon(const IsSo& isSo, std::chrono::milliseconds limit = std::chrono::minutes(2)) {
    const auto deadline = std::chrono::steady_clock::now() + limit;
    while (!isSo() && std::chrono::steady_clock::now() < deadline) {
      thread_.runPending();
      ::usleep(1000);
    }
    return isSo();
  }

  bool isSoonTold(const std::string& text) {
    return soon([&] { return events.logged.find(text) != std::string::npos; });
  }

  [[nodiscard]] std::size_t countOf(const std::string& text) const {
    std::size_t count = 0;
    for (std::size_t at = events.logged.find(text); at != std::string::npos; ++count) {
      at = events.logged.find(text, at + 1);
    }
    return count;
  }

  /// Lets no file of this process grow beyond this, as on a full disk.
  static void allowFilesOf(rlim_t size) {
    std::signal(SIGXFSZ, SIG_IGN);
    const rlimit allowed{size, RLIM_INFINITY};
    ASSERT_EQ(::setrlimit(RLIMIT_FSIZE, &allowed), 0);
  }

  HostThread thread_;
  ScratchFolder state_;
  std::unique_ptr<UnsavedEdits> unsaved_;
};

TEST_F(UnsavedEditsTest, WhatIsUnsavedWhenAProjectIsLeftIsTakenUpAgain) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(EditActions::trim(cookie, "Clip-001", "4f", "6f"));
  EXPECT_EQ(unsavedNames(), Notes{"Figure 1 - Simple Cut List"});
  ASSERT_TRUE(projects.leave());
  EXPECT_NE(events.logged.find("are kept on this machine"), std::string::npos) << events.logged;
  enterAgain();
  EXPECT_NE(events.logged.find("There are unsaved changes of "), std::string::npos);
  EXPECT_NE(events.logged.find("1 edit: \"Figure 1"), std::string::npos) << events.logged;
  const auto recovered = unsaved_->recover("Figure 1 - Simple Cut List");
  ASSERT_TRUE(recovered) << recovered.error().message;
  EXPECT_EQ(*recovered, cookie);
  EXPECT_EQ((*edits.show(cookie))["clips"].elements()[0]["end"].asDouble(), 0.25);
  EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges());
  const auto saved = EditActions::save(cookie);
  EXPECT_TRUE(saved) << saved.error().message;
  enterAgain();
  EXPECT_EQ(events.logged, "");
  EXPECT_EQ(files(), Notes{});
}

TEST_F(UnsavedEditsTest, AChangeIsOnTheDiskOfThisMachineForItsUserAlone) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
  while (files().empty() && std::chrono::steady_clock::now() < deadline) thread_.runPending();
  ASSERT_EQ(files().size(), 1U);
  struct stat status {};
  ASSERT_EQ(::stat(files()[0].c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0600U);
  for (fs::path each = fs::path(files()[0]).parent_path(); each != root();
       each = each.parent_path()) {
    ASSERT_EQ(::stat(each.c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 07777, 0700U) << each;
  }
}

TEST_F(UnsavedEditsTest, WhatIsSavedOrRevertedIsKeptNoLonger) {
  const Cookie first = made("One");
  const Cookie second = made("Two");
  ASSERT_TRUE(EditActions::rename(first, "First"));
  ASSERT_TRUE(EditActions::rename(second, "Second"));
  EXPECT_EQ(unsavedNames().size(), 2U);
  ASSERT_TRUE(EditActions::save(first));
  ASSERT_TRUE(EditActions::revert(second));
  EXPECT_EQ(unsavedNames(), Notes{});
  enterAgain();
  EXPECT_EQ(events.logged, "");
}

TEST_F(UnsavedEditsTest, LeavingIsRefusedSavesOrDiscardsAsIsWished) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  const auto refused = unsaved_->prepareToLeave(Leaving::eRefuse);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::eUnsaved);
  EXPECT_NE(refused.error().message.find("1 edit: \"Mine\""), std::string::npos);
  ASSERT_TRUE(unsaved_->prepareToLeave(Leaving::eDiscard));
  enterAgain();
  EXPECT_EQ(events.logged, "");
  EXPECT_EQ(edits.nameOf(cookie), "Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Saved"));
  ASSERT_TRUE(unsaved_->prepareToLeave(Leaving::eSave));
  enterAgain();
  EXPECT_EQ(edits.nameOf(cookie), "Saved");
}

TEST_F(UnsavedEditsTest, NothingIsDiscardedWhereTheProjectIsNotLeftAfterAll) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  ASSERT_TRUE(unsaved_->prepareToLeave(Leaving::eDiscard));
  unsaved_->stay();
  ASSERT_TRUE(projects.leave());
  EXPECT_NE(events.logged.find("are kept on this machine"), std::string::npos);
}

TEST_F(UnsavedEditsTest, ARecoveredEditIsNotSavedOverWhatAnotherSavedMeanwhile) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  ASSERT_TRUE(projects.leave());
  auto other = OtioDocument::parse(
      bytesOf(folder / (project.asString().str() + "/" + cookie.asString().str() + ".otio")));
  other->rename("Theirs");
  other->setStamp({2, "ben", "2024-05-31T12:00:00Z"});
  enterAgain();
  ASSERT_TRUE(writeAtomically(fileOf(cookie), other->text()));
  ASSERT_TRUE(unsaved_->recover("Mine"));
  const auto saved = EditActions::save(cookie);
  ASSERT_FALSE(saved);
  EXPECT_EQ(saved.error().code, ErrorCode::eChanged);
  EXPECT_NE(saved.error().message.find("ben"), std::string::npos) << saved.error().message;
}

TEST_F(UnsavedEditsTest, WhatIsLeftOfADeletedEditBecomesANewOne) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  ASSERT_TRUE(projects.leave());
  fs::remove(folder / (project.asString().str() + "/" + cookie.asString().str() + ".otio"));
  enterAgain();
  const auto recovered = unsaved_->recover(cookie.asString().str());
  ASSERT_TRUE(recovered) << recovered.error().message;
  EXPECT_FALSE(*recovered == cookie);
  EXPECT_EQ(edits.nameOf(*recovered), "Mine");
}

TEST_F(UnsavedEditsTest, ChangesThatAnothersSaveReplacedAreSetAsideForRecovery) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  EXPECT_TRUE(edits.loaded(cookie)->reOpen(wideText(fileOf(cookie))));
  EXPECT_NE(events.logged.find("edit recover"), std::string::npos) << events.logged;
  EXPECT_EQ(edits.nameOf(cookie), "Reel");
  ASSERT_TRUE(unsaved_->recover("Mine"));
  EXPECT_EQ(edits.nameOf(cookie), "Mine");
}

TEST_F(UnsavedEditsTest, WhatIsLeftCanBeThrownAway) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  enterAgain();
  EXPECT_FALSE(unsaved_->discardLeft("Nothing"));
  const auto discarded = unsaved_->discardLeft("Mine");
  ASSERT_TRUE(discarded);
  EXPECT_EQ(*discarded, 1);
  EXPECT_FALSE(unsaved_->recover("Mine"));
  enterAgain();
  EXPECT_EQ(events.logged, "");
}

TEST_F(UnsavedEditsTest, WhatARunningStationOrAnotherUserKeepsIsNotTaken) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  RecoveryFolder second(root());
  second.enter(folder.path(), project.asString().str(), "anna");
  EXPECT_EQ(second.left().size(), 0U) << "its station runs";
  ASSERT_TRUE(projects.leave());
  second.enter(folder.path(), project.asString().str(), "ben");
  EXPECT_EQ(second.left().size(), 0U) << "it is anna's";
  second.enter(folder.path(), project.asString().str(), "anna");
  EXPECT_EQ(second.left().size(), 1U);
  RecoveryFolder third(root());
  third.enter(folder.path(), project.asString().str(), "anna");
  EXPECT_EQ(third.left().size(), 0U) << "the second has it";
}

TEST_F(UnsavedEditsTest, BrokenRecoveryFilesAreNamedAndLeft) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  ASSERT_TRUE(projects.leave());
  ASSERT_EQ(files().size(), 1U);
  const std::string whole = bytesOf(files()[0]);
  const fs::path session = fs::path(files()[0]).parent_path();
  write(session / "E2.json", whole.substr(0, whole.size() / 2));
  write(session / "E3.json", "{\"version\": 99}");
  fs::create_symlink(files()[0], session / "E4.json");
  fs::create_directory(session / "E5.json");
  ASSERT_EQ(::mkfifo((session / "E6.json").c_str(), 0600), 0);
  events.logged.clear();
  ASSERT_TRUE(projects.enter("Film"));
  for (const char* name : {"E2.json", "E3.json", "E4.json", "E5.json", "E6.json: No such device"}) {
    EXPECT_NE(events.logged.find(name), std::string::npos) << name << events.logged;
  }
  EXPECT_NE(events.logged.find("\"Mine\""), std::string::npos);
  EXPECT_TRUE(fs::exists(session / "E2.json"));
  EXPECT_TRUE(unsaved_->recover("Mine"));
}

TEST_F(UnsavedEditsTest, AMachineThatCannotKeepThemSaysSo) {
  fs::create_directories(fs::path(root()).parent_path());
  write(root(), "a file in the way");
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  EXPECT_TRUE(isSoonTold("not being kept on this machine: Cannot make a folder in " + root()));
  EXPECT_NE(unsaved_->problem(), "");
  ASSERT_TRUE(EditActions::save(cookie));
  EXPECT_TRUE(soon([this] { return unsaved_->problem().empty(); }));
}

TEST_F(UnsavedEditsTest, WithoutAFolderForThemThatIsSaid) {
  RecoveryFolder nowhere({});
  nowhere.enter(folder.path(), project.asString().str(), "anna");
  UnsavedState state;
  state.object = "E1";
  nowhere.keep(state, "{}");
  nowhere.finish();
  EXPECT_NE(nowhere.problem().find("XDG_STATE_HOME"), std::string::npos);
  nowhere.forget("E1");
  nowhere.finish();
  EXPECT_EQ(nowhere.problem(), "");
}

TEST_F(UnsavedEditsTest, AFullDiskIsToldOnceAndWhenThereIsRoomTheyAreKept) {
  const Cookie cookie = made("Reel");
  allowFilesOf(10);
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  EXPECT_TRUE(isSoonTold("not being kept on this machine: The disk is full on which " + root()));
  ASSERT_TRUE(EditActions::rename(cookie, "Own"));
  EXPECT_FALSE(soon([this] { return events.logged.find("again") != events.logged.npos; }, kTries));
  EXPECT_EQ(countOf("not being kept"), 1U) << events.logged;
  EXPECT_EQ(files(), Notes{});
  allowFilesOf(RLIM_INFINITY);
  EXPECT_TRUE(isSoonTold("are kept on this machine again"));
  ASSERT_EQ(files().size(), 1U);
  EXPECT_EQ(RecoveryFolder::read(files()[0]).name, "Own");
  ASSERT_TRUE(EditActions::rename(cookie, "Other"));
  EXPECT_TRUE(soon([this] { return RecoveryFolder::read(files()[0]).name == "Other"; }));
  EXPECT_EQ(countOf("kept on this machine"), 2U) << events.logged;
}

TEST_F(UnsavedEditsTest, WhatIsTakenUpWhereThereIsNoRoomIsStillLeft) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  enterAgain();
  ASSERT_EQ(files().size(), 1U);
  const std::string kept = files()[0];
  allowFilesOf(10);
  ASSERT_TRUE(unsaved_->recover("Mine"));
  EXPECT_EQ(edits.nameOf(cookie), "Mine");
  EXPECT_EQ(files(), Notes{kept}) << "the only copy";
  EXPECT_EQ(RecoveryFolder::read(kept).name, "Mine");
  allowFilesOf(RLIM_INFINITY);
}

TEST_F(UnsavedEditsTest, WhatIsUnsavedWhenAProjectIsLeftWithoutRoomIsToldAsLost) {
  const Cookie cookie = made("Reel");
  allowFilesOf(10);
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  ASSERT_TRUE(projects.leave());
  EXPECT_NE(events.logged.find("Unsaved changes in 1 edit are lost: \"Mine\""), std::string::npos);
  EXPECT_EQ(events.logged.find("are kept"), std::string::npos) << events.logged;
  allowFilesOf(RLIM_INFINITY);
}

}  // namespace

}  // namespace korvel
