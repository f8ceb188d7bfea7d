#include <fstream>
#include <iterator>

#include "tests/share/SharedStations.h"
#include "tests/support/LoopbackSender.h"

using namespace korvel;

namespace {

/// Stations on whose network somebody sends well-formed messages about changes that never were.
class ForgedMessagesTest : public SharedStations {
 protected:
  ForgedMessagesTest() { startThree(); }

  /// A message about an object of the open project.
  void forge(int type, const std::string& cookie, const std::string& data = {}) {
    EXPECT_TRUE(sender_.send({"d", std::to_string(type), project_, cookie, data}));
  }

  void settleAll() {
    for (const auto& station : stations_) settle(*station);
  }

  [[nodiscard]] std::string bytesOf(const std::string& file) const {
    std::ifstream stream(folder_ / "projects/" + project_ + "/" + file, std::ios::binary);
    return {std::istreambuf_iterator<char>(stream), std::istreambuf_iterator<char>()};
  }

  LoopbackSender sender_{port_};
};

TEST_F(ForgedMessagesTest, OwnersForgedAllTheTimeLoseNoSave) {
  constexpr int kSaves = 15;
  StationProcess& saver = start("DORA", 14, {"--set", "Administrator=1"});
  run(saver, "project enter Film");
  const std::string edit = run(saver, "edit create Reel").asString();
  settleAll();
  for (const auto& station : stations_) run(*station, "edit open " + edit);
  int gone = 0;
  for (int number = 0; number < kSaves; ++number) {
    const std::string name = "Version " + std::to_string(number);
    run(saver, "edit rename " + edit + " \"" + name + "\"");
    for (const char* owner : {"BEN", "CARLA", "BEN", "CARLA"}) forge(5, edit, owner);
    run(saver, "edit save " + edit);
    settleAll();
    gone += bytesOf(edit + ".otio").find("\"" + name + "\"") == std::string::npos ? 1 : 0;
  }
  EXPECT_EQ(gone, 0) << "of " << kSaves << " saves";
  EXPECT_EQ(run(*anna_, "edit may " + edit)["owner"].asString(), "DORA");
}

TEST_F(ForgedMessagesTest, NothingThatIsThereIsRemovedForAMessage) {
  const std::string edit = run(*anna_, "edit create Reel").asString();
  const std::string bin = run(*anna_, "bin create Dailies").asString();
  const std::string rack = run(*anna_, "rack create Shelf").asString();
  const std::string medium =
      run(*anna_, "media add \"" + sample("simple_cut.otio") + "\"").asString();
  run(*anna_, "edit open " + edit);
  run(*anna_, "edit rename " + edit + " Unsaved");
  settleAll();
  forge(3, edit);
  forge(2, edit);
  for (const std::string& each : {bin, rack}) forge(7, each, "3");
  forge(9, sample("simple_cut.otio"));
  settleAll();
  for (StationProcess* station : {anna_, ben_, carla_}) {
    EXPECT_EQ(run(*station, "edit list").elements().size(), 1U);
    EXPECT_EQ(run(*station, "bin list").elements().size(), 1U);
    EXPECT_EQ(run(*station, "rack list").elements().size(), 1U);
    EXPECT_EQ(run(*station, "media list").elements().size(), 1U);
  }
  EXPECT_FALSE(bytesOf(bin + ".json").empty());
  EXPECT_FALSE(bytesOf(rack + ".json").empty());
  run(*anna_, "edit save " + edit);
  EXPECT_NE(bytesOf(edit + ".otio").find("Unsaved"), std::string::npos);
}

}  // namespace
