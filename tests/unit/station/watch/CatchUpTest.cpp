#include "station/watch/CatchUp.h"

#include <algorithm>
#include <filesystem>
#include <functional>
#include <thread>

#include "station/MessageJudge.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

/// A station to which no message comes, whose folder others write to.
class CatchUpTest : public DocumentStation {
 protected:
  CatchUpTest() {
    edit = made("Cut");
    EXPECT_TRUE(projects.leave());
    EXPECT_TRUE(projects.enter("Film"));
    listener.heard.clear();
    events.changes.clear();
  }

  /// Runs the host thread until it is so.
  bool becomes(const std::function<bool()>& isSo) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (!isSo() && std::chrono::steady_clock::now() < deadline) {
      thread.runPending();
      std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return isSo();
  }

  [[nodiscard]] bool wasTold(const std::string& change) const {
    return std::ranges::count(events.changes, change) > 0;
  }

  /// Another station's write, in one step as stations write.
  void writeElsewhere(const Cookie& cookie, const std::string& bytes) const {
    write(folder / "elsewhere", bytes);
    fs::rename(folder / "elsewhere", fileOf(cookie));
  }

  void renameElsewhere(const Cookie& cookie, const std::string& from, const std::string& to) const {
    std::string bytes = bytesOf(fileOf(cookie));
    for (auto at = bytes.find(from); at != bytes.npos; at = bytes.find(from, at + to.size())) {
      bytes.replace(at, from.size(), to);
    }
    writeElsewhere(cookie, bytes);
  }

  /// Waits until everything that was written before has been looked at.
  void passALook() {
    const Cookie last = Cookie::create(CookieTypeEdit);
    writeElsewhere(last, bytesOf(fileOf(edit)));
    EXPECT_TRUE(becomes([&] { return edits.holds(last); }));
    fs::remove(fileOf(last));
    EXPECT_TRUE(becomes([&] { return !edits.holds(last); }));
    std::erase(events.changes, "edit created folder");
    std::erase(events.changes, "edit destroyed folder");
  }

  HostThread thread;
  CatchUp catchUp{thread};
  Cookie edit;
};

TEST_F(CatchUpTest, AnEditMadeElsewhereIsListed) {
  const Cookie other = Cookie::create(CookieTypeEdit);
  writeElsewhere(other, bytesOf(fileOf(edit)));
  EXPECT_TRUE(becomes([&] { return edits.holds(other); }));
  EXPECT_EQ(events.changes, Notes{"edit created folder"});
  EXPECT_EQ(catchUp.found(), 1u);
}

TEST_F(CatchUpTest, AnEditThatAMessageToldOfAndThatIsGoneByTheNextLookIsGoneHereToo) {
  const Cookie other = Cookie::create(CookieTypeEdit);
  writeElsewhere(other, bytesOf(fileOf(edit)));
  edits.refresh(other);
  fs::remove(fileOf(other));
  EXPECT_TRUE(edits.holds(other));
  EXPECT_TRUE(becomes([&] { return !edits.holds(other); }));
}

TEST_F(CatchUpTest, AnEditRenamedElsewhereIsListedByItsNewName) {
  renameElsewhere(edit, "Cut", "New");
  EXPECT_TRUE(becomes([&] { return edits.nameOf(edit) == "New"; }));
  EXPECT_EQ(events.changes, Notes{"edit refreshed folder"});
}

TEST_F(CatchUpTest, AnOpenEditSavedElsewhereIsReadAgain) {
  ASSERT_TRUE(edits.open(edit));
  renameElsewhere(edit, "Cut", "New");
  EXPECT_TRUE(becomes([&] { return wasTold("edit reloaded folder"); }));
  EXPECT_EQ(edits.loaded(edit)->document().name(), "New");
  EXPECT_EQ(listener.heard.size(), 0u) << "nothing may go out because of it";
}

TEST_F(CatchUpTest, UnsavedChangesAreKeptAndMarked) {
  ASSERT_TRUE(edits.open(edit));
  ASSERT_TRUE(EditActions::rename(edit, "Mine"));
  renameElsewhere(edit, "Cut", "New");
  EXPECT_TRUE(becomes([&] { return edits.loaded(edit)->isChangedElsewhere(); }));
  EXPECT_EQ(edits.nameOf(edit), "Mine");
  EXPECT_TRUE(edits.loaded(edit)->isDirty());
  EXPECT_TRUE(edits.listed(edit)["changed_elsewhere"].asBool());
  EXPECT_NE(events.logged.find("They are kept"), std::string::npos) << events.logged;
}

TEST_F(CatchUpTest, UnsavedChangesBesideADamagedFileAreKeptAndMarked) {
  ASSERT_TRUE(edits.open(edit));
  ASSERT_TRUE(EditActions::rename(edit, "Mine"));
  writeElsewhere(edit, "{ cut off");
  EXPECT_TRUE(becomes([&] { return wasTold("edit refreshed folder"); }));
  EXPECT_TRUE(edits.loaded(edit)->isChangedElsewhere());
  EXPECT_EQ(edits.nameOf(edit), "Mine");
  EXPECT_NE(events.logged.find("was damaged by another station"), std::string::npos)
      << events.logged;
}

