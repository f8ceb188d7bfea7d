#include "tools/base/ToolHost.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <iostream>
#include <stdexcept>

using namespace korvel;

namespace {

using std::chrono::milliseconds;

constexpr auto kAmple = std::chrono::seconds(60);
constexpr milliseconds kLimit(1200);

ToolStatus neverEnd() {
  for (;;) ::pause();
}

/// What a look writes to standard error.
std::string complaintOf(milliseconds limit, const std::function<ToolStatus()>& look,
                        ToolStatus expected) {
  testing::internal::CaptureStderr();
  EXPECT_EQ(lookAtShare("/media/share", limit, look), expected);
  return testing::internal::GetCapturedStderr();
}

TEST(ShareTimeoutTest, ALookThatEndsGivesItsStatusAndItsOutput) {
  testing::internal::CaptureStdout();
  const auto look = [] {
    std::cout << "seen";
    return eToolUsage;
  };
  EXPECT_EQ(complaintOf(kAmple, look, eToolUsage), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "seen");
}

TEST(ShareTimeoutTest, AShareThatHangsIsGivenUpAndNamed) {
  const std::string text = complaintOf(milliseconds(100), neverEnd, eToolFinding);
  EXPECT_EQ(text.rfind("kv-share: /media/share did not answer within 0.1 s: ", 0), 0u) << text;
}

TEST(ShareTimeoutTest, AShareThatAnswersAgainAndAgainHasTheLimitEachTime) {
  const auto look = [] {
    for (int times = 0; times < 4; ++times) {
      ::usleep(400'000);
      shareAnswered();
    }
    return eToolDone;
  };
  EXPECT_EQ(complaintOf(kLimit, look, eToolDone), "");
}

TEST(ShareTimeoutTest, WhoReadsOrIsAskedMayTakeHisTime) {
  const auto look = [] {
    shareRests();
    ::usleep(1'400'000);
    return eToolDone;
  };
  EXPECT_EQ(complaintOf(kLimit, look, eToolDone), "");
  const auto hangAfterwards = []() -> ToolStatus {
    shareRests();
    shareAnswered();
    return neverEnd();
  };
  EXPECT_NE(complaintOf(milliseconds(100), hangAfterwards, eToolFinding), "");
}

TEST(ShareTimeoutTest, ALookThatIsKilledOrThrowsIsAFinding) {
  const auto killed = []() -> ToolStatus { ::_exit(3); };
  EXPECT_NE(complaintOf(kAmple, killed, eToolFinding).find("was ended"), std::string::npos);
  const auto thrown = []() -> ToolStatus { throw std::runtime_error("odd"); };
  EXPECT_EQ(complaintOf(kAmple, thrown, eToolFinding), "kv-share: stopped: odd\n");
}

}  // namespace
