#include "station/edit/EditHistory.h"

#include <sys/stat.h>

#include <filesystem>

#include "station/keep/VersionFolder.h"
#include "station/os/SharedFiles.h"
#include "tests/support/DocumentStation.h"

namespace korvel {

namespace {

namespace fs = std::filesystem;

class EditHistoryTest : public DocumentStation {
 protected:
  /// The texts under a key of an edit's history, the newest first.
  static Notes column(const Cookie& cookie, const char* key) {
    const auto rows = EditHistory::list(cookie);
    EXPECT_TRUE(rows) << rows.error().message;
    Notes texts;
    for (const JsonValue& row : rows->elements()) texts.push_back(row[key].asString());
    return texts;
  }

  void saveAs(const Cookie& cookie, const std::string& name) {
    ASSERT_TRUE(EditActions::rename(cookie, name));
    const auto saved = EditActions::save(cookie);
    ASSERT_TRUE(saved) << saved.error().message;
  }

  /// What another station does whose message is lost: `name` and who saved it.
  void savedByAnother(const Cookie& cookie, const std::string& name, const std::string& user) {
    auto document = OtioDocument::parse(bytesOf(fileOf(cookie)));
    ASSERT_TRUE(document);
    document->rename(name);
    document->setStamp({document->stamp().number + 1, user, "2024-05-31T12:00:00Z"});
    ASSERT_TRUE(writeAtomically(fileOf(cookie), document->text()));
  }

