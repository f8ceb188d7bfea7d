#include "app/window/Timeline.h"

#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "station/edit/EditSummary.h"

using namespace korvel;

namespace {

Timeline timelineOfFile(const std::string& name) {
  std::ostringstream text;
  text << std::ifstream(std::string(KV_DATA "/otio/") + name).rdbuf();
  const auto json = parseJson(text.str());
  return json ? timelineOf(*json) : Timeline();
}

struct Row {
  const char* file;
  std::size_t tracks;
  std::size_t items;  ///< of the first track
  TimelineItem::Kind second;
};

TEST(TimelineMakerTest, TracksAndItemsStandAsInTheFile) {
  const Row rows[] = {
      {"multitrack.otio", 3, 6, TimelineItem::Kind::eGap},
      {"screening_example.otio", 1, 9, TimelineItem::Kind::eClip},
      {"nested_example.otio", 1, 7, TimelineItem::Kind::eNested},
  };
  for (const Row& row : rows) {
    const Timeline timeline = timelineOfFile(row.file);
    ASSERT_EQ(timeline.tracks.size(), row.tracks) << row.file;
    ASSERT_EQ(timeline.tracks[0].items.size(), row.items) << row.file;
    EXPECT_EQ(timeline.tracks[0].items[1].kind, row.second) << row.file;
  }
}

TEST(TimelineMakerTest, ItemsFollowOneAnotherAndATransitionLiesOverTheCut) {
  const Timeline timeline = timelineOfFile("transition_test.otio");
  ASSERT_FALSE(timeline.tracks.empty());
  EXPECT_TRUE(timeline.tracks[0].hasTransitions);
  EXPECT_FALSE(timelineOfFile("simple_cut.otio").tracks[0].hasTransitions);
  double end = 0;
  for (const TimelineItem& item : timeline.tracks[0].items) {
    if (item.kind == TimelineItem::Kind::eTransition) {
      EXPECT_LE(item.start, end);
      EXPECT_GE(item.start + item.length, end);
    } else {
      EXPECT_NEAR(item.start, end, 1e-9);
      end = item.start + item.length;
    }
  }
  EXPECT_GT(timeline.length, 0);
}

TEST(TimelineMakerTest, ATimelineIsAsLongAsTheListOfEditsSays) {
  for (const char* const file :
       {"multitrack.otio", "nested_example.otio", "simple_cut.otio", "screening_example.otio",
        "big_int.otio", "transition_test.otio"}) {
    std::ostringstream text;
    text << std::ifstream(std::string(KV_DATA "/otio/") + file).rdbuf();
    const Timeline timeline = timelineOf(*parseJson(text.str()));
    const auto summary = readEditSummary(text.str());
    ASSERT_TRUE(summary) << file;
    EXPECT_NEAR(summary->extent.length, timeline.length, 1e-6) << file;
    const bool hasLength = timeline.length > 0;
    EXPECT_EQ(hasLength ? summary->extent.rate : timeline.rate, timeline.rate) << file;
  }
}

TEST(TimelineMakerTest, NonsenseIsATimelineOfNoLength) {
  for (const char* text :
       {"{}", "[]", "null",
        R"({"tracks":{"children":[{"OTIO_SCHEMA":"Track.1","children":[1,{}]}]}})",
        R"({"tracks":{"children":[{"OTIO_SCHEMA":"Clip.1","source_range":{"duration":)"
        R"({"rate":0,"value":Inf}}}]}})"}) {
    EXPECT_EQ(timelineOf(*parseJson(text)).length, 0) << text;
  }
}

}  // namespace
