#include "host/base/Log.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <unistd.h>

#include <climits>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <limits>
#include <regex>
#include <string>
#include <thread>
#include <vector>

#include "station/base/Log.h"
#include "station/base/StationSettings.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

std::string contentOf(const std::string& path) {
  flushLog();
  std::ifstream in(path);
  return {std::istreambuf_iterator<char>(in), {}};
}

void logTo(const std::string& path) {
  StationSettings settings;
  settings.logFile = path;
  installSettings(settings);
}

/// A reader of the log's pipe that has read this line, which is written now.
int readerOf(const std::string& path, const std::string& line) {
  Log("%s\n", line);
  const int reader = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  std::string text;
  for (char byte = 0; !text.ends_with(line + "\n") && ::read(reader, &byte, 1) == 1;) text += byte;
  EXPECT_TRUE(text.ends_with(line + "\n")) << text;
  return reader;
}

}  // namespace

TEST(LogTest, AConversionThatFitsPrintsAsPrintfDoes) {
  struct Row {
    const char* format;
    LogArgument argument;
    std::string text;
  };
  for (const Row& row : std::vector<Row>{{"<%s>", "abc", "<abc>"},
                                         {"<%5s>", "abc", "<  abc>"},
                                         {"<%-5s>", "abc", "<abc  >"},
                                         {"<%.2s>", "abc", "<ab>"},
                                         {"<%.2s>", "a\xC3\xA9", "<a>"},
                                         {"<%d>", -7, "<-7>"},
                                         {"<%+05d>", 42, "<+0042>"},
                                         {"<%i>", LLONG_MIN, "<-9223372036854775808>"},
                                         {"<%lld>", 7LL, "<7>"},
                                         {"<%d>", 7U, "<7>"},
                                         {"<%lu>", ULONG_MAX, "<18446744073709551615>"},
                                         {"<%x>", 255, "<ff>"},
                                         {"<%#X>", 255U, "<0XFF>"},
                                         {"<%o>", 8, "<10>"},
                                         {"<%c>", 'x', "<x>"},
                                         {"<%3c>", 27, "<\\x1B>"},
                                         {"<%f>", 1.5, "<1.500000>"},
                                         {"<% .1f>", 1.25F, "< 1.2>"},
                                         {"<%e>", 1.0, "<1.000000e+00>"},
                                         {"<%g>", 0.5, "<0.5>"},
                                         {"<%zu>", std::size_t(3), "<3>"},
                                         {"100%%", "unused", "100%"}}) {
    EXPECT_EQ(formatLogLine(row.format, {row.argument}), row.text) << row.format;
  }
}

TEST(LogTest, AConversionThatDoesNotFitPrintsTheArgumentsText) {
  struct Row {
    const char* format;
    LogArgument argument;
    std::string text;
  };
  for (const Row& row : std::vector<Row>{{"<%d>", "abc", "<abc>"},
                                         {"<%n>", "abc", "<abc>"},
                                         {"<%p>", 5, "<5>"},
                                         {"<%f>", 5, "<5>"},
                                         {"<%d>", 1.5, "<1.5>"},
                                         {"<%s>", 5, "<5>"},
                                         {"<%s>", 0.25, "<0.25>"},
                                         {"<%c>", 300, "<300>"},
                                         {"<%c>", "abc", "<abc>"},
                                         {"<%y>", "abc", "<abc>"},
                                         {"<% f>", "abc", "<abc>"},
                                         {"<%*d>", 5, "<5d>"},
                                         {"<%", "abc", "<abc"},
                                         {"<%5", "abc", "<abc"},
                                         {"<%99999999999999999999d>", "abc", "<abc>"}}) {
    EXPECT_EQ(formatLogLine(row.format, {row.argument}), row.text) << row.format;
  }
}

TEST(LogTest, TheLineAboutAMessagesSenderIsMadeAsRequired) {
  EXPECT_EQ(formatLogLine("msg for % from %ss, (%s)\n", {"A", "B", "C"}), "msg for Arom Bs, (C)\n");
}

