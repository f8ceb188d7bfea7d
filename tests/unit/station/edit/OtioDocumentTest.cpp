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
