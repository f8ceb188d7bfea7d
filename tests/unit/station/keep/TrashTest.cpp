#include "station/Trash.h"

#include <sys/stat.h>

#include <filesystem>

#include "station/containers/Containers.h"
#include "station/edit/EditHistory.h"
#include "station/os/SharedFiles.h"
#include "tests/support/AsNobody.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

/// A project with edits and bins, and its trash.
class TrashTest : public DocumentStation {
 protected:
  TrashTest() { bins_.enter(*projects.current(), {}); }

  Cookie deleted(const std::string& name) {
    const Cookie cookie = made(name);
    EXPECT_TRUE(EditActions::remove({cookie}));
    events.changes.clear();
    listener.heard.clear();
    return cookie;
  }

  /// The path of the newest file in the trash.
  std::string newest() { return TrashFolder(projects.current()->folder).list()->front().path; }

  /// Gives the newest file in the trash another deleter.
  void deleteAs(const std::string& user) {
    const std::string path = newest();
    fs::rename(path, path.substr(0, path.rfind('~') + 1) + user + ".otio");
  }

  JsonValue listed() { return *trash_.list(); }

  static std::string text(const Cookie& cookie) { return cookie.asString().str(); }

  Bins bins_;
  Trash trash_{projects, {&bins_}};
};

TEST_F(TrashTest, ListsWhatWasDeletedWhoseItWasWhenAndByWhom) {
  const Cookie edit = deleted("Reel/1");
  const auto bin = bins_.create("Rushes");
  ASSERT_TRUE(bin);
  ASSERT_TRUE(bins_.discard(*bin));
  const JsonValue rows = listed();
  ASSERT_EQ(rows.elements().size(), 2U);
  const JsonValue& first = rows.elements()[0];
  const JsonValue& second = rows.elements()[1];
  EXPECT_EQ(first["cookie"].asString(), text(*bin));
  EXPECT_EQ(first["kind"].asString(), "bin");
  EXPECT_EQ(first["name"].asString(), "Rushes");
  EXPECT_EQ(first["owner"].asString(), "");
  EXPECT_EQ(second["cookie"].asString(), text(edit));
  EXPECT_EQ(second["kind"].asString(), "edit");
  EXPECT_EQ(second["name"].asString(), "Reel/1");
  EXPECT_EQ(second["owner"].asString(), "ANNA");
  for (const JsonValue& row : rows.elements()) {
    EXPECT_EQ(row["by"].asString(), "anna");
    EXPECT_EQ(row["deleted"].asString().size(), 20U);
    EXPECT_EQ(row["problem"].asString(), "");
  }
}

TEST_F(TrashTest, WhatIsTakenBackIsToldAsCreated) {
  const Cookie cookie = deleted("Reel");
  const auto back = trash_.restore("Reel");
  ASSERT_TRUE(back) << back.error().message;
  EXPECT_EQ(*back, cookie);
  EXPECT_EQ(events.changes, Notes{"edit created local"});
  EXPECT_EQ(listener.heard, Notes{"stored new"});
  EXPECT_EQ(edits.nameOf(cookie), "Reel");
  EXPECT_EQ(edits.ownerOf(cookie), "ANNA");
  EXPECT_EQ(listed().elements().size(), 0U);
  EXPECT_TRUE(EditActions::rename(cookie, "Again"));
}

TEST_F(TrashTest, ABinIsTakenBackWithWhatWasInIt) {
  const auto bin = bins_.create("Rushes");
  ASSERT_TRUE(bins_.add(*bin, {made("Reel")}));
  ASSERT_TRUE(bins_.discard(*bin));
  events.changes.clear();
  ASSERT_TRUE(trash_.restore("Rushes"));
  EXPECT_EQ(events.changes, Notes{"bin created local"});
  EXPECT_EQ(bins_.contents(*bin).size(), 1U);
}

TEST_F(TrashTest, ObjectsAreNamedByNameCookieBeginningAndDeletion) {
  const Cookie cookie = deleted("Reel");
  const std::string mark = listed().elements()[0]["deletion"].asString();
  for (const std::string& word : {std::string("Reel"), text(cookie), text(cookie).substr(0, 6),
                                  text(cookie) + "." + mark.substr(0, 4)}) {
    const auto back = trash_.restore(word);
    ASSERT_TRUE(back) << word << back.error().message;
    if (word.find('.') == std::string::npos) {
      ASSERT_TRUE(EditActions::remove({cookie}));
    }
    if (word.size() == 6) {
      fs::rename(newest(), projects.current()->folder + "/.trash/" + text(cookie) +
                               "~20240531T120000Z~" + mark + "~anna.otio");
    }
  }
}

