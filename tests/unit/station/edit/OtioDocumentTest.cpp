#include "station/edit/OtioDocument.h"

#include <gtest/gtest.h>

#include <cmath>
#include <filesystem>

#include "station/edit/EditSummary.h"
#include "tests/support/DocumentStation.h"

using namespace korvel;

namespace {

JsonValue json(const std::string& text) { return *parseJson(text); }

/// One track with one clip of 24 frames a second that shows frames 1 to 25.
std::string timeline(const std::string& number) {
  const std::string time = R"({"OTIO_SCHEMA": "RationalTime.1", "rate": 24, "value": )";
  return R"({"OTIO_SCHEMA": "Timeline.1", "name": "T", "tracks": {"children": [{"children": [
      {"OTIO_SCHEMA": "Clip.1", "name": "A", "source_range": {"OTIO_SCHEMA": "TimeRange.1",
       "start_time": )" +
         time + number + R"(}, "duration": )" + time + R"(24}}},
      {"OTIO_SCHEMA": "Clip.1", "name": "B"}]}]}})";
}

class OtioSamples : public DocumentStation, public ::testing::WithParamInterface<const char*> {};

TEST_P(OtioSamples, AreExportedAsTheyWereImported) {
  const std::string source = std::string(KV_SAMPLES) + "/" + GetParam();
  const Cookie cookie = imported(GetParam());
  ASSERT_TRUE(projects.leave());
  ASSERT_TRUE(projects.enter("Film"));
  ASSERT_TRUE(EditActions::exportTo(cookie, folder / "out.otio"));
  EXPECT_TRUE(json(bytesOf(source)) == json(bytesOf(folder / "out.otio")));
  EXPECT_EQ(edits.ownerOf(cookie), "ANNA");
}

INSTANTIATE_TEST_SUITE_P(All, OtioSamples,
                         ::testing::Values("big_int.otio", "multitrack.otio", "nested_example.otio",
                                           "screening_example.otio", "simple_cut.otio",
                                           "transition_test.otio"));

TEST(OtioDocumentExport, GivesBackWhateverStoodInThePlaceOfItsOwnData) {
  for (const char* rest :
       {"", R"(, "name": "N")", R"(, "metadata": null)", R"(, "metadata": "text")",
        R"(, "metadata": {})", R"(, "metadata": {"a": 1})", R"(, "metadata": {"korvel": 7})",
        R"(, "metadata": {"korvel": {"config": {"OWNER": "X"}}, "b": 2})", R"(, "name": null)"}) {
    const std::string text = R"({"OTIO_SCHEMA": "Timeline.1")" + std::string(rest) + "}";
    auto document = OtioDocument::parse(text);
    ASSERT_TRUE(document) << text;
    document->adopt(2, "fallback");
    document->setSetting("OWNER", "ANNA");
    const auto again = OtioDocument::parse(document->text());
    ASSERT_TRUE(again) << text;
    EXPECT_EQ(again->setting("OWNER"), "ANNA") << text;
    EXPECT_EQ(again->logType(0), 2) << text;
    EXPECT_TRUE(json(again->exportedText()) == json(text)) << again->exportedText();
  }
}

TEST(OtioDocumentParsing, RefusesWhatIsNoTimeline) {
  for (const char* text : {"", "{", "[]", "7", "{}", R"({"OTIO_SCHEMA": 3})",
                           R"({"OTIO_SCHEMA": "Clip.1"})", R"({"OTIO_SCHEMA": "Timelines.1"})"}) {
    EXPECT_FALSE(OtioDocument::parse(text)) << text;
    EXPECT_FALSE(readEditSummary(text)) << text;
  }
}

TEST(EditSummaryReading, AgreesWithTheDocument) {
  OtioDocument document = OtioDocument::blank("Gr\"ü\\ße\n");
  document.adopt(2, "");
  document.setSetting("OWNER", "ÄNNE");
  const auto summary = readEditSummary(document.text());
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->name, document.name());
  EXPECT_EQ(summary->owner, "ÄNNE");
}

TEST(EditSummaryReading, IsNotMisledByTheSameKeysElsewhere) {
  const auto summary = readEditSummary(
      R"({"a": [{"name": "x"}], "OTIO_SCHEMA": "Timeline.1", "name": "right",
          "tracks": {"name": "y", "metadata": {"korvel": {"config": {"OWNER": "Z"}}}},
          "metadata": {"korvel": [{"OWNER": "Z"}], "config": {"OWNER": "Z"}}})");
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->name, "right");
  EXPECT_EQ(summary->owner, "");
}

std::string range(const std::string& value, const std::string& rate = "24") {
  return R"({"OTIO_SCHEMA":"TimeRange.1","duration":{"rate":)" + rate + R"(,"value":)" + value +
         R"(},"start_time":{"rate":)" + rate + R"(,"value":480}})";
}

std::string media(const std::string& url, const std::string& available = "null") {
  return R"({"OTIO_SCHEMA":"ExternalReference.1","available_range":)" + available +
         R"(,"target_url":")" + url + R"("})";
}

