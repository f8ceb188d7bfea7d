#include "station/edit/Timecode.h"

#include <gtest/gtest.h>

#include <limits>

using namespace korvel;

namespace {

constexpr double kFilm = 24000.0 / 1001;
constexpr double kVideo = 30000.0 / 1001;
constexpr double kDouble = 60000.0 / 1001;

struct KnownTimecode {
  double rate;
  long frame;
  const char* text;
};

constexpr KnownTimecode kKnown[] = {
    {24, 0, "00:00:00:00"},           {24, 23, "00:00:00:23"},
    {24, 24, "00:00:01:00"},          {24, 86399, "00:59:59:23"},
    {24, 86400, "01:00:00:00"},       {24, 8640000, "100:00:00:00"},
    {24, -36, "-00:00:01:12"},        {kFilm, 86400, "01:00:00:00"},
    {25, 1500, "00:01:00:00"},        {30, 1800, "00:01:00:00"},
    {50, 2999, "00:00:59:49"},        {120, 119, "00:00:00:119"},
    {kVideo, 0, "00:00:00;00"},       {kVideo, 1799, "00:00:59;29"},
    {kVideo, 1800, "00:01:00;02"},    {kVideo, 3597, "00:01:59;29"},
    {kVideo, 3598, "00:02:00;02"},    {kVideo, 17981, "00:09:59;29"},
    {kVideo, 17982, "00:10:00;00"},   {kVideo, 19781, "00:10:59;29"},
    {kVideo, 19782, "00:11:00;02"},   {kVideo, 107891, "00:59:59;29"},
    {kVideo, 107892, "01:00:00;00"},  {kVideo, 2589407, "23:59:59;29"},
    {kVideo, 2589408, "24:00:00;00"}, {29.97, 107892, "01:00:00;00"},
    {kDouble, 3599, "00:00:59;59"},   {kDouble, 3600, "00:01:00;04"},
    {kDouble, 35963, "00:09:59;59"},  {kDouble, 35964, "00:10:00;00"},
    {kDouble, 215784, "01:00:00;00"}, {59.94, 5178816, "24:00:00;00"},
};

TEST(TimecodeTest, KnownFramesHaveTheirTimecodesAndBack) {
  for (const KnownTimecode& each : kKnown) {
    const Timecode timecode(each.rate);
    EXPECT_EQ(timecode.text(each.frame), each.text) << each.rate;
    EXPECT_EQ(timecode.textAt(timecode.secondsAt(each.frame)), each.text) << each.rate;
    if (each.frame < 0) continue;
    const auto read = timecode.read(each.text);
    ASSERT_TRUE(read) << each.text << ": " << read.error().message;
    EXPECT_EQ(timecode.frameAt(*read), each.frame) << each.text;
  }
}

TEST(TimecodeTest, EveryFrameOfTwentyMinutesIsReadBack) {
  for (const double rate : {kVideo, kDouble, kFilm}) {
    const Timecode timecode(rate);
    std::string before;
    for (long frame = 0; frame < timecode.firstFrameOf(1200); ++frame) {
      const std::string text = timecode.text(frame);
      ASSERT_GT(text, before);
      ASSERT_EQ(timecode.frameAt(*timecode.read(text)), frame) << text;
      before = text;
    }
  }
}

TEST(TimecodeTest, ASecondBeginsWithItsFirstFrame) {
  const Timecode video(kVideo);
  EXPECT_EQ(video.firstFrameOf(59), 1770);
  EXPECT_EQ(video.firstFrameOf(60), 1800);
  EXPECT_EQ(video.text(video.firstFrameOf(61)), "00:01:01;00");
  EXPECT_EQ(video.firstFrameOf(600), 17982);
  EXPECT_EQ(Timecode(25).firstFrameOf(60), 1500);
}

TEST(TimecodeTest, OnlyRatesThatFallBehindTheClockAreDropFrame) {
  for (const double rate : {24.0, kFilm, 25.0, 29.9, 30.0, 48.0, 50.0, 60.0, 0.0}) {
    EXPECT_FALSE(Timecode(rate).isDropFrame()) << rate;
  }
  for (const double rate : {29.97, kVideo, 59.94, kDouble}) {
    EXPECT_TRUE(Timecode(rate).isDropFrame()) << rate;
  }
}

TEST(TimecodeTest, WhatAPersonTypesIsRead) {
  struct Typed {
    const char* text;
    double frames;
  };
  constexpr Typed kTyped[] = {
      {"1:12", 36},   {"1;12", 36},    {"0:01:12", 36},       {"0.1.12", 36}, {"00:00:01.12", 36},
      {" 1:12 ", 36}, {"90:00", 2160}, {"100:00:00", 144000}, {"36", 36},     {"36f", 36},
      {"36F", 36},    {"0", 0},        {"1.5s", 36},          {"1.5", 36},    {"2s", 48},
      {"2S", 48},     {"0.1s", 2.4},   {"+12f", 112},         {"-12f", 88},   {"+1:00", 124},
      {"-1s", 76},    {"+0", 100},
  };
  const Timecode timecode(24);
  for (const Typed& each : kTyped) {
    const auto read = timecode.read(each.text, 100.0 / 24);
    ASSERT_TRUE(read) << each.text << ": " << read.error().message;
    EXPECT_NEAR(*read * 24, each.frames, 1e-9) << each.text;
  }
}

TEST(TimecodeTest, WhatIsNoTimeIsRefusedInWords) {
  struct Refused {
    double rate;
    const char* text;
    const char* why;
  };
  constexpr Refused kRefused[] = {
      {24, "", "\"\" is no time; write a timecode (\"1:12\"), frames (\"36\") or seconds"},
      {24, "abc", "is no time"},
      {24, "1:", "is no time"},
      {24, ":12", "is no time"},
      {24, "1:2:3:4:5", "is no time"},
      {24, "1:-2", "is no time"},
      {24, "1e3", "is no time"},
      {24, "nan", "is no time"},
      {24, "infs", "is no time"},
      {24, "1f2f", "is no time"},
      {24, "1:12s", "is no time"},
      {24, "s", "is no time"},
      {24, "+", "is no time"},
      {24, "--1", "is no time"},
      {24, "9999999999999999", "is no time"},
      {24, "1.5f", "is no whole number of frames"},
      {24, "1:24", "has frame 24, but a second has the frames 0 to 23."},
      {24, "1:60:00", "has 60 where 59 is the most."},
      {24, "+12f", "there is no time here to count it from"},
      {kVideo, "00:01:00;00", "is left out in drop-frame; this minute begins with 00:01:00;02."},
      {kVideo, "00:01:00:01", "is left out in drop-frame"},
      {kDouble, "00:01:00;03", "this minute begins with 00:01:00;04."},
      {0, "36", "cannot be counted without a frame rate; write seconds"},
      {0, "1:12", "cannot be counted without a frame rate"},
  };
  for (const Refused& each : kRefused) {
    const auto read = Timecode(each.rate).read(each.text);
    ASSERT_FALSE(read) << each.text;
    EXPECT_EQ(read.error().code, ErrorCode::eUsage);
    EXPECT_NE(read.error().message.find(each.why), std::string::npos) << read.error().message;
  }
}

TEST(TimecodeTest, WhatAStationPrintsItAlsoReads) {
  EXPECT_EQ(*Timecode(24).read("0.08333333333333333s"), 0.08333333333333333);
  EXPECT_EQ(*Timecode(24).read("0.000012345678901234567"), 0.000012345678901234567);
  EXPECT_EQ(*Timecode(48000).read("1728000012f"), 1728000012.0 / 48000);
}

TEST(TimecodeTest, TimesBeyondAllBoundsAndWithoutARateAreShownAllTheSame) {
  using Limits = std::numeric_limits<double>;
  for (const double seconds : {Limits::infinity(), -Limits::max(), Limits::quiet_NaN(), 1e300}) {
    for (const double rate : {24.0, kVideo, 1e300, Limits::quiet_NaN(), -1.0}) {
      EXPECT_FALSE(Timecode(rate).textAt(seconds).empty());
    }
  }
  EXPECT_EQ(Timecode(24).frameAt(Limits::quiet_NaN()), 0);
  EXPECT_EQ(Timecode(24).frameAt(Limits::infinity()), 0);
  EXPECT_EQ(Timecode(0).textAt(1.5), "1.5 s");
  EXPECT_EQ(*Timecode(0).read("1.5"), 1.5);
}

}  // namespace
