#include "station/base/PipeWriter.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/support/BecomesTrue.h"

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

/// Keeps the blocks that a QueuedWriter hands out, and lets none through while it is held.
class HeldBlocks {
 public:
  void take(const std::string& block, std::size_t texts) {
    const std::lock_guard passing(gate_);
    all += block;
    count += texts;
    ++blocks;
    largest = std::max(largest, block.size());
  }

  [[nodiscard]] std::unique_lock<std::mutex> held() { return std::unique_lock(gate_); }

  QueuedWriter::Write write() {
    return [this](const std::string& block, std::size_t texts) { take(block, texts); };
  }

  std::string all;
  std::size_t count = 0;
  std::size_t blocks = 0;
  std::size_t largest = 0;

 private:
  std::mutex gate_;
};

TEST(QueuedWriterTest, TextsArriveInOrderAndSeveralAtOnce) {
  constexpr std::size_t kTexts = 20'000;
  HeldBlocks arrived;
  std::string expected;
  {
    QueuedWriter writer(arrived.write());
    for (std::size_t i = 0; i < kTexts; ++i) {
      const std::string line = "line " + std::to_string(i) + "\n";
      expected += line;
      writer.write(line);
    }
  }
  EXPECT_EQ(arrived.all, expected);
  EXPECT_EQ(arrived.count, kTexts);
  EXPECT_LT(arrived.blocks, kTexts / 2);
}

TEST(QueuedWriterTest, TextsOfAllThreadsArriveOnce) {
  HeldBlocks arrived;
  {
    QueuedWriter writer(arrived.write());
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
      threads.emplace_back([&writer] {
        for (int text = 0; text < 5000; ++text) writer.write("12345678\n");
      });
    }
    for (std::thread& each : threads) each.join();
  }
  EXPECT_EQ(arrived.count, 20'000u);
  EXPECT_EQ(arrived.all.size(), 180'000u);
}

TEST(QueuedWriterTest, WhoWritesWaitsWhereTheQueueIsFullAndNothingIsLost) {
  const std::string text(64u << 10, 'x');
  constexpr std::size_t kTexts = 256;
  HeldBlocks arrived;
  std::atomic<std::size_t> written{0};
  QueuedWriter writer(arrived.write());
  auto held = arrived.held();
  std::thread writing([&] {
    for (; written < kTexts; ++written) writer.write(text);
  });
  // One block is held, another one full.
  EXPECT_TRUE(becomesTrue([&] { return written * text.size() >= QueuedWriter::kMaxWaiting; }));
  EXPECT_TRUE(writer.hasWaiting());
  held.unlock();
  writing.join();
  EXPECT_TRUE(writer.flush());
  EXPECT_FALSE(writer.hasWaiting());
  EXPECT_EQ(arrived.count, kTexts);
  EXPECT_LE(arrived.largest, QueuedWriter::kMaxWaiting + text.size());
}

TEST(QueuedWriterTest, WhatWasQueuedIsWrittenOnceItIsFlushed) {
  HeldBlocks arrived;
  QueuedWriter writer(arrived.write());
  for (int i = 0; i < 100; ++i) {
    writer.write("a");
    writer.write("b");
    EXPECT_TRUE(writer.flush());
    EXPECT_EQ(arrived.count, 2u * static_cast<std::size_t>(i + 1));
  }
}

TEST(QueuedWriterTest, AFlushEndsThoughTheWritingDoesNot) {
  HeldBlocks arrived;
  QueuedWriter writer(arrived.write());
  auto held = arrived.held();
  writer.write("late");
  EXPECT_FALSE(writer.flush());
  held.unlock();
  EXPECT_TRUE(writer.flush());
  EXPECT_EQ(arrived.all, "late");
}

}  // namespace
