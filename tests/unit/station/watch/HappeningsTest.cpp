#include "station/watch/Happenings.h"

#include <chrono>
#include <filesystem>
#include <thread>

#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

/// What a station that is shown the work of others writes down of it.
class HappeningsTest : public DocumentStation {
 protected:
  HappeningsTest() : edit(imported("simple_cut.otio")) { openProjectAgain(); }

  void openProjectAgain() {
    EXPECT_TRUE(projects.leave());
    EXPECT_TRUE(projects.enter("Film"));
  }

  /// What happened, the latest first; waits until there is so much, and the reader is through.
  std::vector<std::string> words(std::size_t count) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (happenings.all().size() < count && std::chrono::steady_clock::now() < deadline) {
      thread.runPending();
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    std::vector<std::string> found;
    for (const Happening& each : happenings.all()) found.push_back(happeningText(each));
    return found;
  }

  /// Waits until this is so.
  bool becomes(const std::function<bool()>& isSo) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(2);
    while (std::chrono::steady_clock::now() < deadline) {
      thread.runPending();
      if (!happenings.all().empty() && isSo()) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return false;
  }

  /// Waits until the latest happening reads so.
  bool latestBecomes(const std::string& text) {
    return becomes([&] { return latest() == text; });
  }

  [[nodiscard]] std::string latest() const {
    return happenings.all().empty() ? std::string() : happeningText(happenings.all().front());
  }

  /// Ben's save of the edit with another name: its versions, and what the folder watch found.
  void savedByBen(
      const std::string& name, const std::string& owner = "ANNA",
      const std::function<void(OtioDocument&)>& change = [](OtioDocument&) {}) {
    auto document = OtioDocument::parse(bytesOf(fileOf(edit)));
    ASSERT_TRUE(document);
    EXPECT_TRUE(VersionFolder(fileOf(edit)).keep(fileOf(edit), number, markNow()));
    document->rename(name);
    change(*document);
    document->setSetting("OWNER", owner);
    document->setStamp({++number, "ben", "2024-05-31T12:00:00Z"});
    std::filesystem::remove(fileOf(edit));  // the kept version is a link to it
    write(fileOf(edit), document->text());
    EXPECT_TRUE(VersionFolder(fileOf(edit)).keep(fileOf(edit), number, markNow()));
    const FolderChangeScope found;
    edits.refresh(edit);
  }

  [[nodiscard]] std::string markNow() const {
    return VersionFolder::markOf(contentHash(bytesOf(fileOf(edit))));
  }

  [[nodiscard]] std::string clipName(const std::string& path) {
    const auto held = edits.hold(edit);
    const auto clip = clipAt((*held)->document().json(), path);
    edits.release(*held);
    return clip ? clip->name : std::string();
  }

  HostThread thread;
  Happenings happenings{thread, edits};
  Cookie edit;
  long number = 1;
};

TEST_F(HappeningsTest, AnAnnouncedTrimNamesWhoTheClipAndTheEdit) {
  ASSERT_TRUE(edits.open(edit));
  const AuthorScope author("ben");
  remoteModification(edit, "1;0;1;0%2F1;");
  EXPECT_EQ(latest(),
            "ben trimmed " + clipName("0/1") + " in " + edits.nameOf(edit) + ", not saved yet");
}

TEST_F(HappeningsTest, TheClipOfAnEditThatIsNotOpenIsLookedUp) {
  const std::string clip = clipName("0/1");
  ASSERT_NE(clip, "");
  {
    const AuthorScope author("ben");
    remoteModification(edit, "1;0;1;0%2F1;");
  }
  EXPECT_TRUE(
      latestBecomes("ben trimmed " + clip + " in " + edits.nameOf(edit) + ", not saved yet"))
      << latest();
}

