#include "station/media/MediaCache.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <filesystem>
#include <iterator>
#include <map>
#include <mutex>
#include <optional>

#include "host/media/DiskManager.h"
#include "station/base/Json.h"
#include "station/media/MediaFiles.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/DelayedRereadRun.h"
#include "tests/support/StationScene.h"

using namespace korvel;

namespace {

using Notes = std::vector<std::string>;

/// Notes the cache's notifications as "fileAdded a.mov", a proxy's with the first proxy's name.
class MediaListener {
 public:
  explicit MediaListener(SystemCache& cache)
      : guard_(cache.registerInternal(
            Kv::Ptr<CallbackInvoker<NotifyMsg>>(new CallbackInvoker<NotifyMsg>(
                NotifyMsgTypeDictionary::instance()[NotifyMsgTypeDictionary::eAnyChange],
                Kv::Ptr<iCallback<NotifyMsg>>(new MethodCallback<MediaListener, NotifyMsg, int>(
                    this, &MediaListener::heard)))))) {}

  Notes notes;

 private:
  int heard(const NotifyMsg& message) {
    const auto& entry = dynamic_cast<const FsysDirectoryEntry&>(*message.payload());
    const std::string file = mediaName(utf8Text(entry.getFilename().getOsPath()));
    const auto proxy = [&] { return mediaName(utf8Text(entry.getProxyFiles().at(0).getOsPath())); };
    const NotifyMsgType type = message.type();
    if (type == SystemCache::fileAddedMsgType_) notes.push_back("fileAdded " + file);
    if (type == SystemCache::fileRemovedMsgType_) notes.push_back("fileRemoved " + file);
    if (type == SystemCache::proxyAddedMsgType_) notes.push_back("proxyAdded " + proxy());
    if (type == SystemCache::proxyRemovedMsgType_) notes.push_back("proxyRemoved " + proxy());
    return 0;
  }

  Kv::Ptr<Kv::Guard> guard_;
};

class MediaCacheTest : public testing::Test {
 protected:
  MediaCacheTest() {
    (void)makeFolder(rushes);
    mapRushesTo(rushes);
    scene.enter(cache);
  }

  static void mapRushesTo(const std::string& local) {
    StationSettings changed = settings();
    changed.media = {{local, "//store/rushes"}};
    installSettings(std::move(changed));
  }

  /// Removes the project's records, as another station does that removes the media.
  void removeRecords() const {
    const auto names = listFresh(scene.project.folder);
    for (const std::string& name : *names) (void)removeFileAt(scene.project.folder + '/' + name);
  }

  /// A file below the media directory.
  std::string file(const std::string& name, const std::string& bytes = "....ftypqt  ") const {
    StationScene::write(rushes + '/' + name, bytes);
    return rushes + '/' + name;
  }

  std::string recordOf(const std::string& network) const {
    return scene.fileOf(text(Cookie(network.c_str(), true)));
  }

  /// What a station does with a path that another one sent.
  static MaterialFilename received(const char* network) {
    return DiskManager::convertUNCtoFsysFilename(wideText(network));
  }
  static Cookie receivedCookie(const char* network) {
    return materialCookie(utf8Text(received(network).getPath()));
  }

