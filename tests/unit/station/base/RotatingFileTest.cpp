#include "station/base/Log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "host/base/Log.h"
#include "station/base/StationSettings.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

class RotatingFileTest : public testing::Test {
 protected:
  [[nodiscard]] std::string content(const std::string& ending = {}) const {
    std::ifstream in(path_ + ending);
    return {std::istreambuf_iterator<char>(in), {}};
  }

  ScratchFolder folder_;
  std::string path_ = folder_ / "log";
};

TEST_F(RotatingFileTest, AFullFileMakesRoomForANewOneAndTheOldestGoes) {
  RotatingFile file(RotatingFile::open(path_, O_APPEND), path_, 10);
  for (const char* const line : {"one 1234\n", "two 1234\n", "three 12\n", "four 123\n", "five\n",
                                 "six 1234\n", "seven\n"}) {
    EXPECT_TRUE(file.write(line));
  }
  EXPECT_EQ(content(), "seven\n");
  EXPECT_EQ(content(".1"), "six 1234\n");
  EXPECT_EQ(content(".4"), "three 12\n");
  EXPECT_FALSE(std::filesystem::exists(path_ + ".5"));
  struct stat state {};
  ASSERT_EQ(::stat(path_.c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777, 0600u);
}

TEST_F(RotatingFileTest, WhatWasThereBeforeCountsAndALineIsNeverParted) {
  std::ofstream(path_) << "12345678\n";
  RotatingFile file(RotatingFile::open(path_, O_APPEND), path_, 10);
  EXPECT_TRUE(file.write("ab"));
  EXPECT_EQ(content(".1"), "12345678\n");
  EXPECT_TRUE(file.write("cdefghijklmnop\n"));
  EXPECT_EQ(content(), "abcdefghijklmnop\n");
}

TEST_F(RotatingFileTest, AnEmptyFileTakesALineLargerThanTheLimit) {
  RotatingFile file(RotatingFile::open(path_, O_TRUNC), path_, 4);
  EXPECT_TRUE(file.write("123456\n"));
  EXPECT_EQ(content(), "123456\n");
  EXPECT_FALSE(std::filesystem::exists(path_ + ".1"));
}

TEST_F(RotatingFileTest, ALogStopsWhereTheDiskIsNearlyFullAndGoesOnWhenThereIsRoom) {
  static double free = 0.04;
  RotatingFile::setFreePart([](int) { return free; });
  StationSettings settings;
  settings.logFile = path_;
  installSettings(settings);
  RecordedEvents events;
  for (int line = 0; line < 3; ++line) Log("lost %d\n", line);
  flushLog();
  EXPECT_EQ(content().find("lost"), std::string::npos) << content();
  EXPECT_NE(content().find("The log stops: less than 5 % of the file system is free"),
            std::string::npos);
  EXPECT_TRUE(events.loggedThat(path_ + " stops: less than 5 %"));
  free = 0.05;
  EXPECT_TRUE(becomesTrue([this] {
    Log("more\n");
    return content().ends_with("more\n");
  }));
  flushLog();
  EXPECT_NE(content().find(" texts are missing here, for want of room."), std::string::npos);
  RotatingFile::setFreePart(nullptr);
}

TEST_F(RotatingFileTest, WhatIsNoFileAlwaysHasRoom) {
  RotatingFile::setFreePart([](int) { return 0.0; });
  RotatingFile device(RotatingFile::open("/dev/null", O_APPEND), "/dev/null");
  RotatingFile file(RotatingFile::open(path_, O_APPEND), path_);
  EXPECT_TRUE(device.hasRoom());
  EXPECT_FALSE(file.hasRoom());
  RotatingFile::setFreePart(nullptr);
}

TEST(LineBudget, ASourceIsCountedBeyondItsBudgetAndWrittenAgainWhenItIsQuiet) {
  using Answer = LineBudget::Answer;
  LineBudget budget;
  const LineBudget::Time now{};
  for (int line = 0; line < LineBudget::kAtOnce; ++line) {
    ASSERT_EQ(budget.take("10.0.0.7:1", now), Answer::eWrite) << line;
  }
  EXPECT_EQ(budget.take("10.0.0.7:1", now), Answer::eLastLine);
  EXPECT_EQ(budget.take("10.0.0.7:1", now), Answer::eCount);
  EXPECT_EQ(budget.take("10.0.0.8:1", now), Answer::eWrite);
  EXPECT_TRUE(budget.due(now + std::chrono::seconds(4)).empty());
  const auto told = budget.due(now + std::chrono::seconds(5));
  ASSERT_EQ(told.size(), 1u);
  EXPECT_EQ(told[0], "2 more like this, of messages from 10.0.0.7:1, were left out.\n");
  EXPECT_FALSE(budget.hasLeftOut());
  EXPECT_EQ(budget.take("10.0.0.7:1", now + std::chrono::seconds(5)), Answer::eWrite);
}

TEST(LineBudget, InventedSourcesShareOneBudget) {
  LineBudget budget;
  const LineBudget::Time now{};
  int written = 0;
  for (int line = 0; line < 20'000; ++line) {
    const auto answer = budget.take("10.0.0.7:" + std::to_string(line), now);
    written += answer == LineBudget::Answer::eWrite ? 1 : 0;
  }
  EXPECT_LT(written, LineBudget::kAtOnce + 2 * LineBudget::kMostSources);
}

TEST_F(RotatingFileTest, AStrangerFillsOnlyHisBudgetOfTheLog) {
  StationSettings settings;
  settings.logFile = path_;
  installSettings(settings);
  const std::string stranger = "10.0.0.7:51234";
  for (int line = 0; line < 2205; ++line) {
    const LogSourceScope source(stranger);
    Log("forged\n");
  }
  EXPECT_TRUE(hasLeftOutLines());
  Log("own\n");
  logLeftOutLines(LeftOutLines::eAll);
  EXPECT_FALSE(hasLeftOutLines());
  flushLog();
  const std::string text = content();
  std::size_t forged = 0;
  for (auto at = text.find("forged"); at != text.npos; at = text.find("forged", at + 1)) ++forged;
  EXPECT_GE(forged, 1000u);
  EXPECT_LT(forged, 1500u);
  EXPECT_NE(text.find("Messages from 10.0.0.7:51234 fill the log"), text.npos);
  EXPECT_NE(text.find("own\n"), text.npos);
  EXPECT_NE(text.find(std::to_string(2205 - forged) +
                      " more like this, of messages from 10.0.0.7:51234, were left out.\n"),
            text.npos);
}

TEST_F(RotatingFileTest, WhatIsNoRegularFileIsNotRenamed) {
  RotatingFile file(RotatingFile::open("/dev/null", O_APPEND), "/dev/null", 1);
  EXPECT_TRUE(file.write("one\n"));
  EXPECT_TRUE(file.write("two\n"));
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

}  // namespace
