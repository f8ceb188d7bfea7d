#include "host/ui/IconSet.h"

#include <gtest/gtest.h>

#include <fstream>

#include "station/base/StationSettings.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

constexpr const char* kName = "tool_messager_on.png";

void useResources(const std::string& folder) {
  StationSettings made;
  made.config["resources"] = folder;
  installSettings(std::move(made));
}

TEST(IconSet, TheMessengersIconIsBesideTheProgramInBothScales) {
  installSettings(StationSettings{});
  const IconSet icon(kName);
  EXPECT_TRUE(icon.isValid());
  EXPECT_EQ(icon.size(), (Size{48, 35}));
  EXPECT_NE(icon.path(1), icon.path(2));
  EXPECT_EQ(IconSet("tool_messager_on@2x.png").size(), (Size{96, 70}));
}

TEST(IconSet, AMissingFileIsReportedOnceAndNotFatal) {
  const ScratchFolder scratch;
  RecordedEvents events;
  useResources(scratch.path());
  const IconSet icon(kName);
  EXPECT_FALSE(icon.isValid());
  EXPECT_EQ(icon.size(), (Size{0, 0}));
  EXPECT_TRUE(icon.path(2).empty());
  EXPECT_TRUE(events.loggedThat(scratch / kName));
  events.lines.clear();
  const IconSet again(kName);
  EXPECT_TRUE(events.lines.empty());
}

TEST(IconSet, AFileThatIsNoPictureIsReported) {
  const ScratchFolder scratch;
  RecordedEvents events;
  useResources(scratch.path());
  std::ofstream(scratch / kName) << "\x89PNG";
  EXPECT_FALSE(IconSet(kName).isValid());
  EXPECT_TRUE(events.loggedThat("no PNG"));
}

}  // namespace
