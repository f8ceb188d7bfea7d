#include "app/base/TextOutput.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <string>

using namespace korvel;

namespace {

/// Texts on a pipe that is read when the test wants it.
class TextOutputTest : public testing::Test {
 protected:
  TextOutputTest() {
    ::signal(SIGPIPE, SIG_IGN);
    if (::pipe2(ends.data(), O_CLOEXEC) != 0) ADD_FAILURE();
    stream = ::fdopen(ends[1], "w");
  }
  ~TextOutputTest() override {
    std::fclose(stream);
    ::close(ends[0]);
  }

  /// What can be read until it ends with this.
  std::string readUntil(const std::string& last) const {
    std::string text;
    while (!endsWith(text, last)) {
      const std::size_t known = text.size();
      text.resize(known + 65536);
      const ssize_t count = ::read(ends[0], &text[known], 65536);
      text.resize(known + static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
      if (count <= 0) break;
    }
    return text;
  }

  static bool endsWith(const std::string& text, const std::string& last) {
    return text.size() >= last.size() &&
           text.compare(text.size() - last.size(), last.size(), last) == 0;
  }

  void read(std::size_t size) const {
    std::string text(size, '\0');
    std::size_t done = 0;
    for (ssize_t count = 1; done < size && count > 0; done += static_cast<std::size_t>(count)) {
      count = std::max<ssize_t>(::read(ends[0], &text[done], size - done), 0);
    }
    EXPECT_EQ(done, size);
    EXPECT_EQ(text.find("missing"), text.npos);
  }

  const std::string large = std::string(1u << 20, 'x');
  std::array<int, 2> ends{-1, -1};
  std::FILE* stream = nullptr;
};

TEST_F(TextOutputTest, AReaderThatStopsReadingHoldsNobodyUpAndIsToldWhatIsMissing) {
  TextOutput text(stream, stream);
  text.answer(large);
  read(1);  // now the writing has begun, with this text alone
  const std::size_t room = PipeWriter::kMaxWaiting / (large.size() + 1);
  for (std::size_t i = 0; i < room + 10; ++i) text.answer(large);
  read(large.size() + 1);  // and goes on with all that waited, which makes room
  text.answer("last");
  const std::string rest = readUntil("last\n");
  EXPECT_TRUE(endsWith(rest, "x\n10 texts are missing here, since nobody read them.\nlast\n"));
  EXPECT_EQ(rest.find('1'), room * (large.size() + 1) - 1);
}

TEST_F(TextOutputTest, TwoStreamsOfOneFileKeepTheirOrder) {
  std::FILE* const other = ::fdopen(::dup(ends[1]), "w");
  {
    TextOutput text(stream, other);
    for (int i = 0; i < 100; ++i) {
      text.answer("answer " + std::to_string(i));
      text.problem("problem " + std::to_string(i));
    }
    const std::string read = readUntil("problem 99\n");
    EXPECT_EQ(read.find("answer 0\nproblem 0\nanswer 1\n"), 0u) << read;
  }
  std::fclose(other);
}

TEST_F(TextOutputTest, WhatIsHeldBackForAPromptIsBounded) {
  TextOutput text(stream, stream);
  int woken = 0;
  text.hold([&woken] { ++woken; });
  for (int i = 0; i < 8; ++i) text.answer(large.substr(0, large.size() / 4));
  EXPECT_EQ(woken, 8);
  text.release();
  EXPECT_NE(readUntil("nobody read them.\n").find("4 texts are missing here"), std::string::npos);
}

TEST_F(TextOutputTest, WhatNobodyReadsDoesNotKeepTheProgram) {
  TextOutput text(stream, stream);
  text.answer(large);
}

/// What the console shows of an event.
std::string shownOf(const std::string& name, const std::vector<JsonValue::Member>& keys) {
  std::FILE* const file = std::tmpfile();
  {
    TextOutput output(file, file);
    output.take({name, JsonValue::object(keys), {}, {}});
  }
  std::rewind(file);
  std::string text(1000, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file));
  std::fclose(file);
  return text;
}

TEST(TextOutput, ANotificationNamesItsSender) {
  EXPECT_EQ(shownOf("notification", {{"text", "lunch?"}, {"source", "ANNA"}}),
            "Notification from ANNA: lunch?\n");
  EXPECT_EQ(shownOf("notification", {{"text", "lunch?"}}), "Notification: lunch?\n");
}

TEST(TextOutput, APersonIsNotShownWhatTheLogSaysOfEachMessage) {
  std::FILE* const file = std::tmpfile();
  {
    TextOutput output(file, file);
    output.hideMessageBlocks();
    for (const char* const line :
         {"Sent :", "{", "   Project : P1", "Disk full.", "   Type    : EditSaved", "}", "{",
          "Received :", "{", "   Source  : ANNA", "}", "msg for ANNArom BENs, (hi)", "Sentence."}) {
      output.take({"log", JsonValue::object({{"to", "console"}, {"text", line}}), {}, {}});
    }
  }
  std::rewind(file);
  std::string text(1000, '\0');
  text.resize(std::fread(text.data(), 1, text.size(), file));
  std::fclose(file);
  EXPECT_EQ(text, "Disk full.\n{\nSentence.\n");
}

TEST(TextOutput, WithoutThatWishTheyAreShown) {
  EXPECT_EQ(shownOf("log", {{"to", "console"}, {"text", "Sent :"}}), "Sent :\n");
}

TEST(TextOutput, ASenderWhomNobodyVouchesForIsMarked) {
  EXPECT_EQ(shownOf("notification", {{"text", "lunch?"}, {"source", "ANNA"}, {"unverified", true}}),
            "Notification from ANNA (unverified): lunch?\n");
}

TEST(TextOutput, WordsThatWereCutSaySo) {
  EXPECT_EQ(
      shownOf("notification", {{"text_hex", "323020e282"}, {"source", "ANNA"}, {"cut", true}}),
      "Notification from ANNA: 20 \xEF\xBF\xBD\xEF\xBF\xBD (cut here)\n");
}

TEST(TextOutput, ALineEndInWordsForgesNoLineOfTheStation) {
  EXPECT_EQ(shownOf("notification", {{"text", "a\nNotification: b\x1B[2J"}}),
            "Notification: a\n    Notification: b?[2J\n");
  EXPECT_EQ(shownOf("network", {{"problem", "a\nb"}}), "Network: a\n    b\n");
}

}  // namespace
