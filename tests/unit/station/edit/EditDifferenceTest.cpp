#include "station/edit/EditHistory.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "station/base/Strings.h"

namespace korvel {

namespace {

using Words = std::vector<std::string>;

/// An edit of one track with these clips: "A:0-48 B:12-24", in frames of 24 a second.
OtioDocument edit(const std::string& clips) {
  std::string children;
  std::istringstream words(clips);
  for (std::string word; words >> word;) {
    const auto colon = word.find(':');
    const auto dash = word.find('-');
    const double start = std::stod(word.substr(colon + 1));
    const double duration = std::stod(word.substr(dash + 1)) - start;
    const auto time = [](double value) {
      return R"({"OTIO_SCHEMA":"RationalTime.1","rate":24.0,"value":)" + std::to_string(value) +
             "}";
    };
    children += (children.empty() ? "" : ",") +
                (R"({"OTIO_SCHEMA":"Clip.1","name":")" + word.substr(0, colon)) +
                R"(","source_range":{"OTIO_SCHEMA":"TimeRange.1","start_time":)" + time(start) +
                R"(,"duration":)" + time(duration) + "}}";
  }
  auto document = OtioDocument::parse(
      R"({"OTIO_SCHEMA":"Timeline.1","name":"cut","tracks":{"OTIO_SCHEMA":"Stack.1","children":[)"
      R"({"OTIO_SCHEMA":"Track.1","kind":"Video","children":[)" +
      children + "]}]}}");
  EXPECT_TRUE(document);
  return *document;
}

struct Row {
  std::string before;
  std::string after;
  Words words;
};

TEST(EditDifferenceTest, SaysWhatBecameOfEachClip) {
  const Row rows[] = {
      {"A:0-48 B:0-24", "A:0-48 B:0-24", {}},
      {"A:0-48 B:0-24",
       "A:0-24 B:0-24",
       {"clip \"A\" trimmed to 00:00:00:00-00:00:01:00, was 00:00:00:00-00:00:02:00"}},
      {"A:0-48 B:0-24", "A:0-48 B:0-24 C:0-24", {"clip \"C\" added"}},
      {"A:0-48 B:0-24", "N:0-24 A:0-48 B:0-24", {"clip \"N\" added"}},
      {"A:0-48 B:0-24", "B:0-24", {"clip \"A\" removed"}},
      {"A:0-48 B:0-24", "A:0-48 X:0-24", {"clip \"B\" renamed to \"X\""}},
      {"A:0-48 B:0-24 C:0-24",
       "A:0-48 C:0-12",
       {"clip \"C\" trimmed to 00:00:00:00-00:00:00:12, was 00:00:00:00-00:00:01:00",
        "clip \"B\" removed"}},
      {"A:0-24 A:0-24", "A:0-24 A:0-24 A:0-24", {"clip \"A\" added"}},
      {"A:0-24 B:0-24 C:0-24", "C:0-24 A:0-24 B:0-24", {"clip \"C\" moved"}},
      {"A:0-24 B:0-24 C:0-24 D:0-24",
       "D:0-24 C:0-24 B:0-24 A:0-24",
       {"clip \"A\" moved", "clip \"B\" moved", "clip \"C\" moved"}},
      {"", "A:0-24", {"clip \"A\" added"}},
      {"A:0-24", "", {"clip \"A\" removed"}},
  };
  for (const Row& row : rows) {
    SCOPED_TRACE(row.before + " -> " + row.after);
    EXPECT_EQ(differencesOf(edit(row.before), edit(row.after)), row.words);
  }
}

TEST(EditDifferenceTest, EachChangeOfAClipNamesItsPlaceInBothVersions) {
  using Kind = ClipChange::Kind;
  const auto changes =
      clipChangesOf(edit("A:0-48 B:0-24 C:0-24 D:0-24"), edit("N:0-12 A:0-24 X:0-24 D:0-24"));
  const std::vector<std::tuple<Kind, std::string, std::string>> expected{
      {Kind::eTrimmed, "0/0", "0/1"},
      {Kind::eRemoved, "0/1", ""},
      {Kind::eRenamed, "0/2", "0/2"},
      {Kind::eAdded, "", "0/0"}};
  std::vector<std::tuple<Kind, std::string, std::string>> found;
  for (const ClipChange& each : changes) found.emplace_back(each.kind, each.before, each.after);
  EXPECT_EQ(found, expected);
}

TEST(EditDifferenceTest, EachDeedNamesWhatWasDoneAndToWhichClip) {
  struct DeedRow {
    std::string before;
    std::string after;
    std::vector<Deed> deeds;
  };
  const DeedRow rows[] = {
      {"A:0-48 B:0-24", "A:0-24 B:0-24", {{"trimmed", "A", "0/0"}}},
      {"A:0-48 B:0-24 C:0-24", "C:0-24 A:0-48 B:0-24", {{"moved", "C", "0/0"}}},
      {"A:0-48", "A:0-48 C:0-24", {{"added", "C", "0/1"}}},
      {"A:0-48 B:0-24", "A:0-48", {{"removed", "B"}}},
      {"A:0-48 B:0-24", "A:0-48 X:0-24", {{"clip renamed", "B", "0/1", "B", "X"}}},
      {"A:0-48", "A:0-48", {}},
  };
  for (const DeedRow& row : rows) {
    SCOPED_TRACE(row.before + " -> " + row.after);
    EXPECT_EQ(deedsOf(edit(row.before), edit(row.after)), row.deeds);
  }
}

TEST(EditDifferenceTest, WhatWasDoneToTheWholeComesFirstAndWhatCannotBeSaidIsAChange) {
  const OtioDocument before = edit("A:0-24");
  OtioDocument after = before;
  after.json().set("global_start_time", 1);
  EXPECT_EQ(deedsOf(before, after), std::vector<Deed>{{"changed"}});
  after = edit("A:0-12");
  after.rename("Tape");
  after.setSetting("OWNER", "BEN");
  EXPECT_EQ(deedsOf(before, after), (std::vector<Deed>{{"renamed", "", "", "cut", "Tape"},
                                                       {"given", "", "", "", "BEN"},
                                                       {"trimmed", "A", "0/0"}}));
}

TEST(EditDifferenceTest, AnAnnouncedModificationIsADeedOfItsClip) {
  const OtioDocument before = edit("A:0-24 B:0-24");
  EXPECT_EQ(deedOf(EditModification(hostText("1;0;0.5;0%2F1;")), before),
            (Deed{"trimmed", "B", "0/1"}));
  EXPECT_EQ(deedOf(EditModification(hostText("1;0;0.5;0%2F7;")), before),
            (Deed{"trimmed", "0/7", "0/7"}))
      << "a clip that is not there has its path for a name";
  EXPECT_EQ(deedOf(EditModification(hostText("2;0;0;;Quay")), before),
            (Deed{"renamed", "", "", "cut", "Quay"}));
  EXPECT_EQ(deedOf(EditModification(hostText("77;0;0;;")), before), Deed{"changed"});
}

TEST(EditDifferenceTest, WhoSavedAndWhenDoesNotCount) {
  OtioDocument saved = edit("A:0-24");
  saved.setStamp({7, "anna", "2024-05-31T12:00:00Z"});
  OtioDocument again = saved;
  again.setStamp({8, "ben", "2024-05-31T13:00:00Z"});
  EXPECT_EQ(differencesOf(saved, again), Words{});
}

TEST(EditDifferenceTest, NamesOwnersAndEverythingElseCount) {
  OtioDocument before = edit("A:0-24");
  OtioDocument after = before;
  after.json().set("global_start_time", 1);
  EXPECT_EQ(differencesOf(before, after), Words{"other content changed"});
  after.rename("Tape");
  after.setSetting("OWNER", "BEN");
  EXPECT_EQ(differencesOf(before, after),
            (Words{"renamed to \"Tape\", was \"cut\"", "owner BEN, was nobody"}));
}

TEST(EditDifferenceTest, ManyDifferencesAreCountedInASummary) {
  const OtioDocument before = edit("A:0-48 B:0-48 C:0-48");
  const OtioDocument after = edit("A:0-24 B:0-24 C:0-24 D:0-24");
  EXPECT_EQ(summaryOf(differencesOf(before, after)), "1 added, 3 trimmed");
  EXPECT_EQ(summaryOf({}), "nothing differs");
}

TEST(EditDifferenceTest, LargeEditsAreComparedInAMoment) {
  std::string first;
  std::string second;
  for (int i = 0; i < 6000; ++i) {
    first += "a" + std::to_string(i) + ":0-24 ";
    second += "b" + std::to_string(i) + ":0-12 ";
  }
  EXPECT_EQ(differencesOf(edit(first), edit(second)).size(), 12000U);
}

}  // namespace

}  // namespace korvel