  [[nodiscard]] std::string historyOf(const Cookie& cookie) const {
    return VersionFolder(fileOf(cookie)).path();
  }
};

TEST_F(EditHistoryTest, EverySaveIsAVersionWithUserTimeAndWhatChanged) {
  const Cookie cookie = imported("simple_cut.otio");
  ASSERT_TRUE(EditActions::trim(cookie, "Clip-001", "4f", "6f"));
  ASSERT_TRUE(EditActions::save(cookie));
  saveAs(cookie, "Tape");
  EXPECT_EQ(column(cookie, "version"), (Notes{"3", "2", "1"}));
  EXPECT_EQ(column(cookie, "user"), (Notes{"anna", "anna", "anna"}));
  const Notes changes = column(cookie, "changes");
  EXPECT_EQ(changes[0], "renamed to \"Tape\", was \"Figure 1 - Simple Cut List\"");
  EXPECT_NE(changes[1].find("clip \"Clip-001\" trimmed to "), std::string::npos) << changes[1];
  EXPECT_EQ(changes[2], "");
  for (const std::string& time : column(cookie, "time")) EXPECT_EQ(time.size(), 20U) << time;
  EXPECT_TRUE((*EditHistory::list(cookie)).elements()[0]["now"].asBool());
}

TEST_F(EditHistoryTest, AVersionIsNeverChangedByTheSavesAfterIt) {
  const Cookie cookie = made("One");
  const std::string first = bytesOf(fileOf(cookie));
  saveAs(cookie, "Two");
  const std::string second = bytesOf(fileOf(cookie));
  for (int round = 0; round < 10; ++round) saveAs(cookie, "More " + std::to_string(round));
  const auto versions = VersionFolder(fileOf(cookie)).list();
  ASSERT_TRUE(versions);
  ASSERT_EQ(versions->size(), 12U);
  EXPECT_EQ(bytesOf((*versions)[0].path), first);
  EXPECT_EQ(bytesOf((*versions)[1].path), second);
}

TEST_F(EditHistoryTest, WhatAKilledSaveLeftBesideAVersionIsNotWrittenInto) {
  const Cookie cookie = made("One");
  saveAs(cookie, "Two");
  const auto kept = VersionFolder(fileOf(cookie)).find("2");
  ASSERT_TRUE(kept);
  const std::string second = bytesOf(kept->path);
  // Killed between keeping the version and putting it in the edit's place.
  std::string temporary;
  const auto remember = [&](const std::string& path) -> Result<void> {
    temporary = path;
    return Error{};
  };
  ASSERT_FALSE(writeAtomically(fileOf(cookie), "x", remember));
  fs::create_hard_link(kept->path, temporary);
  saveAs(cookie, "Three");
  EXPECT_EQ(bytesOf(kept->path), second);
  EXPECT_EQ(EditHistory::read(cookie, "2")->name(), "Two");
}

TEST_F(EditHistoryTest, AnOlderVersionIsRestoredAsAnOrdinarySave) {
  const Cookie cookie = made("One");
  saveAs(cookie, "Two");
  ASSERT_TRUE(EditActions::give(cookie, "bob"));
  listener.heard.clear();
  const auto restored = EditActions::restore(cookie, "1");
  ASSERT_TRUE(restored) << restored.error().message;
  EXPECT_EQ(edits.nameOf(cookie), "One");
  EXPECT_EQ(edits.ownerOf(cookie), "BOB") << "an old version must not take the edit back";
  EXPECT_EQ(listener.heard, (Notes{"dirtied", "stored"}));
  EXPECT_EQ(column(cookie, "version"), (Notes{"4", "3", "2", "1"}));
}

TEST_F(EditHistoryTest, WhatTheHistoryListsCanBeComparedAndRestored) {
  const Cookie cookie = made("One");
  fs::remove_all(fs::path(fileOf(cookie)).parent_path() / ".history");
  ASSERT_EQ(column(cookie, "version"), Notes{"1"})
      << "the file itself, of which no version is kept";
  EXPECT_TRUE(EditHistory::compare(cookie, "1", ""));
  const auto restored = EditActions::restore(cookie, "1");
  EXPECT_TRUE(restored) << restored.error().message;
}

TEST_F(EditHistoryTest, NothingIsRestoredOverUnsavedChangesOrAgainstTheRules) {
  const Cookie cookie = made("One");
  saveAs(cookie, "Two");
  EXPECT_EQ(EditActions::restore(cookie, "9").error().code, ErrorCode::eNotFound);
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  EXPECT_EQ(EditActions::restore(cookie, "1").error().code, ErrorCode::eUnsaved);
  ASSERT_TRUE(EditActions::revert(cookie));
  rules.isAllowed = false;
  EXPECT_EQ(EditActions::restore(cookie, "1").error().code, ErrorCode::eRefused);
  EXPECT_EQ(edits.nameOf(cookie), "Two");
}

TEST_F(EditHistoryTest, UnsavedChangesAreDroppedOnlyOnceTheOlderVersionIsSaved) {
  using EditActions::Unsaved;
  const Cookie cookie = made("One");
  saveAs(cookie, "Two");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  const auto expectKept = [&](const char* why) {
    EXPECT_EQ(edits.nameOf(cookie), "Mine") << why;
    ASSERT_TRUE(edits.loaded(cookie)) << why;
    EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges()) << why;
    EXPECT_NE(bytesOf(fileOf(cookie)).find("Two"), std::string::npos) << why;
  };
  EXPECT_EQ(EditActions::restore(cookie, "9", Unsaved::eDrop).error().code, ErrorCode::eNotFound);
  expectKept("no such version");
  rules.isAllowed = false;
  EXPECT_EQ(EditActions::restore(cookie, "1", Unsaved::eDrop).error().code, ErrorCode::eRefused);
  expectKept("another's edit");
  rules.isAllowed = true;
  {
    const ObjectLock another(fileOf(cookie));
    ASSERT_TRUE(another.taken());
    EXPECT_FALSE(EditActions::restore(cookie, "1", Unsaved::eDrop));
    expectKept("another is saving");
  }
  const auto restored = EditActions::restore(cookie, "1", Unsaved::eDrop);
  ASSERT_TRUE(restored) << restored.error().message;
  EXPECT_EQ(edits.nameOf(cookie), "One");
  EXPECT_EQ(edits.loaded(cookie), nullptr);
  EXPECT_EQ(column(cookie, "version"), (Notes{"3", "2", "1"}));
}

TEST_F(EditHistoryTest, AnOlderVersionReplacesWhatAnotherSavedBesideUnsavedChanges) {
  using EditActions::Unsaved;
  const Cookie cookie = made("One");
  saveAs(cookie, "Two");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  savedByAnother(cookie, "Theirs", "ben");
  const auto restored = EditActions::restore(cookie, "1", Unsaved::eDrop);
  ASSERT_TRUE(restored) << restored.error().message;
  EXPECT_EQ(edits.nameOf(cookie), "One");
  EXPECT_EQ(column(cookie, "user"), (Notes{"anna", "ben", "anna", "anna"}));
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  fs::remove(fileOf(cookie));
  EXPECT_FALSE(EditActions::restore(cookie, "1", Unsaved::eDrop));
  EXPECT_EQ(edits.nameOf(cookie), "Mine") << "its file is gone";
}

TEST_F(EditHistoryTest, ASaveDoesNotReplaceWhatAnotherSavedMeanwhile) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  savedByAnother(cookie, "Theirs", "ben");
  const std::string theirs = bytesOf(fileOf(cookie));
  listener.heard.clear();
  const auto saved = EditActions::save(cookie);
  ASSERT_FALSE(saved);
  EXPECT_EQ(saved.error().code, ErrorCode::eChanged);
  for (const char* part : {"ben", "2024-05-31T12:00:00Z", "Theirs", "--over", "save-copy"}) {
    EXPECT_NE(saved.error().message.find(part), std::string::npos) << saved.error().message;
  }
  EXPECT_EQ(bytesOf(fileOf(cookie)), theirs);
  EXPECT_EQ(listener.heard, Notes{});
  EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges());
}

