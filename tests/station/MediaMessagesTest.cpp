#include <algorithm>

#include "station/media/MediaFiles.h"
#include "tests/station/PluginStation.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

class MediaMessagesTest : public PluginStation {
 protected:
  [[nodiscard]] JsonValue listed() const { return media.look(); }
};

TEST_F(MediaMessagesTest, AFileThatOnlyAMessageNamesIsListedAndNotLookedAt) {
  const std::string path = folder / "clip.mov";
  write(path, "frames");
  network.deliver(message(8, {path}));
  ASSERT_EQ(listed().elements().size(), 1U);
  EXPECT_FALSE(listed().elements()[0]["online"].asBool());
  EXPECT_FALSE(listed().elements()[0]["looked_at"].asBool());
  EXPECT_FALSE(MediaFiles::instance().isOpen(path));
}

TEST_F(MediaMessagesTest, AFileThatTheProjectRecordsIsLookedAt) {
  const std::string path = folder / "clip.mov";
  write(path, "frames");
  ASSERT_TRUE(media.addMedia(path));
  const JsonValue known = listed();
  EXPECT_TRUE(known.elements()[0]["online"].asBool());
  EXPECT_EQ(known.elements()[0].find("looked_at"), nullptr);
}

TEST_F(MediaMessagesTest, InventedFilesFillNoMemoryAndAreToldOnce) {
  RecordedEvents seen;
  for (std::size_t each = 0; each < MediaCache::kMostHearsay + 500; ++each) {
    network.deliver(message(8, {"//stranger/file" + std::to_string(each)}));
  }
  EXPECT_EQ(media.state().elements().size(), MediaCache::kMostHearsay);
  EXPECT_EQ(std::ranges::count_if(seen.lines,
                                  [](const std::string& line) {
                                    return line.find("further ones are not listed") != line.npos;
                                  }),
            1);
}

}  // namespace