TEST_F(HappeningsTest, SeveralTrimsOfOneClipInAMomentAreOneHappening) {
  ASSERT_TRUE(edits.open(edit));
  const std::size_t before = happenings.all().size();
  const AuthorScope author("ben");
  remoteModification(edit, "1;0;1;0%2F1;");
  remoteModification(edit, "1;0;0.5;0%2F1;");
  EXPECT_EQ(happenings.all().size(), before + 1);
  remoteModification(edit, "1;0;0.5;0%2F2;");
  EXPECT_EQ(happenings.all().size(), before + 2);
}

TEST_F(HappeningsTest, ASaveThatIsFoundNamesWhatItsVersionsDifferIn) {
  const std::string name = edits.nameOf(edit);
  savedByBen("Quay");
  EXPECT_TRUE(latestBecomes("ben renamed " + name + " to Quay")) << latest();
  EXPECT_EQ(happenings.all().front().when, 1717156800) << "of the save, not of now";
  savedByBen("Quay", "BEN");
  EXPECT_TRUE(latestBecomes("ben gave Quay to BEN")) << latest();
}

TEST_F(HappeningsTest, WhatWasAnnouncedIsNotToldAgainWhenItIsSaved) {
  ASSERT_TRUE(edits.open(edit));
  const std::string name = edits.nameOf(edit);
  {
    const AuthorScope author("ben");
    remoteModification(edit, "2;0;0;;Quay");
  }
  EXPECT_EQ(latest(), "ben renamed " + name + " to Quay, not saved yet");
  ASSERT_TRUE(edits.close(edit));
  savedByBen("Quay");
  // The reader answers in order: what it found of the save is told before this.
  {
    const AuthorScope author("carl");
    remoteModification(edit, "1;0;1;0%2F1;");
  }
  ASSERT_TRUE(latestBecomes("carl trimmed " + clipName("0/1") + " in Quay, not saved yet"));
  EXPECT_EQ(happeningText(happenings.all()[1]), "ben saved Quay");
}

TEST_F(HappeningsTest, WhatAnotherAnnouncedIsNotTakenForTheSaversOwn) {
  ASSERT_TRUE(edits.open(edit));
  const std::string name = edits.nameOf(edit);
  {
    const AuthorScope author("carl");
    remoteModification(edit, "2;0;0;;Quay");
  }
  ASSERT_TRUE(edits.close(edit));
  savedByBen("Quay");
  EXPECT_TRUE(latestBecomes("ben renamed " + name + " to Quay")) << latest();
}

TEST_F(HappeningsTest, OfASaveOfManyDeedsTheFirstAreKeptAndTheRestIsCounted) {
  constexpr std::size_t kAdded = 2 * kMostDeeds;
  savedByBen("Quay", "ANNA", [](OtioDocument& document) {
    JsonValue& track = document.json().find("tracks")->find("children")->elements().front();
    std::vector<JsonValue>& clips = track.find("children")->elements();
    const JsonValue clip = clips.front();
    for (std::size_t i = 0; i < kAdded; ++i) {
      clips.push_back(clip);
      clips.back().set("name", "New-" + std::to_string(i));
    }
  });
  const auto hasAll = [this] { return happenings.all().front().further > 0; };
  EXPECT_TRUE(becomes(hasAll)) << latest();
  const Happening& save = happenings.all().front();
  EXPECT_EQ(save.deeds.size(), kMostDeeds);
  EXPECT_EQ(save.deeds.size() + save.further, kAdded + 1) << "and the new name";
  EXPECT_EQ(shownHappening(save)["more"].asLong(), static_cast<long>(kAdded + 1 - 3));
  EXPECT_TRUE(latest().ends_with(" and 38 more in Quay")) << latest();
}

TEST_F(HappeningsTest, WhereNoVersionIsKeptItIsSaidThatItWasSaved) {
  replaceInFile(edit, "\"anna\"", "\"carl\"");
  const FolderChangeScope found;
  edits.refresh(edit);
  EXPECT_TRUE(latestBecomes("carl saved " + edits.nameOf(edit))) << latest();
}

