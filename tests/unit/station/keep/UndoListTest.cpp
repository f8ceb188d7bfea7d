#include "station/keep/UndoList.h"

#include <filesystem>

#include "station/Trash.h"
#include "station/containers/Containers.h"
#include "station/edit/OtioDocument.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

namespace fs = std::filesystem;

/// A list on which steps are put that only note that they ran.
class StepsTest : public testing::Test {
 protected:
  void add(const std::string& words) {
    list_.add({words,
               [this, words]() -> Result<void> {
                 ran_.push_back("undone " + words);
                 return next_;
               },
               [this, words]() -> Result<void> {
                 ran_.push_back("done " + words);
                 return next_;
               }});
  }

  UndoList list_;
  Result<void> next_;
  std::vector<std::string> ran_;
};

TEST_F(StepsTest, TheLastStepIsUndoneFirstAndDoneAgainLast) {
  EXPECT_EQ(list_.undo().error().code, ErrorCode::eNotFound);
  add("one");
  add("two");
  EXPECT_EQ(list_.undoText(), "Undo two");
  EXPECT_EQ(list_.redoText(), "");
  EXPECT_EQ(*list_.undo(), "Undone: two");
  EXPECT_EQ(*list_.undo(), "Undone: one");
  EXPECT_EQ(list_.undoText(), "");
  EXPECT_EQ(*list_.redo(), "Done again: one");
  EXPECT_EQ(list_.redoText(), "Redo two");
  EXPECT_EQ(ran_, (std::vector<std::string>{"undone two", "undone one", "done one"}));
}

TEST_F(StepsTest, ANewStepIsAllThatCanBeUndoneNext) {
  add("one");
  ASSERT_TRUE(list_.undo());
  add("two");
  EXPECT_EQ(list_.redo().error().code, ErrorCode::eNotFound);
  EXPECT_EQ(list_.undoText(), "Undo two");
}

TEST_F(StepsTest, OneThatIsNoLongerPossibleIsDroppedAndOneThatWaitsForTheShareStays) {
  add("one");
  add("two");
  next_ = Error{ErrorCode::eFull, "The share is full.", {}};
  const auto waits = list_.undo();
  ASSERT_FALSE(waits);
  EXPECT_EQ(waits.error().message, "\"Undo two\" was not done: The share is full.");
  EXPECT_EQ(list_.undoText(), "Undo two");
  next_ = Error{ErrorCode::eChanged, "BEN changed it.", {}};
  const auto gone = list_.undo();
  ASSERT_FALSE(gone);
  EXPECT_EQ(gone.error().message,
            "\"Undo two\" is no longer possible, and was dropped: BEN changed it.");
  EXPECT_EQ(list_.undoText(), "Undo one");
  EXPECT_EQ(list_.redoText(), "");
}

TEST_F(StepsTest, TheListIsBounded) {
  for (std::size_t i = 0; i <= UndoList::kMost; ++i) add(std::to_string(i));
  for (std::size_t i = 0; i < UndoList::kMost; ++i) ASSERT_TRUE(list_.undo());
  EXPECT_EQ(list_.undoText(), "");
  EXPECT_EQ(list_.redoText(), "Redo 1");
}

TEST_F(StepsTest, WhatOthersDoIsNoStep) {
  const RemoteChangeScope remote;
  add("one");
  EXPECT_EQ(list_.undoText(), "");
}

/// Every kind of step, on the documents of one station.
class UndoTest : public DocumentStation {
 protected:
  UndoTest() {
    const OpenProject& open = *projects.current();
    bins_.enter(open, {});
    filters_.enter(open, {});
    edit_ = imported("simple_cut.otio");
    name_ = edits.nameOf(edit_);
    clip_ = clip().name;
  }

  ClipInfo clip() {
    const auto held = edits.hold(edit_);
    const auto found = clipAt((*held)->document().json(), "0/0");
    edits.release(*held);
    return *found;
  }

  void undo(const std::string& text) {
    const auto done = list_.undo();
    ASSERT_TRUE(done) << done.error().message;
    EXPECT_EQ(*done, text);
  }

  void redo(const std::string& text) {
    const auto done = list_.redo();
    ASSERT_TRUE(done) << done.error().message;
    EXPECT_EQ(*done, text);
  }

  /// The next undo must say that it is impossible, with these words in it.
  void expectImpossible(const std::string& part) {
    const std::string text = list_.undoText();
    const auto done = list_.undo();
    ASSERT_FALSE(done) << *done;
    EXPECT_NE(done.error().message.find(part), std::string::npos) << done.error().message;
    EXPECT_NE(list_.undoText(), text);
  }

  UndoList list_;
  Bins bins_;
  Filters filters_;
  Trash trash_{projects, {&bins_, &filters_}};
  Cookie edit_;
  std::string name_;
  std::string clip_;
};