/// A clip of so many frames that shows a file.
std::string clip(const std::string& value, const std::string& url) {
  return R"({"OTIO_SCHEMA":"Clip.2","source_range":)" + range(value) +
         R"(,"media_references":{"DEFAULT_MEDIA":)" + media(url) + R"(,"proxy":)" +
         media("proxy.mov") + R"(},"active_media_reference_key":"DEFAULT_MEDIA"})";
}

std::string item(const std::string& schema, const std::string& rest) {
  return R"({"OTIO_SCHEMA":")" + schema + R"(",)" + rest + "}";
}

std::string children(const std::string& items) { return R"("children":[)" + items + "]"; }

struct ExtentRow {
  std::string tracks;  ///< what the stack of the timeline holds
  EditExtent extent;
};

TEST(EditExtentReading, TellsLengthAndSourcesOfADocumentAndOfItsFileAlike) {
  const std::string bare = R"({"OTIO_SCHEMA":"Clip.1","media_reference":)";
  const ExtentRow rows[] = {
      {"", {}},
      {item("Track.1", children(clip("48", "a.mov"))), {2, 24, "a.mov", 1}},
      // The longest track counts; a gap has a length and a transition none.
      {item("Track.1", children(clip("24", "a.mov"))) + "," +
           item("Track.1", children(item("Gap.1", R"("source_range":)" + range("24")) + "," +
                                    item("Transition.1", R"("source_range":)" + range("24")) + "," +
                                    clip("36", "b.mov"))),
       {2.5, 24, "b.mov", 2}},
      // The most of it comes from b, in two clips; of equals the first is named.
      {item("Track.1",
            children(clip("36", "a.mov") + "," + clip("24", "b.mov") + "," + clip("24", "b.mov"))),
       {3.5, 24, "b.mov", 2}},
      {item("Track.1", children(clip("24", "z.mov") + "," + clip("24", "a.mov"))),
       {2, 24, "z.mov", 2}},
      // Two files of one name are two.
      {item("Track.1", children(clip("24", "file:///r1/a%20b.mov") + "," +
                                clip("12", "file:///r2/a%20b.mov"))),
       {1.5, 24, "a b.mov", 2}},
      {item("Track.1", children(clip("24", R"(C:\\reels\\50%25.mov)"))), {1, 24, "50%25.mov", 1}},
      {item("Track.1", children(clip("24", "http://host/%zz/%e/"))), {1, 24, "%e", 1}},
      // Without a range of its own a clip shows all that there is, at that rate.
      {item("Track.1", children(bare + media("c.mov", range("50", "25.0")) + "}")),
       {2, 25, "c.mov", 1}},
      {item("Track.1", children(bare + R"({"name":"Reel 7"}})")), {0, 0, "Reel 7", 1}},
      {item("Track.1", children(bare + R"({"name_prefix":"shot.","name":"x"}})")),
       {0, 0, "shot.", 1}},
      {item("Track.1", children(bare + "null}")), {}},
      // A nested stack is as long as its own range, else as its longest child; what is nested in a
      // clip's metadata counts for nothing.
      {item("Track.1",
            children(item("Stack.1", R"("source_range":)" + range("12") + "," +
                                         children(clip("48", "a.mov"))) +
                     "," +
                     item("Stack.1", children(clip("24", "b.mov") + "," + clip("36", "b.mov"))) +
                     "," +
                     item("Clip.1", R"("metadata":{"source_range":)" + range("99") +
                                        R"(,"media_reference":)" + media("m.mov") + "}"))),
       {2, 24, "b.mov", 2}},
      // A track is shown whole, whatever its own range.
      {item("Track.1", R"("source_range":)" + range("1") + "," + children(clip("48", "a.mov"))),
       {2, 24, "a.mov", 1}},
      {clip("24", "a.mov"), {1, 24, "a.mov", 1}},
      // What is no time is none.
      {item("Track.1", children(clip("-24", "a.mov") + "," + clip("Inf", "b.mov") + "," +
                                clip("NaN", "b.mov") + R"(,7,null,[{"x":1}],"x")")),
       {0, 24, "a.mov", 2}},
      {item("Track.1", children(bare + media("a.mov", range("24", "0")) + "}")),
       {0, 0, "a.mov", 1}},
      {item("Track.1", children(bare + media("a.mov", range("\"24\"", "24")) + "}")),
       {0, 24, "a.mov", 1}},
  };
  for (const ExtentRow& row : rows) {
    const std::string text =
        R"({"OTIO_SCHEMA":"Timeline.1","tracks":)" + item("Stack.1", children(row.tracks)) + "}";
    const auto summary = readEditSummary(text);
    ASSERT_TRUE(summary) << text;
    EXPECT_EQ(summary->extent.source, row.extent.source) << text;
    EXPECT_EQ(summary->extent.length, row.extent.length) << text;
    EXPECT_EQ(summary->extent, row.extent) << text;
    EXPECT_EQ(extentOf(json(text)), row.extent) << text;
  }
}

