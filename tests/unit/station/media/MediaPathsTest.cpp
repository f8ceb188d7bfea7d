#include "station/media/MediaFiles.h"

#include <gtest/gtest.h>

#include "host/media/DiskManager.h"
#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "tests/support/StationScene.h"

using namespace korvel;

namespace {

void installMedia(std::vector<MediaDirectory> media) {
  StationSettings changed = settings();
  changed.media = std::move(media);
  installSettings(std::move(changed));
}

class MediaPathsTest : public testing::Test {
 protected:
  MediaPathsTest() {
    installMedia({{"/mnt/rushes", "//store/rushes"},
                  {"/mnt/rushes/old", "//attic/old/"},
                  {"/mnt/sound/", R"(\\store\sound)"}});
  }

  StationScene scene;
};

TEST_F(MediaPathsTest, AreSentInTheFormThatTheUserConfigured) {
  const struct {
    const char* local;
    const char* network;
  } rows[] = {
      {"/mnt/rushes/a.mov", "//store/rushes/a.mov"},
      {"/mnt/rushes/day 1/a.mov", "//store/rushes/day 1/a.mov"},
      {"/mnt/rushes/old/a.mov", "//attic/old/a.mov"},
      {"/mnt/rushes/older/a.mov", "//store/rushes/older/a.mov"},
      {"/mnt/rushes2/a.mov", "/mnt/rushes2/a.mov"},
      {"/mnt/rushes", "/mnt/rushes"},
      {"/mnt/sound/x/b.wav", R"(\\store\sound\x\b.wav)"},
      {"/mnt/rushes/back\\slash.mov", "//store/rushes/back\\slash.mov"},
      {"/mnt/rushes/\xC3\xBC\xE2\x82\xAC.mov", "//store/rushes/\xC3\xBC\xE2\x82\xAC.mov"},
      {"/home/anna/a.mov", "/home/anna/a.mov"},
      {"", ""},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.local);
    EXPECT_EQ(networkForm(row.local), row.network);
    EXPECT_EQ(localForm(row.network), row.local);
  }
}

TEST_F(MediaPathsTest, AreUnderstoodWithEitherSeparator) {
  EXPECT_EQ(localForm(R"(\\store\rushes\day 1\a.mov)"), "/mnt/rushes/day 1/a.mov");
  EXPECT_EQ(localForm("//store/sound/x/b.wav"), "/mnt/sound/x/b.wav");
  EXPECT_EQ(mediaKey(R"(\\store\rushes\a.mov)"), mediaKey("//store/rushes/a.mov"));
  EXPECT_NE(mediaKey("/a/b\\c"), mediaKey("/a/b/c"));
}

TEST_F(MediaPathsTest, ThatClimbOutOfAMediaDirectoryAreBelowNone) {
  EXPECT_EQ(localForm("//store/rushes/../../etc/passwd"), "//store/rushes/../../etc/passwd");
  EXPECT_EQ(localForm("//store/rushes/.."), "//store/rushes/..");
  EXPECT_EQ(localForm("//store/rushes/a..b/c..mov"), "/mnt/rushes/a..b/c..mov");
}

TEST_F(MediaPathsTest, FindTheirDirectoryWhenItIsTheWholeDisk) {
  installMedia({{"/", "//suite1/disk"}});
  EXPECT_EQ(networkForm("/a.mov"), "//suite1/disk/a.mov");
  EXPECT_EQ(localForm("//suite1/disk/a.mov"), "/a.mov");
}

TEST_F(MediaPathsTest, PassThroughTheDiskManager) {
  const MaterialFilename file(L"/mnt/rushes/a.mov");
  EXPECT_EQ(utf8Text(DiskManager::convertLocalToUNC(file)), "//store/rushes/a.mov");
  EXPECT_EQ(DiskManager::convertUNCtoFsysFilename(L"\\\\store\\rushes\\a.mov"), file);
}

TEST_F(MediaPathsTest, GiveTheMaterialTheTextBeforeTheFirstDotWithoutDirectories) {
  const struct {
    const char* path;
    const char* name;
  } rows[] = {
      {"/mnt/rushes/a.mov", "a"},
      {"/other/place/a.mxf", "a"},
      {"/mnt/a", "a"},
      {"/mnt/take 1.final.mov", "take 1"},
      {"/mnt/day.1/a.mov", "day"},
      {"/mnt/.hidden", ""},
      {"a.mov", "a"},
  };
  for (const auto& row : rows) {
    SCOPED_TRACE(row.path);
    EXPECT_EQ(materialCookie(row.path), Cookie(row.name, true));
  }
}

}  // namespace