TEST_F(UndoTest, ATrimIsUndoneAsAnOrdinaryTrim) {
  const ClipRange before = clip().range;
  ASSERT_TRUE(EditActions::trim(edit_, "0/0", "0", "2"));
  ASSERT_TRUE(EditActions::save(edit_));
  listener.heard.clear();
  undo("Undone: trim of " + clip_ + " in " + name_);
  EXPECT_DOUBLE_EQ(clip().range.start, before.start);
  EXPECT_DOUBLE_EQ(clip().range.end, before.end);
  EXPECT_TRUE(edits.loaded(edit_)->isDirty());
  EXPECT_EQ(listener.heard, (Notes{"dirtied", "modified " + std::to_string(eModTrim)}));
  redo("Done again: trim of " + clip_ + " in " + name_);
  EXPECT_DOUBLE_EQ(clip().range.end, 2.0 / 24);
  undo("Undone: trim of " + clip_ + " in " + name_);
}

TEST_F(UndoTest, ATrimThatAnotherChangedIsNotUndone) {
  ASSERT_TRUE(EditActions::rename(edit_, "Mine"));
  ASSERT_TRUE(EditActions::trim(edit_, "0/0", "0", "2"));
  remoteModification(edit_, std::to_string(eModTrim) + ";0;0.125;0%2F0;");
  expectImpossible("The clip was changed since");
  EXPECT_DOUBLE_EQ(clip().range.end, 0.125);
  undo("Undone: rename of " + name_ + " to Mine");
}

TEST_F(UndoTest, ARenameIsUndoneUnlessAnotherRenamed) {
  ASSERT_TRUE(EditActions::rename(edit_, "One"));
  ASSERT_TRUE(EditActions::rename(edit_, "Two"));
  undo("Undone: rename of One to Two");
  EXPECT_EQ(edits.nameOf(edit_), "One");
  redo("Done again: rename of One to Two");
  EXPECT_EQ(edits.nameOf(edit_), "Two");
  remoteModification(edit_, std::to_string(eModRename) + ";0;0;;Theirs");
  expectImpossible("The name was changed since");
  EXPECT_EQ(edits.nameOf(edit_), "Theirs");
}

TEST_F(UndoTest, WhatMayNotBeModifiedAnyMoreIsNotUndone) {
  ASSERT_TRUE(EditActions::rename(edit_, "One"));
  rules.isAllowed = false;
  expectImpossible("You may not change it");
  EXPECT_EQ(edits.nameOf(edit_), "One");
}

TEST_F(UndoTest, AGiftIsTakenBackThoughItIsAnothersNow) {
  ASSERT_TRUE(EditActions::give(edit_, "BOB"));
  rules.isAllowed = false;
  listener.heard.clear();
  undo("Undone: gift of " + name_ + " to BOB");
  EXPECT_EQ(edits.ownerOf(edit_), "ANNA");
  EXPECT_NE(bytesOf(fileOf(edit_)).find("ANNA"), std::string::npos);
  EXPECT_EQ(listener.heard, Notes{"modified " + std::to_string(eModOwnerChanged)});
  rules.isAllowed = true;
  redo("Done again: gift of " + name_ + " to BOB");
  EXPECT_EQ(edits.ownerOf(edit_), "BOB");
  undo("Undone: gift of " + name_ + " to BOB");
  EXPECT_EQ(edits.ownerOf(edit_), "ANNA");
}

TEST_F(UndoTest, AGiftThatItsNewOwnerSavedIsNotTakenBack) {
  ASSERT_TRUE(EditActions::give(edit_, "BOB"));
  replaceInFile(edit_, name_, "Bobs");
  expectImpossible("was changed since");
  EXPECT_NE(bytesOf(fileOf(edit_)).find("BOB"), std::string::npos);
}

TEST_F(UndoTest, AGiftThatWasPassedOnIsNotTakenBack) {
  ASSERT_TRUE(EditActions::give(edit_, "BOB"));
  replaceInFile(edit_, "\"BOB\"", "\"CARL\"");
  expectImpossible("was changed since");
  EXPECT_EQ(edits.ownerOf(edit_), "CARL");
}

TEST_F(UndoTest, ADeletionIsUndoneFromTheTrash) {
  const Cookie other = made("Other");
  ASSERT_TRUE(EditActions::remove({edit_, other}));
  listener.heard.clear();
  undo("Undone: deletion of 2 edits");
  EXPECT_EQ(listener.heard, (Notes{"stored new", "stored new"}));
  EXPECT_TRUE(edits.holds(edit_));
  EXPECT_TRUE(edits.holds(other));
  redo("Done again: deletion of 2 edits");
  EXPECT_FALSE(edits.holds(edit_));
  undo("Undone: deletion of 2 edits");
  ASSERT_TRUE(EditActions::remove({other}));
  undo("Undone: deletion of Other");
}

TEST_F(UndoTest, ADeletionThatWasEmptiedAwayIsNotUndone) {
  ASSERT_TRUE(EditActions::remove({edit_}));
  ASSERT_TRUE(trash_.empty({}));
  expectImpossible("no longer in the trash");
}

TEST_F(UndoTest, WhatWasTakenBackGoesToTheTrashAgain) {
  ASSERT_TRUE(EditActions::remove({edit_}));
  ASSERT_TRUE(trash_.restore(name_));
  undo("Undone: taking back of " + name_);
  EXPECT_FALSE(edits.holds(edit_));
  redo("Done again: taking back of " + name_);
  EXPECT_TRUE(edits.holds(edit_));
}

