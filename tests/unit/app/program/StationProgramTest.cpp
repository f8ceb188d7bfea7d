#include "app/program/StationProgram.h"

#include <gtest/gtest.h>

using namespace korvel;

namespace {

TEST(StationProgramTest, AWindowThatTheBuildLacksIsRefusedWithWhatToDo) {
  Options options;
  options.hasWindow = true;
  testing::internal::CaptureStderr();
  const int status = StationProgram(std::move(options)).run();
  EXPECT_EQ(testing::internal::GetCapturedStderr(),
            "kv-station: --gui: this build has no window; leave the option out to use the "
            "terminal.\n");
  EXPECT_EQ(status, 2);
}

}  // namespace