TEST_F(HappeningsTest, WhatAnotherProgramWroteIsAChangeBySomebody) {
  replaceInFile(edit, "\"OTIO_SCHEMA\"", "\"strange\": 1, \"OTIO_SCHEMA\"");
  const FolderChangeScope found;
  edits.refresh(edit);
  EXPECT_TRUE(latestBecomes("Somebody changed " + edits.nameOf(edit))) << latest();
}

TEST_F(HappeningsTest, WhatIsMadeDeletedAndBroughtBackIsTold) {
  const auto made = EditActions::create("Pier", CookieTypeEdit);
  ASSERT_TRUE(made);
  EXPECT_EQ(latest(), "anna made Pier");
  ASSERT_TRUE(EditActions::remove({*made}));
  EXPECT_EQ(latest(), "anna deleted Pier");
  const auto trashed = TrashFolder(folderOf(fileOf(*made))).list();
  ASSERT_TRUE(trashed && trashed->size() == 1);
  ASSERT_TRUE(EditActions::takeBack(trashed->front()));
  EXPECT_EQ(latest(), "anna brought back Pier");
}

TEST_F(HappeningsTest, AProjectThatIsEnteredTellsOfItsLatestSaves) {
  const std::string name = edits.nameOf(edit);
  savedByBen("Quay");
  openProjectAgain();
  ASSERT_EQ(happenings.all().size(), 1u);
  EXPECT_EQ(happenings.all().front().by, "ben");
  EXPECT_EQ(happenings.all().front().when, 1717156800);
  EXPECT_TRUE(latestBecomes("ben renamed " + name + " to Quay")) << latest();
}

TEST_F(HappeningsTest, OnlyTheLatestAreKept) {
  ASSERT_TRUE(edits.open(edit));
  const AuthorScope author("ben");
  for (std::size_t i = 0; i < 2 * Happenings::kMost; ++i) {
    remoteModification(edit, "2;0;0;;Name" + std::to_string(i));
    remoteModification(edit, "1;0;1;0%2F1;");
  }
  EXPECT_LE(happenings.all().size(), Happenings::kMost);
}

TEST_F(HappeningsTest, TheListIsOfAUserOrOfAnObjectWhereOneIsNamed) {
  const auto made = EditActions::create("Pier", CookieTypeEdit);
  ASSERT_TRUE(made);
  ASSERT_TRUE(edits.open(edit));
  {
    const AuthorScope author("ben");
    remoteModification(edit, "1;0;1;0%2F1;");
  }
  EXPECT_EQ(happenings.list("BEN").elements().size(), 1u);
  EXPECT_EQ(happenings.list("Pier").elements().size(), 1u);
  EXPECT_EQ(happenings.list(made->asString().str().substr(0, 9)).elements().size(), 1u);
  EXPECT_EQ(happenings.list({}).elements().size(), happenings.all().size());
  EXPECT_TRUE(happenings.list("nobody").elements().empty());
  const JsonValue first = happenings.list("ben").elements().front();
  EXPECT_EQ(first["deeds"].elements().front()["did"].asString(), "trimmed");
  EXPECT_EQ(first["deeds"].elements().front()["path"].asString(), "0/1");
  EXPECT_FALSE(first["own"].asBool());
}

TEST_F(HappeningsTest, ManyDeedsAreCounted) {
  Happening many;
  many.by = "BEN";
  many.what = "edit";
  many.name = "Quay";
  for (const char* clip : {"A", "B", "C", "D", "E"}) many.deeds.push_back({"trimmed", clip, "0/1"});
  EXPECT_EQ(happeningText(many), "BEN trimmed A, trimmed B, trimmed C and 2 more in Quay");
  EXPECT_EQ(shownHappening(many)["more"].asLong(), 2);
  EXPECT_EQ(shownHappening(many)["deeds"].elements().size(), 3u);
}

}  // namespace