TEST(EditExtentReading, CountsAThousandSourcesAtMost) {
  std::string clips;
  for (int number = 0; number < 1100; ++number) {
    clips += clip("24", std::to_string(number) + ".mov") + ",";
  }
  const std::string text = R"({"OTIO_SCHEMA":"Timeline.1","tracks":)" +
                           item("Stack.1", children(item("Track.1", children(clips + "0")))) + "}";
  const auto summary = readEditSummary(text);
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->extent, (EditExtent{1100, 24, "0.mov", 1000}));
  EXPECT_EQ(extentOf(json(text)), summary->extent);
}

TEST_P(OtioSamples, HaveTheSameExtentAsFilesAndAsDocuments) {
  const std::string text = bytesOf(std::string(KV_SAMPLES) + "/" + GetParam());
  const auto summary = readEditSummary(text);
  ASSERT_TRUE(summary);
  EXPECT_EQ(summary->extent, extentOf(json(text)));
}

TEST_F(DocumentStation, TheListHasTheLengthOfAnEditAsItIsShown) {
  const Cookie cookie = imported("simple_cut.otio");
  const EditExtent before = edits.extent(cookie);
  EXPECT_GT(before.length, 0);
  EXPECT_EQ(before, readEditSummary(bytesOf(fileOf(cookie)))->extent);
  const ClipInfo clip = listClips(json(bytesOf(fileOf(cookie)))).front();
  const double second = clip.range.end - clip.range.start;
  ASSERT_TRUE(edits.open(cookie));
  remoteModification(cookie, "1;0;" + std::to_string(second + 1) + ";" + "0%2F0;");
  EXPECT_NEAR(edits.extent(cookie).length, before.length + 1, 0.1);
  ASSERT_TRUE(EditActions::save(cookie));
  ASSERT_TRUE(edits.close(cookie));
  EXPECT_NEAR(readEditSummary(bytesOf(fileOf(cookie)))->extent.length, before.length + 1, 0.1);
  EXPECT_EQ(edits.loaded(cookie), nullptr);
  static_cast<void>(edits.list());
  EXPECT_NEAR(edits.extent(cookie).length, before.length + 1, 0.1);
}

TEST(OtioClipsTrim, StoresFramesAsTheKindOfNumberThatTheyWere) {
  JsonValue whole = json(timeline("1"));
  ASSERT_TRUE(trimClip(whole, "0/0", {36.0 / 24, 48.0 / 24}));
  EXPECT_NE(writeJson(whole).find(R"("value":36})"), std::string::npos) << writeJson(whole);
  JsonValue real = json(timeline("1.0"));
  ASSERT_TRUE(trimClip(real, "0/0", {36.0 / 24, 48.0 / 24}));
  EXPECT_NE(writeJson(real).find(R"("value":36.0})"), std::string::npos) << writeJson(real);
}

TEST(OtioClipsTrim, RefusesRangesThatAreNone) {
  JsonValue json0 = json(timeline("1"));
  const JsonValue before = json0;
  for (const ClipRange range : {ClipRange{1, 1}, ClipRange{2, 1}, ClipRange{std::nan(""), 1},
                                ClipRange{0, INFINITY}, ClipRange{-1e308, 1e308}}) {
    EXPECT_FALSE(trimClip(json0, "0/0", range)) << range.start << " " << range.end;
  }
  for (const char* path : {"", "0", "0/", "/0", "0/2", "0/0/0", "0/-1", "0/1x", "x"}) {
    EXPECT_FALSE(trimClip(json0, path, {0, 1})) << path;
  }
  EXPECT_FALSE(trimClip(json0, "0/1", {0, 1}));
  EXPECT_TRUE(json0 == before);
}

TEST(OtioClipsNaming, TakesANameOrAPath) {
  const JsonValue known = json(timeline("1"));
  EXPECT_EQ(*findClip(known, "A"), "0/0");
  EXPECT_EQ(*findClip(known, "0/1"), "0/1");
  EXPECT_FALSE(findClip(known, "C"));
  EXPECT_FALSE(findClip(known, ""));
}

TEST_F(DocumentStation, AnImportOfWhatIsNoEditLeavesNothingBehind) {
  const std::string whole = bytesOf(std::string(KV_SAMPLES) + "/simple_cut.otio");
  for (const std::string& bytes : {std::string(), whole.substr(0, whole.size() / 2),
                                   std::string(R"({"OTIO_SCHEMA": "Clip.1"})")}) {
    write(folder / "in.otio", bytes);
    EXPECT_FALSE(EditActions::import(folder / "in.otio"));
  }
  EXPECT_FALSE(EditActions::import(folder / "missing.otio"));
  const auto ofFolder = EditActions::import(folder.path());
  ASSERT_FALSE(ofFolder);
  EXPECT_NE(ofFolder.error().message.find("Name an OpenTimelineIO file"), std::string::npos)
      << ofFolder.error().message;
  EXPECT_EQ(edits.list().elements().size(), 0U);
  EXPECT_EQ(listener.heard, Notes{});
}

}  // namespace