TEST(LogTest, ConversionsAndArgumentsThatHaveNoPartnerPrintNothing) {
  EXPECT_EQ(formatLogLine("%s and %s|", {"a"}), "a and |");
  EXPECT_EQ(formatLogLine("text", {"a", 5}), "text");
  EXPECT_EQ(formatLogLine(nullptr, {"a"}), "");
  EXPECT_EQ(formatLogLine("%s", {static_cast<const char*>(nullptr)}), "(null)");
}

TEST(LogTest, WidthsAreBounded) {
  EXPECT_EQ(formatLogLine("%999999999s", {"a"}).size(), 4096U);
  EXPECT_LT(formatLogLine("%.999999999f", {1.0}).size(), 5000U);
  EXPECT_GT(formatLogLine("%f", {std::numeric_limits<double>::max()}).size(), 300U);
}

TEST(LogTest, NothingOfAnArgumentActsOnATerminalOrMakesALine) {
  const std::string forged =
      "a\nb\r\t\x1B[2J\x7F\xC2\x9B"
      "31m\xC3\xA9";
  EXPECT_EQ(formatLogLine("(%s)\n", {forged}),
            "(a\\nb\\r\\t\\x1B[2J\\x7F\\x9B"
            "31m\xC3\xA9)\n");
  EXPECT_EQ(formatLogLine("%d|%.3s", {"a\n",
                                      "\x1B"
                                      "bcd"}),
            "a\\n|\\x1");
}

TEST(LogTest, BytesThatAreNoTextAreMarked) {
  EXPECT_EQ(formatLogLine("%s", {"20 \xE2\x82"}), "20 \xEF\xBF\xBD\xEF\xBF\xBD");
}

