#include <gtest/gtest.h>

#include "tests/share/ProgramRun.h"

using namespace korvel;

namespace {

int countOf(const std::string& part, const std::string& text) {
  int count = 0;
  for (auto at = text.find(part); at != text.npos; at = text.find(part, at + 1)) ++count;
  return count;
}

TEST(Tour, NewsStandUnderTheCommandThatCausedThem) {
  const ProgramRun tour = runProgram({KV_TOUR});
  ASSERT_EQ(tour.status, 0) << tour.output << tour.errors;
  int commands = 0;
  for (std::size_t begin = tour.output.find(" $ "), end; begin != std::string::npos; begin = end) {
    end = tour.output.find(" $ ", begin + 1);
    const std::string step = tour.output.substr(begin, end - begin);
    EXPECT_EQ(countOf(" <- ", step), 2 * countOf(" -> ", step)) << step;
    ++commands;
  }
  EXPECT_GT(commands, 10);
}

TEST(Tour, TellsWhatItIsAndRefusesOtherWords) {
  const ProgramRun help = runProgram({KV_TOUR, "--help"});
  EXPECT_EQ(help.status, 0);
  EXPECT_EQ(help.output.find("usage: kv-tour"), 0u) << help.output;
  const ProgramRun version = runProgram({KV_TOUR, "--version"});
  EXPECT_EQ(version.status, 0);
  EXPECT_EQ(version.output.find("kv-tour 14.5"), 0u) << version.output;
  const ProgramRun other = runProgram({KV_TOUR, "--hurry"});
  EXPECT_EQ(other.status, 2);
  EXPECT_EQ(other.errors.find("usage: kv-tour"), 0u) << other.errors;
}

}  // namespace