TEST_F(TrashTest, ALongNameWithSlashesIsFound) {
  std::string name;
  for (int i = 0; i < 100; ++i) name += "../";
  const Cookie cookie = deleted(name);
  EXPECT_EQ(listed().elements()[0]["name"].asString(), name);
  ASSERT_TRUE(trash_.restore(name));
  EXPECT_EQ(edits.nameOf(cookie), name);
}

TEST_F(TrashTest, WhileTheShareIsAwayNothingIsSaidToBeEmpty) {
  deleted("Reel");
  const std::string place = projects.current()->folder;
  fs::rename(place, folder / "away");
  EXPECT_FALSE(trash_.list());
  EXPECT_FALSE(trash_.restore("Reel"));
  EXPECT_FALSE(trash_.empty({}));
  fs::rename(folder / "away", place);
  EXPECT_TRUE(trash_.restore("Reel"));
}

TEST_F(TrashTest, AWordForSeveralObjectsOrNoneIsRefused) {
  deleted("Reel");
  deleted("Reel");
  const auto several = trash_.restore("Reel");
  ASSERT_FALSE(several);
  EXPECT_EQ(several.error().code, ErrorCode::eUsage);
  const JsonValue rows = listed();
  for (const JsonValue& row : rows.elements()) {
    const std::string cookie = row["cookie"].asString().substr(0, 8);
    EXPECT_NE(several.error().message.find(cookie), std::string::npos) << several.error().message;
  }
  EXPECT_EQ(trash_.restore("Other").error().code, ErrorCode::eNotFound);
  EXPECT_EQ(trash_.restore("E").error().code, ErrorCode::eNotFound);
  EXPECT_EQ(listed().elements().size(), 2U);
}

TEST_F(TrashTest, OfTwoDeletionsOfOneObjectTheNewestIsTakenBackFirst) {
  const Cookie cookie = made("First");
  ASSERT_TRUE(EditActions::remove({cookie}));
  const std::string bytes = bytesOf(newest());
  write(fileOf(cookie), bytes);
  edits.refresh(cookie);
  ASSERT_TRUE(EditActions::rename(cookie, "Second"));
  ASSERT_TRUE(EditActions::save(cookie));
  ASSERT_TRUE(EditActions::remove({cookie}));
  ASSERT_TRUE(trash_.restore(text(cookie)));
  EXPECT_EQ(edits.nameOf(cookie), "Second");
  const auto again = trash_.restore(text(cookie));
  ASSERT_FALSE(again);
  EXPECT_EQ(again.error().code, ErrorCode::eExists);
  EXPECT_NE(again.error().message.find("is in the project again"), std::string::npos);
  EXPECT_EQ(listed().elements()[0]["name"].asString(), "First");
}

TEST_F(TrashTest, WhatAnotherStationTookBackIsNoLongerThere) {
  const Cookie cookie = deleted("Reel");
  const auto here = TrashFolder(projects.current()->folder).list()->front();
  fs::rename(here.path, fileOf(cookie));
  EXPECT_EQ(EditActions::takeBack(here).error().code, ErrorCode::eNotFound);
  EXPECT_EQ(trash_.empty({})->find("removed")->asLong(), 0);
}

TEST_F(TrashTest, TheVersionsOfADeletedEditAreThereAgain) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Renamed"));
  ASSERT_TRUE(EditActions::save(cookie));
  ASSERT_TRUE(EditActions::remove({cookie}));
  ASSERT_TRUE(trash_.restore("Renamed"));
  EXPECT_EQ(EditHistory::list(cookie)->elements().size(), 2U);
  ASSERT_TRUE(EditActions::restore(cookie, "1"));
  EXPECT_EQ(edits.nameOf(cookie), "Reel");
}