TEST_F(UndoTest, ADeletionIsUndoneThoughItsTakingBackWasUndoneBefore) {
  const auto bin = bins_.create("Rushes");
  ASSERT_TRUE(bin);
  ASSERT_TRUE(EditActions::remove({edit_}));
  ASSERT_TRUE(trash_.restore(name_));
  ASSERT_TRUE(bins_.discard(*bin));
  ASSERT_TRUE(trash_.restore("Rushes"));
  undo("Undone: taking back of Rushes");
  undo("Undone: deletion of bin Rushes");
  EXPECT_TRUE(bins_.holds(*bin));
  undo("Undone: taking back of " + name_);
  EXPECT_FALSE(edits.holds(edit_));
  undo("Undone: deletion of " + name_);
  EXPECT_TRUE(edits.holds(edit_));
}

TEST_F(UndoTest, ChangesOfABinAreUndoneOneByOne) {
  const Cookie first = made("First");
  const Cookie second = made("Second");
  const auto bin = bins_.create("Rushes");
  ASSERT_TRUE(bin);
  ASSERT_TRUE(bins_.add(*bin, {edit_, first, second}));
  ASSERT_TRUE(bins_.remove(*bin, {first, edit_}));
  ASSERT_TRUE(bins_.discard(*bin));
  undo("Undone: deletion of bin Rushes");
  EXPECT_EQ(bins_.contents(*bin), CookieVec{second});
  undo("Undone: taking 2 objects out of bin Rushes");
  EXPECT_EQ(bins_.contents(*bin), (CookieVec{edit_, first, second}));
  undo("Undone: putting 3 objects into bin Rushes");
  EXPECT_EQ(bins_.contents(*bin), CookieVec{});
  undo("Undone: making of bin Rushes");
  EXPECT_FALSE(bins_.holds(*bin));
  redo("Done again: making of bin Rushes");
  redo("Done again: putting 3 objects into bin Rushes");
  redo("Done again: taking 2 objects out of bin Rushes");
  EXPECT_EQ(bins_.contents(*bin), CookieVec{second});
  redo("Done again: deletion of bin Rushes");
  EXPECT_FALSE(bins_.holds(*bin));
  undo("Undone: deletion of bin Rushes");
  EXPECT_TRUE(bins_.holds(*bin));
}

TEST_F(UndoTest, ABinThatAnotherChangedIsNotUnmade) {
  const auto bin = bins_.create("Rushes");
  ASSERT_TRUE(bin);
  write(bins_.fileOf(*bin), "{\"name\":\"Rushes\",\"contents\":[\"E0001\"]}");
  expectImpossible("was changed since");
  EXPECT_TRUE(fs::exists(bins_.fileOf(*bin)));
}

TEST_F(UndoTest, WhatAnotherPutBackOrTookOutMeanwhileIsSaid) {
  const auto bin = bins_.create("Rushes");
  ASSERT_TRUE(bins_.add(*bin, {edit_}));
  write(bins_.fileOf(*bin), "{\"name\":\"Rushes\",\"contents\":[]}");
  expectImpossible("Nothing of it is in the bin Rushes any more");
  ASSERT_TRUE(bins_.add(*bin, {edit_}));
  ASSERT_TRUE(bins_.remove(*bin, {edit_}));
  write(bins_.fileOf(*bin),
        "{\"name\":\"Rushes\",\"contents\":[\"" + edit_.asString().str() + "\"]}");
  expectImpossible("All of it is in the bin Rushes again");
}

TEST_F(UndoTest, AFiltersTextIsUndoneUnlessAnotherChangedIt) {
  const auto filter = filters_.create("Day", "day");
  ASSERT_TRUE(filters_.change(*filter, "night"));
  undo("Undone: change of filter Day");
  EXPECT_EQ(filters_.find(*filter)->record["filter"].asString(), "day");
  redo("Done again: change of filter Day");
  write(filters_.fileOf(*filter), "{\"name\":\"Day\",\"filter\":\"dusk\"}");
  expectImpossible("was changed since");
}

TEST_F(UndoTest, LeavingTheProjectEndsIt) {
  projects.addPart(list_);
  ASSERT_TRUE(EditActions::rename(edit_, "Mine"));
  ASSERT_TRUE(EditActions::save(edit_));
  EXPECT_EQ(projects.state()["steps"]["undo"].asString(), "Undo rename of " + name_ + " to Mine");
  ASSERT_TRUE(projects.leave());
  EXPECT_EQ(list_.undoText(), "");
  EXPECT_EQ(projects.state()["steps"]["undo"].asString(), "");
}

TEST_F(UndoTest, ARefusedChangeIsNoStep) {
  rules.isAllowed = false;
  EXPECT_FALSE(EditActions::rename(edit_, "Mine"));
  EXPECT_FALSE(EditActions::trim(edit_, "0/0", "0", "2"));
  EXPECT_FALSE(EditActions::remove({edit_}));
  EXPECT_EQ(list_.undoText(), "");
}

}  // namespace
