#include <algorithm>
#include <cstddef>
#include <filesystem>

#include "station/media/MediaFiles.h"
#include "station/os/FolderListing.h"
#include "tests/station/PluginStation.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/RecordedEvents.h"

using namespace korvel;

namespace {

class MediaMessagesTest : public PluginStation {
 protected:
  [[nodiscard]] JsonValue listed() { return media.look(); }

  /// Whether the only file that is listed was looked at, and is there.
  bool isFound() {
    const JsonValue all = listed();
    return all.elements().size() == 1 && all.elements()[0]["online"].asBool();
  }

  /// A folder of media on this station, and the network form of a file in it.
  std::string rushes() {
    StationSettings changed = settings();
    changed.media = {{folder / "rushes", "//store/rushes"}};
    installSettings(std::move(changed));
    std::filesystem::create_directory(folder / "rushes");
    return "//store/rushes";
  }
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

TEST_F(MediaMessagesTest, AFileInAFolderForMediaIsLookedAt) {
  const std::string file = rushes() + "/clip.mov";
  write(folder / "rushes/clip.mov", "frames");
  network.deliver(message(8, {file}));
  EXPECT_TRUE(becomesTrue([this] { return isFound(); }));
}

TEST_F(MediaMessagesTest, AFileInTheProjectsFolderIsLookedAt) {
  const std::string path = folder / (project.asString().str() + "/clip.mov");
  write(path, "frames");
  network.deliver(message(8, {path}));
  EXPECT_TRUE(becomesTrue([this] { return isFound(); }));
}

TEST_F(MediaMessagesTest, APathThatClimbsOutOfAFolderForMediaIsNotLookedAt) {
  write(folder / "secret.mov", "frames");
  const std::string file = rushes() + "/../secret.mov";
  network.deliver(message(8, {file}));
  EXPECT_FALSE(listed().elements()[0]["looked_at"].asBool(true));
  network.deliver(message(8, {folder / "rushes/../secret.mov"}));
  const JsonValue files = listed();
  for (const JsonValue& each : files.elements()) {
    EXPECT_FALSE(each["looked_at"].asBool(true)) << each["file"].asString();
  }
}

TEST_F(MediaMessagesTest, AFileWhoseRecordIsFoundLaterIsLookedAtThen) {
  const std::string path = folder / "clip.mov";
  write(path, "frames");
  network.deliver(message(8, {path}));
  FoundFile record;
  record.name = Cookie(path.c_str(), true).asString().str() + ".json";
  record.path = folder / (project.asString().str() + "/" + record.name);
  write(record.path, R"({"name": "clip.mov", "file": ")" + path + "\"}");
  constexpr std::size_t kLargest = 1000;
  const auto content = readStamped(record.path, kLargest);
  ASSERT_TRUE(content);
  record.stamp = content->stamp;
  record.bytes = content->bytes;
  EXPECT_EQ(media.catchUp({record}), 0U) << "it is listed already";
  EXPECT_TRUE(becomesTrue([this] { return isFound(); }));
  std::filesystem::remove(path);
  EXPECT_TRUE(becomesTrue([this] { return !isFound(); }));
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