TEST_F(TrashTest, AFileThatCannotBeReadIsListedAndComesBackAsItIs) {
  const Cookie cookie = deleted("Reel");
  const std::string whole = bytesOf(newest());
  for (const std::string& bytes : {whole.substr(0, whole.size() / 2),
                                   std::string("{\"OTIO_SCHEMA\":\"Reel.9\"}"), std::string()}) {
    write(newest(), bytes);
    EXPECT_NE(listed().elements()[0]["problem"].asString(), "");
    ASSERT_TRUE(trash_.restore(text(cookie)));
    EXPECT_EQ(bytesOf(fileOf(cookie)), bytes);
    EXPECT_NE(edits.listed(cookie)["problem"].asString(), "");
    ASSERT_TRUE(EditActions::remove({cookie}));
  }
}

// Its name stands in the file alone.
TEST_F(TrashTest, OfAFileThatMayNotBeReadItIsNotSaidThatItIsNotThere) {
  deleted("Reel");
  const fs::path path = newest();
  fs::permissions(folder.path(), fs::perms::all);
  fs::permissions(projects.current()->folder, fs::perms::all);
  fs::permissions(path.parent_path(), fs::perms::all);
  fs::permissions(path, fs::perms::none);
  const AsNobody nobody;
  const auto back = trash_.restore("Reel");
  ASSERT_FALSE(back);
  EXPECT_EQ(back.error().code, ErrorCode::eNoRights);
  EXPECT_EQ(back.error().path, path);
  EXPECT_EQ(back.error().message.find("Whether something called \"Reel\" is in the trash is not "
                                      "known: "),
            0U);
}

TEST_F(TrashTest, ABinThatCannotBeReadComesBackAsItIs) {
  const auto bin = bins_.create("Rushes");
  ASSERT_TRUE(bins_.discard(*bin));
  write(newest(), "{\"name\":\"Ru");
  EXPECT_NE(listed().elements()[0]["problem"].asString(), "");
  ASSERT_TRUE(trash_.restore(text(*bin)));
  EXPECT_EQ(bytesOf(bins_.fileOf(*bin)), "{\"name\":\"Ru");
  EXPECT_NE(events.logged.find("cannot be shown"), std::string::npos);
}

TEST_F(TrashTest, AFolderALinkAndAPipeAreLeftAsTheyAre) {
  const Cookie cookie = deleted("Reel");
  const std::string path = newest();
  fs::remove(path);
  write(folder / "outside", "another's");
  const auto check = [&] {
    EXPECT_EQ(listed().elements()[0]["problem"].asString(), "It is no plain file.");
    const auto back = trash_.restore(text(cookie));
    ASSERT_FALSE(back);
    EXPECT_NE(back.error().message.find("no plain file"), std::string::npos);
  };
  fs::create_symlink(folder / "outside", path);
  check();
  fs::remove(path);
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  check();
  fs::remove(path);
  fs::create_directory(path);
  check();
  EXPECT_EQ((*trash_.empty({}))["kept"].asLong(), 1);
  EXPECT_TRUE(fs::is_directory(path));
  fs::remove(path);
  fs::create_symlink(folder / "outside", path);
  EXPECT_EQ((*trash_.empty({}))["removed"].asLong(), 1);
  EXPECT_EQ(bytesOf(folder / "outside"), "another's");
}

TEST_F(TrashTest, EmptyingRemovesWhatIsOldEnoughWithItsVersions) {
  const Cookie cookie = deleted("Reel");
  const std::string history = projects.current()->folder + "/.history/" + text(cookie);
  ASSERT_TRUE(trash_.restore("Reel"));
  ASSERT_TRUE(EditActions::rename(cookie, "Other"));
  ASSERT_TRUE(EditActions::save(cookie));
  ASSERT_TRUE(EditActions::remove({cookie}));
  ASSERT_TRUE(fs::exists(history));
  EXPECT_EQ((*trash_.empty(1))["removed"].asLong(), 0);
  EXPECT_EQ((*trash_.empty(0))["removed"].asLong(), 1);
  EXPECT_FALSE(fs::exists(history));
  EXPECT_EQ(listed().elements().size(), 0U);
}

TEST_F(TrashTest, TheVersionsOfAnObjectThatIsThereAgainStay) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Renamed"));
  ASSERT_TRUE(EditActions::save(cookie));
  const std::string bytes = bytesOf(fileOf(cookie));
  ASSERT_TRUE(EditActions::remove({cookie}));
  write(fileOf(cookie), bytes);
  EXPECT_EQ((*trash_.empty({}))["removed"].asLong(), 1);
  EXPECT_TRUE(fs::exists(projects.current()->folder + "/.history/" + text(cookie)));
}