TEST_F(CatchUpTest, AnEditDeletedElsewhereIsGone) {
  fs::remove(fileOf(edit));
  EXPECT_TRUE(becomes([&] { return !edits.holds(edit); }));
  EXPECT_EQ(events.changes, Notes{"edit destroyed folder"});
}

TEST_F(CatchUpTest, UnsavedChangesOfADeletedEditAreKept) {
  ASSERT_TRUE(edits.open(edit));
  ASSERT_TRUE(EditActions::rename(edit, "Mine"));
  fs::remove(fileOf(edit));
  EXPECT_TRUE(becomes([&] { return edits.loaded(edit)->isChangedElsewhere(); }));
  EXPECT_EQ(edits.nameOf(edit), "Mine");
}

TEST_F(CatchUpTest, AnOwnerGivenElsewhereIsShown) {
  renameElsewhere(edit, "ANNA", "BEN");
  EXPECT_TRUE(becomes([&] { return edits.ownerOf(edit) == "BEN"; }));
}

// The rules remember whose it was before.
TEST_F(CatchUpTest, AnEditThatComesBackBelongsToWhomItsFileNames) {
  const std::string bytes = bytesOf(fileOf(edit));
  fs::remove(fileOf(edit));
  ASSERT_TRUE(becomes([&] { return !edits.holds(edit); }));
  rules.told.clear();
  writeElsewhere(edit, bytes);
  ASSERT_TRUE(becomes([&] { return edits.holds(edit); }));
  EXPECT_EQ(rules.told, Notes{"ANNA"});
}

TEST_F(CatchUpTest, AnEditThatComesBackDamagedTellsItsOwnerOnceItIsMended) {
  const std::string bytes = bytesOf(fileOf(edit));
  fs::remove(fileOf(edit));
  ASSERT_TRUE(becomes([&] { return !edits.holds(edit); }));
  rules.told.clear();
  writeElsewhere(edit, "{");
  ASSERT_TRUE(becomes([&] { return edits.holds(edit); }));
  EXPECT_EQ(rules.told, Notes{});
  writeElsewhere(edit, bytes);
  ASSERT_TRUE(becomes([&] { return edits.ownerOf(edit) == "ANNA"; }));
  EXPECT_EQ(rules.told.back(), "ANNA");
}

TEST_F(CatchUpTest, WhatThisStationWroteIsNotToldAgain) {
  const auto own = EditActions::create("Own", CookieTypeEdit);
  ASSERT_TRUE(own);
  ASSERT_TRUE(edits.open(*own));
  ASSERT_TRUE(EditActions::rename(*own, "Renamed"));
  ASSERT_TRUE(EditActions::save(*own));
  ASSERT_TRUE(edits.close(*own));
  ASSERT_TRUE(EditActions::remove({edit}));
  const Cookie last = Cookie::create(CookieTypeEdit);
  writeElsewhere(last, bytesOf(fileOf(*own)));
  EXPECT_TRUE(becomes([&] { return edits.holds(last); }));
  EXPECT_EQ(std::ranges::count_if(events.changes,
                                  [](const auto& change) { return change.ends_with(" folder"); }),
            1);
}

TEST_F(CatchUpTest, WhatAMessageToldIsNotToldAgain) {
  renameElsewhere(edit, "Cut", "New");
  noteDelivered(savedMessage(edit));
  passALook();
  EXPECT_EQ(events.changes, Notes{"edit refreshed remote"});
  EXPECT_EQ(edits.listed(edit)["name"].asString(), "New");
}

TEST_F(CatchUpTest, AFolderThatVanishesLosesNothingAndIsComparedWhenItReturns) {
  const std::string path = folder / project.asString().str();
  fs::rename(path, folder / "away");
  EXPECT_TRUE(becomes([&] { return !catchUp.answer()->result; }));
  EXPECT_EQ(events.changes, Notes{});
  EXPECT_TRUE(edits.holds(edit));
  fs::copy(folder / "away", folder / "back", fs::copy_options::recursive);
  fs::remove(folder / ("back/" + edit.asString().str() + ".otio"));
  fs::rename(folder / "back", path);
  EXPECT_TRUE(becomes([&] { return !edits.holds(edit); }));
  EXPECT_TRUE(becomes([&] { return static_cast<bool>(catchUp.answer()->result); }));
}

TEST_F(CatchUpTest, AnEditThatCannotBeReadIsListedWithItsProblem) {
  writeElsewhere(edit, "{ cut off");
  EXPECT_TRUE(becomes([&] { return !edits.listed(edit)["problem"].asString().empty(); }));
  EXPECT_EQ(edits.nameOf(edit), "Cut");
}

TEST_F(CatchUpTest, ARoomMadeElsewhereIsTold) {
  passALook();  // the rooms were looked at once
  const std::size_t before = catchUp.found();
  fs::create_directory(folder / (project.asString().str() + "/rooms"));
  write(folder / (project.asString().str() + "/rooms/Sound.json"), R"({"name":"Sound"})");
  EXPECT_TRUE(becomes([&] { return wasTold("room refreshed folder"); }));
  EXPECT_EQ(catchUp.found(), before) << "no message tells of rooms, so none was lost";
}

}  // namespace
