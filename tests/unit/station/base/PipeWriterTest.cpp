#include "station/base/PipeWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <string>
#include <thread>

#include "tests/fakes/ScratchFolder.h"

using namespace korvel;

namespace {

std::string readAll(int descriptor) {
  std::string text;
  std::array<char, 65536> block;
  for (ssize_t count; (count = ::read(descriptor, block.data(), block.size())) > 0;) {
    text.append(block.data(), static_cast<std::size_t>(count));
  }
  return text;
}

class PipeWriterTest : public testing::Test {
 protected:
  PipeWriterTest() {
    ::signal(SIGPIPE, SIG_IGN);
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) ADD_FAILURE() << errno;
  }

  std::array<int, 2> ends{-1, -1};
  std::atomic<int> problem{0};
  PipeWriter::Failed failed = [this](int number) { problem = number; };
};

TEST_F(PipeWriterTest, WhatIsWrittenArrivesWholeAndInOrder) {
  std::string expected;
  std::string read;
  std::thread reader([&] { read = readAll(ends[0]); });
  {
    PipeWriter writer(ends[1], {}, failed);
    for (int i = 0; i < 20'000; ++i) {
      const std::string line = "line " + std::to_string(i) + "\n";
      expected += line;
      EXPECT_TRUE(writer.write(line));
    }
    EXPECT_EQ(writer.finish(), 0u);
  }
  reader.join();
  EXPECT_EQ(read, expected);
}

TEST_F(PipeWriterTest, AReaderThatStopsReadingHoldsNobodyUp) {
  const std::string line(1u << 20, 'x');
  PipeWriter writer(ends[1], {}, failed);
  std::size_t taken = 0;
  while (taken < 1000 && writer.write(line)) ++taken;
  EXPECT_GE(taken, PipeWriter::kMaxWaiting >> 20);
  EXPECT_LT(taken, 1000u);
  EXPECT_GT(writer.finish(), 0u);
  EXPECT_EQ(problem, 0);
  ::close(ends[0]);
}

TEST_F(PipeWriterTest, AReaderThatIsGoneIsToldAndNothingWaitsForIt) {
  ::close(ends[0]);
  PipeWriter writer(ends[1], {}, failed);
  EXPECT_TRUE(writer.write("line\n"));
  EXPECT_EQ(writer.finish(), 0u);
  EXPECT_EQ(problem, EPIPE);
}

TEST_F(PipeWriterTest, ANamedPipeIsWrittenOnceSomebodyReadsIt) {
  const ScratchFolder folder;
  const std::string path = folder / "pipe";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  PipeWriter writer(-1, path, failed);
  EXPECT_TRUE(writer.write("early\n"));
  const int reader = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::array<char, 6> early{};
  EXPECT_EQ(::read(reader, early.data(), early.size()), 6);
  EXPECT_EQ(writer.finish(), 0u);
  ::close(reader);
}

TEST_F(PipeWriterTest, ANamedPipeThatNobodyReadsDoesNotKeepTheProgram) {
  const ScratchFolder folder;
  const std::string path = folder / "pipe";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  PipeWriter writer(-1, path, failed);
  EXPECT_TRUE(writer.write("line\n"));
  EXPECT_EQ(writer.finish(), 5u);
}

}  // namespace