TEST_F(TrashTest, WhatOthersOwnAndDeletedStays) {
  const Cookie cookie = made("Reel");
  replaceInFile(cookie, "ANNA", "BOB");
  ASSERT_TRUE(EditActions::remove({cookie}));
  deleteAs("bob");
  EXPECT_EQ((*trash_.empty({}))["kept"].asLong(), 1);
  EXPECT_EQ(listed().elements().size(), 1U);
  deleteAs("anna");
  EXPECT_EQ((*trash_.empty({}))["removed"].asLong(), 1);
}

TEST_F(TrashTest, WhatMayNotBeModifiedIsNotDeleted) {
  const Cookie cookie = made("Reel");
  rules.isAllowed = false;
  EXPECT_EQ(EditActions::remove({cookie}).error().code, ErrorCode::eRefused);
  EXPECT_TRUE(fs::exists(fileOf(cookie)));
  EXPECT_EQ(listed().elements().size(), 0U);
}

TEST_F(TrashTest, WhileAnotherStationSavesNothingIsDeletedOrTakenBack) {
  const Cookie cookie = made("Reel");
  {
    const auto held = holdLock(cookie);
    EXPECT_EQ(EditActions::remove({cookie}).error().code, ErrorCode::eHeld);
  }
  ASSERT_TRUE(EditActions::remove({cookie}));
  const auto held = holdLock(cookie);
  EXPECT_EQ(trash_.restore("Reel").error().code, ErrorCode::eHeld);
  EXPECT_EQ(listed().elements().size(), 1U);
}

TEST_F(TrashTest, AnEditThatAnotherDeletedStaysWhileTheUserHasItOpen) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  TrashFolder there(projects.current()->folder);
  ASSERT_TRUE(there.take(fileOf(cookie), "BEN"));
  {
    const RemoteChangeScope remote;
    EditManager::handleNetDelete(cookie);
    EditManager::handleNetDelete(cookie);
  }
  EXPECT_NE(events.logged.find("BEN deleted the edit \"Reel\""), std::string::npos)
      << events.logged;
  EXPECT_TRUE(edits.listed(cookie)["deleted"].asBool());
  EXPECT_EQ(events.changes, Notes{"edit refreshed remote"});
  const auto copy = EditActions::saveCopy(cookie, "Mine");
  ASSERT_TRUE(copy) << copy.error().message;
  EXPECT_EQ(edits.nameOf(*copy), "Mine");
  EXPECT_FALSE(edits.holds(cookie));
}

TEST_F(TrashTest, AnEditThatAnotherDeletedIsClosedAwayOrComesBack) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  const TrashFolder there(projects.current()->folder);
  const RemoteChangeScope remote;
  const auto remove = [&] {
    const auto taken = there.take(fileOf(cookie), "BEN");
    EditManager::handleNetDelete(cookie);
    EXPECT_TRUE(edits.listed(cookie)["deleted"].asBool());
    return *taken;
  };
  ASSERT_TRUE(TrashFolder::giveBack(remove(), fileOf(cookie)));
  {
    EditPtr edit;
    edit.i_open(cookie, 0);
    edit->setChangeDescription(eModCreated, true);
  }
  EXPECT_FALSE(edits.listed(cookie)["deleted"].asBool());
  remove();
  events.changes.clear();
  ASSERT_TRUE(edits.close(cookie));
  EXPECT_EQ(events.changes, Notes{"edit destroyed remote"});
  EXPECT_FALSE(edits.holds(cookie));
}

TEST_F(TrashTest, UnsavedChangesOfADeletedEditAreDroppedByRevert) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(edits.open(cookie));
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  fs::remove(fileOf(cookie));
  {
    const RemoteChangeScope remote;
    EditManager::handleNetDelete(cookie);
  }
  EXPECT_NE(events.logged.find("Another station deleted the edit \"Mine\""), std::string::npos)
      << events.logged;
  EXPECT_FALSE(edits.close(cookie));
  ASSERT_TRUE(EditActions::revert(cookie));
  EXPECT_FALSE(edits.holds(cookie));
}

}  // namespace