TEST_F(EditHistoryTest, WhatADamagedFileHoldsStaysInTheHistoryWhenItIsSavedOver) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  const std::string half = bytesOf(fileOf(cookie)).substr(0, 200);
  ASSERT_TRUE(writeAtomically(fileOf(cookie), half));
  const auto saved = EditActions::save(cookie);
  ASSERT_FALSE(saved);
  for (const char* part : {"cannot be read now", ". \"edit save \"Mine\" --over\"", "save-copy"}) {
    EXPECT_NE(saved.error().message.find(part), std::string::npos) << saved.error().message;
  }
  EXPECT_EQ(bytesOf(fileOf(cookie)), half);
  ASSERT_TRUE(EditActions::save(cookie, EditFile::Overwrite::eAccept));
  const auto versions = VersionFolder(fileOf(cookie)).list();
  ASSERT_TRUE(versions && versions->size() == 2U);
  EXPECT_EQ(bytesOf(versions->front().path), half);
}

TEST_F(EditHistoryTest, AnOwnerThatAnotherGaveMeanwhileIsKeptByTheSave) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  // Another station gives it: the version before is kept, and the file has another owner.
  const std::string before = bytesOf(fileOf(cookie));
  ASSERT_TRUE(
      VersionFolder(fileOf(cookie))
          .keep(fileOf(cookie), 1, VersionFolder::markOf(std::hash<std::string_view>()(before))));
  auto given = OtioDocument::parse(before);
  given->setSetting("OWNER", "CARL");
  given->setStamp({2, "ben", "2024-05-31T12:00:00Z"});
  ASSERT_TRUE(writeAtomically(fileOf(cookie), given->text()));
  const auto saved = EditActions::save(cookie);
  ASSERT_TRUE(saved) << saved.error().message;
  EXPECT_EQ(edits.ownerOf(cookie), "CARL");
  const auto stored = OtioDocument::parse(bytesOf(fileOf(cookie)));
  EXPECT_EQ(stored->name(), "Mine");
  EXPECT_EQ(stored->setting("OWNER"), "CARL");
}

TEST_F(EditHistoryTest, SavedOverTheOthersVersionIsInTheHistory) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  savedByAnother(cookie, "Theirs", "ben");
  const auto saved = EditActions::save(cookie, EditFile::Overwrite::eAccept);
  ASSERT_TRUE(saved) << saved.error().message;
  EXPECT_EQ(column(cookie, "version"), (Notes{"3", "2"}));
  EXPECT_EQ(column(cookie, "user"), (Notes{"anna", "ben"}));
  ASSERT_TRUE(EditActions::restore(cookie, "2"));
  EXPECT_EQ(edits.nameOf(cookie), "Theirs");
}