TEST(LogTest, OfALongArgumentTheBeginningIsWrittenAndItsLength) {
  const std::string line = formatLogLine("%s", {std::string(60'000, 'x')});
  EXPECT_EQ(line, std::string(4096, 'x') + "... (60000 bytes)");
  const std::string letters = formatLogLine("%s", {std::string(4095, 'x') + "\xC3\xA9"});
  EXPECT_EQ(letters, std::string(4095, 'x') + "... (4097 bytes)");
  EXPECT_EQ(formatLogLine("%s", {std::string(4096, 'x')}), std::string(4096, 'x'));
}

TEST(LogTest, AFileThatTheLogMakesIsReadableByItsUserAlone) {
  const ScratchFolder folder;
  logTo(folder / "station.log");
  Log("one\n");
  struct stat state {};
  ASSERT_EQ(::stat((folder / "station.log").c_str(), &state), 0);
  EXPECT_EQ(state.st_mode & 0777, 0600u);
}

TEST(LogTest, WideTextIsWrittenAsUtf8) {
  EXPECT_EQ(formatLogLine("%s", {LightweightString<wchar_t>(L"\x20AC")}), "\xE2\x82\xAC");
}

TEST(LogTest, LogGoesToTheLogAloneAndLogBothToTheConsoleAsWell) {
  RecordedEvents events;
  Log("one %d\n", 1);
  LogBoth("two %s\n", "2");
  EXPECT_EQ(events.lines, (std::vector<std::string>{"file: one 1\n", "console: two 2\n"}));
}

TEST(LogTest, TheFileHoldsEachLineWithItsTimeAtOnce) {
  const ScratchFolder folder;
  logTo(folder / "station.log");
  Log("Sent :\n");
  LogBoth("{\n   a");
  Log("b\n}\n");
  const std::string time = "\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d ";
  const std::regex expected(time + "Sent :\n" + time + "\\{\n" + time + "   ab\n" + time + "\\}\n");
  EXPECT_TRUE(std::regex_match(contentOf(folder / "station.log"), expected))
      << contentOf(folder / "station.log");
}

TEST(LogTest, AFileThatCannotBeOpenedIsToldOnce) {
  RecordedEvents events;
  logTo("/nonexistent/station.log");
  Log("one\n");
  Log("two\n");
  ASSERT_EQ(events.lines.size(), 3U);
  EXPECT_NE(events.lines[0].find("console: The log file /nonexistent/station.log cannot be opened"),
            std::string::npos);
}

TEST(LogTest, ALogFileThatCannotBeWrittenToIsToldOnce) {
  RecordedEvents events;
  logTo("/dev/full");
  for (int line = 0; line < 3; ++line) {
    Log("line %d\n", line);
    flushLog();
  }
  std::string told;
  for (const auto& text : events.lines) told += text;
  const std::string problem = "The log file /dev/full cannot be written to: No space left";
  EXPECT_NE(told.find(problem), std::string::npos) << told;
  EXPECT_EQ(told.find(problem), told.rfind(problem));
}

TEST(LogTest, AProblemOfTheFileIsToldWithALaterLine) {
  RecordedEvents events;
  logTo({});
  Log("nowhere\n");
  logTo("/dev/full");
  EXPECT_TRUE(becomesTrue([&events] {
    Log("line\n");
    return events.loggedThat("The log file /dev/full cannot be written to");
  }));
}

TEST(LogTest, ALineIsWrittenSoonThoughNothingFollowsIt) {
  const ScratchFolder folder;
  logTo(folder / "station.log");
  Log("alone\n");
  EXPECT_TRUE(becomesTrue([&folder] {
    std::ifstream in(folder / "station.log");
    const std::string text{std::istreambuf_iterator<char>(in), {}};
    return text.ends_with("alone\n");
  }));
}

TEST(LogTest, TheLastLinesOfAProcessAreInTheFile) {
  const ScratchFolder folder;
  // Ends the thread that an earlier test's log may have: a forked process has none.
  logTo({});
  Log("nowhere\n");
  const auto logsAndEndsBy = [](const std::string& path, void (*end)()) {
    logTo(path);
    for (int line = 0; line < 1000; ++line) Log("line %d\n", line);
    end();
  };
  const std::string ended = folder / "ended.log";
  EXPECT_EXIT(logsAndEndsBy(ended, [] { std::exit(0); }), testing::ExitedWithCode(0), "");
  EXPECT_TRUE(contentOf(ended).ends_with("line 999\n"));
  const std::string crashed = folder / "crashed.log";
  EXPECT_EXIT(logsAndEndsBy(crashed, [] { std::abort(); }), testing::KilledBySignal(SIGABRT), "");
  EXPECT_TRUE(contentOf(crashed).ends_with("line 999\n"));
}

TEST(LogTest, ANamedPipeIsNotWaitedForAndGetsTheLinesOnceItIsRead) {
  const ScratchFolder folder;
  const std::string path = folder / "log";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  logTo(path);
  Log("early\n");
  ::close(readerOf(path, "late"));
}

TEST(LogTest, WhatTheReaderOfAPipeHasNoRoomForIsLeftOutAndToldOnce) {
  const ScratchFolder folder;
  const std::string path = folder / "log";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  RecordedEvents events;
  logTo(path);
  const std::string large(8u << 20, 'x');
  for (int i = 0; i < 9; ++i) writeLog(large);
  std::string told;
  for (const auto& text : events.lines) {
    if (text.find("xx") == text.npos) told += text;
  }
  EXPECT_EQ(told, "console: Nobody reads the log file " + path +
                      "; the station goes on, and lines are left out until it is read.\n");
}

TEST(LogTest, AReaderOfThePipeThatWentAwayIsToldOnceAndAnotherOneReadsOn) {
  ::signal(SIGPIPE, SIG_IGN);
  const ScratchFolder folder;
  const std::string path = folder / "log";
  ASSERT_EQ(::mkfifo(path.c_str(), 0600), 0);
  RecordedEvents events;
  logTo(path);
  ::close(readerOf(path, "one"));
  const auto isTold = [&] {
    Log("lost\n");
    return events.loggedThat("cannot be written to: Broken pipe");
  };
  EXPECT_TRUE(becomesTrue(isTold));
  ::close(readerOf(path, "two"));
}

TEST(LogTest, LinesOfSeveralThreadsStayWhole) {
  const ScratchFolder folder;
  logTo(folder / "station.log");
  std::vector<std::thread> writers;
  for (int i = 0; i < 4; ++i) {
    writers.emplace_back([] {
      for (int line = 0; line < 200; ++line) Log("%s\n", std::string(50, 'x'));
    });
  }
  for (std::thread& writer : writers) writer.join();
  flushLog();
  std::ifstream in(folder / "station.log");
  int lines = 0;
  for (std::string line; std::getline(in, line); ++lines) EXPECT_EQ(line.size(), 70U);
  EXPECT_EQ(lines, 800);
}
