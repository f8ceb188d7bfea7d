#include "app/HumanText.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <array>

namespace {

/// Texts on a pipe that is read when the test wants it.
class HumanTextTest : public testing::Test {
 protected:
  HumanTextTest() {
    ::signal(SIGPIPE, SIG_IGN);
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) ADD_FAILURE();
    stream = ::fdopen(ends[1], "w");
  }
  ~HumanTextTest() override {
    std::fclose(stream);
    ::close(ends[0]);
  }

  /// What can be read until this has come.
  std::string readUntil(const std::string& last) const {
    std::string text;
    std::array<char, 65536> block;
    while (text.find(last) == text.npos) {
      const ssize_t count = ::read(ends[0], block.data(), block.size());
      if (count <= 0) break;
      text.append(block.data(), static_cast<std::size_t>(count));
    }
    return text;
  }

  const std::string large = std::string(1u << 20, 'x');
  std::array<int, 2> ends{-1, -1};
  std::FILE* stream = nullptr;
};

TEST_F(HumanTextTest, AReaderThatStopsReadingHoldsNobodyUpAndIsToldWhatIsMissing) {
  HumanText text(stream, stream);
  for (std::size_t i = 0; i < (PipeWriter::kMaxWaiting >> 20) + 10; ++i) text.answer(large);
  const std::string begin = readUntil("x\n");
  EXPECT_EQ(begin.find("missing"), begin.npos);
  for (int i = 0; i < 60; ++i) readUntil("x\n");
  text.answer("last");
  EXPECT_NE(readUntil("last\n").find("texts are missing here"), std::string::npos);
}

TEST_F(HumanTextTest, TwoStreamsOfOneFileKeepTheirOrder) {
  std::FILE* const other = ::fdopen(::dup(ends[1]), "w");
  {
    HumanText text(stream, other);
    for (int i = 0; i < 100; ++i) {
      text.answer("answer " + std::to_string(i));
      text.problem("problem " + std::to_string(i));
    }
    const std::string read = readUntil("problem 99\n");
    EXPECT_EQ(read.find("answer 0\nproblem 0\nanswer 1\n"), 0u) << read;
  }
  std::fclose(other);
}

TEST_F(HumanTextTest, WhatIsHeldBackForAPromptIsBounded) {
  HumanText text(stream, stream);
  int woken = 0;
  text.hold([&woken] { ++woken; });
  for (int i = 0; i < 8; ++i) text.answer(large.substr(0, large.size() / 4));
  EXPECT_EQ(woken, 8);
  text.release();
  EXPECT_NE(readUntil("missing here").find("4 texts are missing here"), std::string::npos);
}

TEST_F(HumanTextTest, WhatNobodyReadsDoesNotKeepTheProgram) {
  HumanText text(stream, stream);
  text.answer(large);
}

}  // namespace