TEST_F(EditHistoryTest, AFileThatWasTouchedButHoldsTheSameIsSaved) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  ASSERT_TRUE(writeAtomically(fileOf(cookie), bytesOf(fileOf(cookie))));
  EXPECT_TRUE(EditActions::save(cookie));
}

TEST_F(EditHistoryTest, AnEditWhoseFileIsGoneIsSavedOnlyWhenThatIsAccepted) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  fs::remove(fileOf(cookie));
  const auto saved = EditActions::save(cookie);
  ASSERT_FALSE(saved);
  EXPECT_NE(saved.error().message.find("gone"), std::string::npos) << saved.error().message;
  EXPECT_TRUE(EditActions::save(cookie, EditFile::Overwrite::eAccept));
  EXPECT_NE(bytesOf(fileOf(cookie)).find("Mine"), std::string::npos);
}

TEST_F(EditHistoryTest, ACopyHoldsTheUnsavedChangesAndTheEditStaysAsItIs) {
  const Cookie cookie = imported("simple_cut.otio");
  const std::string before = bytesOf(fileOf(cookie));
  ASSERT_TRUE(EditActions::trim(cookie, "Clip-001", "4f", "6f"));
  listener.heard.clear();
  const auto copy = EditActions::saveCopy(cookie, "Mine");
  ASSERT_TRUE(copy);
  EXPECT_EQ(listener.heard, Notes{"stored new"});
  EXPECT_EQ((*edits.show(*copy))["clips"].elements()[0]["end"].asDouble(), 0.25);
  EXPECT_EQ(edits.nameOf(*copy), "Mine");
  EXPECT_EQ(bytesOf(fileOf(cookie)), before);
  EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges());
}

TEST_F(EditHistoryTest, RevertDropsTheUnsavedChanges) {
  const Cookie cookie = made("Reel");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  listener.heard.clear();
  ASSERT_TRUE(EditActions::revert(cookie));
  EXPECT_EQ(edits.nameOf(cookie), "Reel");
  EXPECT_EQ(edits.loaded(cookie), nullptr);
  EXPECT_EQ(listener.heard, Notes{});
}

TEST_F(EditHistoryTest, BrokenAndForeignFilesInTheHistoryAreShownOrLeftOut) {
  const Cookie cookie = made("One");
  saveAs(cookie, "Two");
  const std::string versions = historyOf(cookie);
  const std::string whole = bytesOf(fileOf(cookie));
  write(versions + "/000003-aaaaaaaa.otio", whole.substr(0, whole.size() / 2));
  write(versions + "/notes.txt", "mine");
  write(versions + "/000004-AAAAAAAA.otio", whole);
  fs::create_directory(versions + "/000005-aaaaaaaa.otio");
  fs::create_symlink(fileOf(cookie), versions + "/000006-aaaaaaaa.otio");
  EXPECT_EQ(column(cookie, "version"), (Notes{"3", "2", "1"}));
  EXPECT_NE(column(cookie, "problem")[0], "");
  EXPECT_FALSE(EditActions::restore(cookie, "3"));
  EXPECT_EQ(bytesOf(fileOf(cookie)), whole);
  saveAs(cookie, "Three");
  EXPECT_EQ(bytesOf(versions + "/notes.txt"), "mine");
}

TEST_F(EditHistoryTest, ASaveIsRefusedWhereNothingCanBeKeptUnlessThatIsAccepted) {
  const Cookie cookie = made("One");
  write(fs::path(fileOf(cookie)).parent_path() / ".history", "a file in the way");
  ASSERT_TRUE(EditActions::rename(cookie, "Two"));
  const std::string before = bytesOf(fileOf(cookie));
  const auto saved = EditActions::save(cookie);
  ASSERT_FALSE(saved);
  EXPECT_NE(saved.error().message.find(".history"), std::string::npos) << saved.error().message;
  EXPECT_EQ(bytesOf(fileOf(cookie)), before);
  EXPECT_TRUE(EditActions::save(cookie, EditFile::Overwrite::eAccept));
  EXPECT_NE(events.logged.find("No version is kept of what is saved"), std::string::npos);
}

