#include "station/base/Log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <iterator>

#include "tests/fakes/ScratchFolder.h"

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

TEST_F(RotatingFileTest, WhatIsNoRegularFileIsNotRenamed) {
  RotatingFile file(RotatingFile::open("/dev/null", O_APPEND), "/dev/null", 1);
  EXPECT_TRUE(file.write("one\n"));
  EXPECT_TRUE(file.write("two\n"));
  EXPECT_TRUE(std::filesystem::is_character_file("/dev/null"));
}

}  // namespace