  StationScene scene;
  std::string rushes = scene.scratch / "rushes";
  MediaCache cache;
  MediaListener listener{cache};
};

TEST_F(MediaCacheTest, AnAddedFileIsAnnouncedAndRecordedInItsNetworkForm) {
  const Result<Cookie> added = cache.addMedia(file("a.mov"));
  ASSERT_TRUE(added) << added.error().message;
  EXPECT_EQ(*added, Cookie("a", true));
  EXPECT_EQ(*parseJson(scene.read(recordOf("//store/rushes/a.mov"))),
            *parseJson(R"({"name": "a.mov", "file": "//store/rushes/a.mov"})"));
  EXPECT_EQ(listener.notes, Notes{"fileAdded a.mov"});
  EXPECT_EQ(scene.events.changes, Notes{"media " + text(*added) + " added local"});
}

TEST_F(MediaCacheTest, AStationThatEntersLaterFindsItsOwnFile) {
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  std::filesystem::rename(rushes, scene.scratch / "elsewhere");
  mapRushesTo(scene.scratch / "elsewhere");
  MediaCache later;
  scene.enter(later);
  const JsonValue shown = later.look();
  ASSERT_EQ(shown.elements().size(), 1u);
  EXPECT_EQ(shown.elements()[0]["file"].asString(), scene.scratch / "elsewhere/a.mov");
  EXPECT_TRUE(shown.elements()[0]["online"].asBool());
  EXPECT_EQ(shown.elements()[0]["format"].asString(), "QuickTime or MP4");
  EXPECT_EQ(shown.elements()[0]["size"].asLong(), 12);
}

TEST_F(MediaCacheTest, AFileThatIsNotThereOrKnownAlreadyIsRefused) {
  EXPECT_EQ(cache.addMedia(rushes + "/none.mov").error().code, ErrorCode::eNotFound);
  EXPECT_EQ(cache.addMedia(rushes).error().code, ErrorCode::eNotFound);
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  EXPECT_EQ(cache.addMedia(file("a.mov")).error().code, ErrorCode::eExists);
  EXPECT_EQ(listener.notes, Notes{"fileAdded a.mov"});
}

TEST_F(MediaCacheTest, AProxyIsAnnouncedAsTheFirstProxyOfItsMaterial) {
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  ASSERT_TRUE(cache.addProxy(file("a.mov"), file("a1.mov")));
  ASSERT_TRUE(cache.addProxy(file("a.mov"), file("a2.mov")));
  EXPECT_EQ(listener.notes, (Notes{"fileAdded a.mov", "proxyAdded a1.mov", "proxyAdded a2.mov"}));
  const JsonValue shown = cache.state();
  ASSERT_EQ(shown.elements().size(), 3u);
  EXPECT_EQ(shown.elements()[0]["proxy_of"].asString(), "");
  EXPECT_EQ(shown.elements()[2]["proxy_of"].asString(), "//store/rushes/a.mov");
  EXPECT_EQ(cache.addProxy(rushes + "/b.mov", file("b1.mov")).error().code, ErrorCode::eNotFound);
}

TEST_F(MediaCacheTest, ARemovedFileTakesItsProxiesAndRecordsAlong) {
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  ASSERT_TRUE(cache.addProxy(file("a.mov"), file("a1.mov")));
  listener.notes.clear();
  ASSERT_TRUE(cache.removeMedia(rushes + "/a.mov"));
  EXPECT_EQ(listener.notes, (Notes{"proxyRemoved a1.mov", "fileRemoved a.mov"}));
  EXPECT_TRUE(listFresh(scene.project.folder)->empty());
  EXPECT_TRUE(existsFresh(rushes + "/a.mov"));
  EXPECT_EQ(cache.removeMedia(rushes + "/a.mov").error().code, ErrorCode::eNotFound);
}

TEST_F(MediaCacheTest, AFileIsRemovedByPathNetworkFormNameOrCookie) {
  for (const std::string& how :
       {rushes + "/a.mov", std::string("//store/rushes/a.mov"),
        std::string(R"(\\store\rushes\a.mov)"), std::string("a.mov"), text(Cookie("a", true))}) {
    SCOPED_TRACE(how);
    ASSERT_TRUE(cache.addMedia(file("a.mov")));
    EXPECT_TRUE(cache.removeMedia(how));
    EXPECT_FALSE(cache.knows(rushes + "/a.mov"));
  }
}

TEST_F(MediaCacheTest, ANameThatSeveralFilesHaveIsRefusedWithTheirPaths) {
  (void)makeFolder(rushes + "/b");
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  ASSERT_TRUE(cache.addMedia(file("b/a.mov")));
  const auto removed = cache.removeMedia("a.mov");
  ASSERT_FALSE(removed);
  EXPECT_NE(removed.error().message.find(rushes + "/b/a.mov"), std::string::npos);
  EXPECT_TRUE(cache.removeMedia(rushes + "/b/a.mov"));
  EXPECT_TRUE(cache.knows(rushes + "/a.mov"));
}

TEST_F(MediaCacheTest, ACookiesBeginningStandsForTheOneFileThatItBegins) {
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  ASSERT_TRUE(cache.addProxy(rushes + "/a.mov", file("p.mov")));
  const std::string cookie = text(Cookie("a", true));
  ASSERT_NE(cookie.substr(0, 4), text(Cookie("p", true)).substr(0, 4));
  const auto removed = cache.removeMedia(cookie.substr(0, 4));
  ASSERT_TRUE(removed) << removed.error().message;
  ASSERT_EQ(removed->size(), 2u);
  EXPECT_EQ(removed->at(0).path, rushes + "/a.mov");
  EXPECT_EQ(removed->at(1).path, rushes + "/p.mov");
  EXPECT_FALSE(cache.knows(rushes + "/a.mov"));
  const auto unknown = cache.removeMedia(cookie.substr(0, 4));
  EXPECT_NE(unknown.error().message.find("is no media file of the open project"), std::string::npos)
      << unknown.error().message;
}

TEST_F(MediaCacheTest, OfSeveralCookiesThatBeginAlikeNoneIsTaken) {
  // The second letter of a cookie is one of 16, so two of 17 files have the same.
  std::map<std::string, int> beginnings;
  for (int i = 0; i < 17; ++i) {
    const Result<Cookie> added = cache.addMedia(file("m" + std::to_string(i) + ".mov"));
    ++beginnings[text(*added).substr(0, 2)];
  }
  const auto shared =
      std::ranges::find_if(beginnings, [](const auto& each) { return each.second > 1; });
  ASSERT_NE(shared, beginnings.end());
  const auto removed = cache.removeMedia(shared->first);
  ASSERT_FALSE(removed);
  EXPECT_NE(removed.error().message.find("begin with \"" + shared->first + "\"; name one by"),
            std::string::npos)
      << removed.error().message;
  EXPECT_EQ(cache.state().elements().size(), 17u);
}

TEST_F(MediaCacheTest, ABeginningOfACookieThatFilesShareIsRefusedWithTheirPaths) {
  ASSERT_TRUE(cache.addMedia(file("take.1.mov")));
  ASSERT_TRUE(cache.addMedia(file("take.2.mov")));
  const auto removed = cache.removeMedia(text(Cookie("take", true)).substr(0, 4));
  ASSERT_FALSE(removed);
  EXPECT_NE(removed.error().message.find(rushes + "/take.2.mov"), std::string::npos)
      << removed.error().message;
}

TEST_F(MediaCacheTest, AFileAddedElsewhereIsKnownHereOnce) {
  file("a.mov");
  const RemoteChangeScope remote;
  for (int times = 0; times < 2; ++times) {
    cache.addFile(receivedCookie("//store/rushes/a.mov"), received("//store/rushes/a.mov"), false);
  }
  EXPECT_EQ(listener.notes, Notes{"fileAdded a.mov"});
  EXPECT_EQ(scene.events.changes, Notes{"media " + text(Cookie("a", true)) + " added remote"});
}

TEST_F(MediaCacheTest, AProxyAddedElsewhereIsKnownAsOneByItsRecord) {
  MediaCache here;
  scene.enter(here);
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  ASSERT_TRUE(cache.addProxy(file("a.mov"), file("p.mov")));
  const char* const main = "//store/rushes/a.mov";
  const char* const proxy = "//store/rushes/p.mov";
  here.addFile(receivedCookie(proxy), received(proxy), false);
  here.addFile(receivedCookie(main), received(main), false);
  EXPECT_EQ(here.state(), cache.state());
}

TEST_F(MediaCacheTest, OfSeveralFilesWithOneCookieTheOneRemovedElsewhereGoes) {
  MediaCache here;
  ASSERT_TRUE(cache.addMedia(file("take.1.mov")));
  ASSERT_TRUE(cache.addMedia(file("take.2.mov")));
  scene.enter(here);
  ASSERT_TRUE(cache.removeMedia("take.1.mov"));
  here.removeFile(Cookie("take", true), false,
                  SystemCache::eRemoveEntry | SystemCache::eRemoveProxies);
  EXPECT_FALSE(here.knows(rushes + "/take.1.mov"));
  EXPECT_TRUE(here.knows(rushes + "/take.2.mov"));
}

// A message may be forged, or here before the share shows that the record is gone.
TEST_F(MediaCacheTest, AMaterialSaidToBeRemovedStaysAsLongAsItsRecord) {
  DelayedRereadRun run;
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  ASSERT_TRUE(cache.addProxy(file("a.mov"), file("p.mov")));
  {
    const RemoteChangeScope remote;
    for (const char* name : {"a", "p"}) cache.removeFile(Cookie(name, true), false, 3);
  }
  EXPECT_TRUE(cache.knows(rushes + "/a.mov"));
  EXPECT_TRUE(cache.knows(rushes + "/p.mov"));
  removeRecords();
  run.finish();
  EXPECT_FALSE(cache.knows(rushes + "/a.mov"));
}

TEST_F(MediaCacheTest, ARemovedMaterialWithoutARecordGoes) {
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  removeRecords();
  for (int times = 0; times < 2; ++times) cache.removeFile(Cookie("a", true), false, 3);
  EXPECT_FALSE(cache.knows(rushes + "/a.mov"));
  EXPECT_EQ(listener.notes, (Notes{"fileAdded a.mov", "fileRemoved a.mov"}));
}

TEST_F(MediaCacheTest, AFileThatIsNotOnThisStationIsShownAsOffline) {
  cache.addFile(receivedCookie("//store/rushes/far.mov"), received("//store/rushes/far.mov"),
                false);
  EXPECT_TRUE(scene.events.loggedThat("far.mov"));
  ASSERT_EQ(cache.look().elements().size(), 1u);
  EXPECT_FALSE(cache.look().elements()[0]["online"].asBool(true));
  file("far.mov");
  EXPECT_TRUE(cache.look().elements()[0]["online"].asBool());
}

TEST_F(MediaCacheTest, APathWithTheSeparatorsByteIsCarriedAndTheUserIsWarned) {
  ASSERT_TRUE(cache.addMedia(file("gr\xC3\xBC\xC3\x9F.mov")));
  EXPECT_TRUE(scene.events.lines.empty());
  ASSERT_TRUE(cache.addMedia(file("5 \xE2\x82\xAC.mov")));
  EXPECT_TRUE(scene.events.loggedThat("5 \xE2\x82\xAC.mov"));
  EXPECT_TRUE(scene.events.loggedThat("receive it cut"));
  EXPECT_EQ(listener.notes.size(), 2u);
}

TEST_F(MediaCacheTest, FilesWithOddNamesComeBackAsTheyWere) {
  const std::string rows[] = {"two words.mov",
                              "\"q'.mov",
                              std::string(240, 'n') + ".mov",
                              ".dot",
                              "back\\slash.mov",
                              "bytes\xFF\xFE.mov",
                              "5 \xE2\x82\xAC.mov"};
  for (const std::string& row : rows) ASSERT_TRUE(cache.addMedia(file(row))) << row;
  MediaCache later;
  scene.enter(later);
  for (const std::string& row : rows) EXPECT_TRUE(later.knows(rushes + '/' + row)) << row;
  EXPECT_EQ(later.state(), cache.state());
}

TEST_F(MediaCacheTest, BrokenRecordsAreReportedAndLeftAlone) {
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  const std::string record = recordOf("//store/rushes/a.mov");
  for (const char* row :
       {"", "{", "[]", "{}", R"({"file": 5})", R"({"file": "//store/rushes/other.mov"})"}) {
    SCOPED_TRACE(row);
    scene.events.lines.clear();
    scene.write(record, row);
    MediaCache later;
    scene.enter(later);
    EXPECT_TRUE(later.state().elements().empty());
    EXPECT_TRUE(scene.events.loggedThat(record)) << ::testing::PrintToString(scene.events.lines);
    EXPECT_EQ(scene.read(record), row);
  }
}

TEST_F(MediaCacheTest, NothingIsAddedWithoutAProjectAndLeavingForgets) {
  ASSERT_TRUE(cache.addMedia(file("a.mov")));
  cache.leave();
  EXPECT_TRUE(cache.state().elements().empty());
  EXPECT_EQ(cache.addMedia(file("b.mov")).error().code, ErrorCode::eNoProject);
}

class MediaFilesTest : public testing::Test {
 protected:
  ScratchFolder folder;
  std::string path = folder / "a.mxf";
  MediaFiles files;
};

TEST_F(MediaFilesTest, ALookKeepsTheFileOpenUntilItIsClosed) {
  StationScene::write(path, "\x06\x0E\x2B\x34 and more");
  const MediaLook look = files.look(path);
  EXPECT_TRUE(look.isOnline);
  EXPECT_EQ(look.size, 13u);
  EXPECT_EQ(look.format, "MXF");
  EXPECT_TRUE(files.isOpen(path) && files.keepsHead(path));
  files.close(path);
  files.dropHead(path);
  EXPECT_FALSE(files.isOpen(path) || files.keepsHead(path));
}

TEST_F(MediaFilesTest, AReplacedFileIsReadAgain) {
  StationScene::write(path, "\x06\x0E\x2B\x34");
  EXPECT_EQ(files.look(path).format, "MXF");
  StationScene::write(folder / "new", "RIFF....WAVE");
  std::filesystem::rename(folder / "new", path);
  EXPECT_EQ(files.look(path).format, "Wave");
}

TEST_F(MediaFilesTest, ARemovedFileIsOfflineAndNoLongerHeld) {
  StationScene::write(path, "x");
  EXPECT_TRUE(files.look(path).isOnline);
  std::filesystem::remove(path);
  EXPECT_FALSE(files.look(path).isOnline);
  EXPECT_FALSE(files.isOpen(path));
}

TEST_F(MediaFilesTest, FoldersAndPipesAreOffline) {
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(files.look(folder / "pipe").isOnline);
  EXPECT_FALSE(files.look(folder.path()).isOnline);
}

TEST_F(MediaFilesTest, OnlyTheOnesLookedAtLastStayOpen) {
  for (std::size_t number = 0; number <= MediaFiles::kMaxOpen; ++number) {
    StationScene::write(folder / std::to_string(number), "x");
    EXPECT_TRUE(files.look(folder / std::to_string(number)).isOnline);
  }
  EXPECT_FALSE(files.isOpen(folder / "0"));
  EXPECT_TRUE(files.isOpen(folder / "1"));
}

TEST_F(MediaFilesTest, ThePlayersCachesAreDroppedByPath) {
  StationScene::write(path, "x");
  (void)MediaFiles::instance().look(path);
  PlayFileCache::remove(wideText(path));
  EXPECT_FALSE(MediaFiles::instance().isOpen(path));
  Kv::FileReaderResource::clearRequestCache(wideText(path));
  EXPECT_FALSE(MediaFiles::instance().keepsHead(path));
}

/// A mount that does not answer until it is told to.
struct DeadMount {
  std::mutex mutex;
  std::condition_variable changed;
  bool answers = false;

  MediaLook lookAt(const std::string& path) {
    std::unique_lock lock(mutex);
    if (path.starts_with("/dead/")) changed.wait(lock, [this] { return answers; });
    return {true, path.size(), {}, {}};
  }

  void answer(bool doesAnswer) {
    const std::lock_guard lock(mutex);
    answers = doesAnswer;
    changed.notify_all();
  }
};

class MediaLooksTest : public testing::Test {
 protected:
  // Looks that still wait end with the test; their threads keep the mount.
  ~MediaLooksTest() override { mount_->answer(true); }

  [[nodiscard]] bool isLookedAt(const std::string& path) const {
    return looks_.at(path).has_value();
  }

  std::shared_ptr<DeadMount> mount_ = std::make_shared<DeadMount>();
  MediaLooks looks_{[mount = mount_](const std::string& path) { return mount->lookAt(path); }};
};

TEST_F(MediaLooksTest, AFolderThatDoesNotAnswerHoldsUpNeitherOthersNorTheCaller) {
  looks_.ask("/dead/a.mov", "/dead");
  looks_.ask("/dead/b.mov", "/dead");
  looks_.ask("/live/c.mov", "/live");
  const auto begin = std::chrono::steady_clock::now();
  looks_.await(MediaLooks::kPatience);
  EXPECT_TRUE(isLookedAt("/live/c.mov"));
  EXPECT_FALSE(isLookedAt("/dead/a.mov") || isLookedAt("/dead/b.mov"));
  EXPECT_EQ(looks_.lookNow("/dead/d.mov", "/dead", std::chrono::milliseconds(1)), std::nullopt);
  // Known by now not to answer, so nothing waits for it.
  looks_.await(std::chrono::hours(1));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::minutes(1));
  mount_->answer(true);
  looks_.await(std::chrono::minutes(1));
  EXPECT_TRUE(becomesTrue([this] {
    return isLookedAt("/dead/a.mov") && isLookedAt("/dead/b.mov") && isLookedAt("/dead/d.mov");
  }));
}

TEST_F(MediaLooksTest, AFolderThatNoLongerAnswersShowsNothingOfItsFiles) {
  mount_->answer(true);
  ASSERT_TRUE(looks_.lookNow("/dead/a.mov", "/dead", std::chrono::minutes(1)));
  mount_->answer(false);
  looks_.ask("/dead/a.mov", "/dead");
  EXPECT_TRUE(becomesTrue([this] { return !isLookedAt("/dead/a.mov"); }));
}

TEST_F(MediaLooksTest, ManyFoldersThatDoNotAnswerTakeABoundedNumberOfThreads) {
  for (std::size_t each = 0; each < 3 * MediaLooks::kMostThreads; ++each) {
    looks_.ask("/dead/" + std::to_string(each), "/dead/" + std::to_string(each));
  }
  const auto threads = [] {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<std::size_t>(std::distance(begin(tasks), end(tasks)));
  };
  EXPECT_TRUE(becomesTrue([&] { return threads() > 2; }));
  EXPECT_LE(threads(), MediaLooks::kMostThreads + 2);  // a sanitizer may have one of its own
  mount_->answer(true);
  looks_.await(std::chrono::minutes(1));
  EXPECT_TRUE(becomesTrue([this] { return isLookedAt("/dead/0"); }));
}

}  // namespace