TEST_F(EditHistoryTest, WhatAnotherSavedIsNeverReplacedWithoutBeingKept) {
  const Cookie cookie = made("Reel");
  const std::string history = fs::path(fileOf(cookie)).parent_path() / ".history";
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  savedByAnother(cookie, "Theirs", "ben");
  const std::string theirs = bytesOf(fileOf(cookie));
  const ScratchFolder elsewhere(fs::path("/dev/shm"));
  const auto expectRefused = [&](const char* where) {
    const auto saved = EditActions::save(cookie, EditFile::Overwrite::eAccept);
    ASSERT_FALSE(saved) << where;
    EXPECT_NE(saved.error().message.find(".history"), std::string::npos) << saved.error().message;
    EXPECT_NE(saved.error().message.find("save-copy"), std::string::npos) << saved.error().message;
    EXPECT_EQ(bytesOf(fileOf(cookie)), theirs) << where;
    EXPECT_TRUE(edits.loaded(cookie)->hasLocalChanges()) << where;
    fs::remove(history);
    EXPECT_EQ(EditActions::save(cookie).error().code, ErrorCode::eChanged) << where;
  };
  write(history, "a file in the way");
  expectRefused("a file");
  if (fs::path(elsewhere.path()).parent_path() == "/dev/shm") {
    fs::create_symlink(elsewhere.path(), history);
    expectRefused("a link that leads out of the share");
    EXPECT_TRUE(fs::is_empty(elsewhere.path()));
  }
  const auto copy = EditActions::saveCopy(cookie, "Beside");
  EXPECT_TRUE(copy) << copy.error().message;
  EXPECT_TRUE(EditActions::save(cookie, EditFile::Overwrite::eAccept));
  EXPECT_EQ(EditHistory::read(cookie, "2")->name(), "Theirs");
}

// Also where nobody saved meanwhile: what was opened here is another user's work.
TEST_F(EditHistoryTest, WhatWasOpenedOfAnotherUserIsNeverReplacedWithoutBeingKept) {
  const Cookie cookie = made("Reel");
  savedByAnother(cookie, "Theirs", "ben");
  edits.refresh(cookie);
  const std::string theirs = bytesOf(fileOf(cookie));
  write(fs::path(fileOf(cookie)).parent_path() / ".history", "a file in the way");
  ASSERT_TRUE(EditActions::rename(cookie, "Mine"));
  EXPECT_FALSE(EditActions::save(cookie, EditFile::Overwrite::eAccept));
  EXPECT_EQ(bytesOf(fileOf(cookie)), theirs);
}

TEST_F(EditHistoryTest, AnOwnerThatIsGivenIsAVersion) {
  const Cookie cookie = made("One");
  ASSERT_TRUE(EditActions::give(cookie, "bob"));
  EXPECT_EQ(column(cookie, "changes"), (Notes{"owner BOB, was ANNA", ""}));
}

TEST_F(EditHistoryTest, VersionsOfOneNumberAreToldApart) {
  const Cookie cookie = made("One");
  saveAs(cookie, "Two");
  const std::string versions = historyOf(cookie);
  write(versions + "/000001-abcdef01.otio", bytesOf(fileOf(cookie)));
  const Notes called = column(cookie, "version");
  ASSERT_EQ(called.size(), 3U);
  EXPECT_EQ(called[0], "2");
  EXPECT_EQ(EditHistory::read(cookie, "1").error().code, ErrorCode::eUsage);
  EXPECT_TRUE(EditHistory::read(cookie, called[1]));
  EXPECT_TRUE(EditHistory::read(cookie, called[2]));
}

}  // namespace

}  // namespace korvel
