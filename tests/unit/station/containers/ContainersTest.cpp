#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

#include "host/os/iFileManager.h"
#include "station/containers/Containers.h"
#include "tests/support/ContainerListener.h"
#include "tests/support/DelayedRereadRun.h"
#include "tests/support/Slowdown.h"
#include "tests/support/StationScene.h"

using namespace korvel;

namespace {

using Notes = std::vector<std::string>;

struct BinKind {
  using Manager = Bins;
  using Data = BinData;
  static constexpr const char* kWord = "bin";
  static constexpr const char* kCookie = "G0001";
};

struct RackKind {
  using Manager = Racks;
  using Data = RackData;
  static constexpr const char* kWord = "rack";
  static constexpr const char* kCookie = "B0001";
};

template <typename Kind>
class Containers : public testing::Test {
 protected:
  using Manager = typename Kind::Manager;

  Containers() { scene.enter(manager); }

  Cookie made(const std::string& name = "Rushes") {
    const Cookie cookie = *manager.create(name);
    listener.notes.clear();
    scene.events.changes.clear();
    return cookie;
  }

  std::string fileOf(const Cookie& container) const { return scene.fileOf(text(container)); }

  std::string event(const Cookie& container, const std::string& what) const {
    return Kind::kWord + (' ' + text(container)) + ' ' + what;
  }

  StationScene scene;
  Manager manager;
  ContainerListener<typename Kind::Data> listener{manager};
};

struct KindName {
  template <typename Kind>
  static std::string GetName(int) {
    return Kind::kWord;
  }
};

using Kinds = testing::Types<BinKind, RackKind>;
TYPED_TEST_SUITE(Containers, Kinds, KindName);

TYPED_TEST(Containers, OneThatWouldBeTooLargeToBeReadIsNotWritten) {
  const Cookie container = this->made();
  const std::string path = this->fileOf(container);
  const std::string large = R"({"name":"Rushes","note":")" +
                            std::string(kLargestRecord - 100, 'n') + R"(","contents":[]})";
  StationScene::write(path, large);
  const auto added = this->manager.add(container, CookieVec(100, Cookie("E0001", false)));
  ASSERT_TRUE(added);
  CookieVec many;
  for (int each = 0; each < 20; ++each) many.push_back(Cookie::create('E'));
  StationScene::write(path, large);
  const auto refused = this->manager.add(container, many);
  ASSERT_FALSE(refused);
  EXPECT_EQ(refused.error().code, ErrorCode::eRefused);
  EXPECT_NE(refused.error().message.find("more than 16 MiB"), std::string::npos)
      << refused.error().message;
  EXPECT_EQ(StationScene::read(path), large);
}

TYPED_TEST(Containers, AreWrittenAndAnnouncedWhenTheyAreMade) {
  const Result<Cookie> made = this->manager.create("Rushes");
  ASSERT_TRUE(made);
  EXPECT_EQ(made->getType(), TypeParam::kCookie[0]);
  EXPECT_EQ(*parseJson(this->scene.read(this->fileOf(*made))),
            *parseJson(R"({"name": "Rushes", "contents": []})"));
  EXPECT_EQ(this->listener.notes, Notes{text(*made) + " 82"});
  EXPECT_EQ(this->scene.events.changes, Notes{this->event(*made, "created local")});
}

TYPED_TEST(Containers, AreReadBackByAStationThatEntersLater) {
  const Cookie made = this->made("Dailies \xE2\x82\xAC \"5\"");
  ASSERT_TRUE(this->manager.add(made, {cookie("E0001"), cookie("V0002")}));
  typename TestFixture::Manager later;
  this->scene.enter(later);
  EXPECT_EQ(later.contents(made), (CookieVec{cookie("E0001"), cookie("V0002")}));
  std::vector<NamedObject> found;
  later.findByName("Dailies \xE2\x82\xAC \"5\"", found);
  ASSERT_EQ(found.size(), 1u);
  EXPECT_EQ(found[0].cookie, made);
}

TYPED_TEST(Containers, AnnounceARewrittenFileWhenObjectsComeAndGo) {
  const Cookie made = this->made();
  EXPECT_EQ(*this->manager.add(made, {cookie("E0001"), cookie("E0002"), cookie("E0001")}), 2u);
  EXPECT_EQ(*this->manager.remove(made, {cookie("E0001"), cookie("E0009")}), 1u);
  EXPECT_EQ(this->manager.contents(made), CookieVec{cookie("E0002")});
  EXPECT_EQ(this->listener.notes, (Notes{text(made) + " 82", text(made) + " 82"}));
  EXPECT_EQ(this->scene.events.changes,
            (Notes{this->event(made, "modified local"), this->event(made, "modified local")}));
}

TYPED_TEST(Containers, SayNothingOfAChangeThatChangesNothing) {
  const Cookie made = this->made();
  ASSERT_TRUE(this->manager.add(made, {cookie("E0001")}));
  this->listener.notes.clear();
  const std::string before = this->scene.read(this->fileOf(made));
  EXPECT_EQ(*this->manager.add(made, {cookie("E0001")}), 0u);
  EXPECT_EQ(*this->manager.remove(made, {cookie("E0002")}), 0u);
  EXPECT_EQ(this->listener.notes, Notes{});
  EXPECT_EQ(this->scene.read(this->fileOf(made)), before);
}

TYPED_TEST(Containers, KeepWhatAnotherStationAddedMeanwhile) {
  const Cookie made = this->made();
  typename TestFixture::Manager other;
  this->scene.enter(other);
  ASSERT_TRUE(this->manager.add(made, {cookie("E0001")}));
  ASSERT_TRUE(other.add(made, {cookie("E0002")}));
  ASSERT_TRUE(this->manager.add(made, {cookie("E0003")}));
  EXPECT_EQ(this->manager.contents(made),
            (CookieVec{cookie("E0001"), cookie("E0002"), cookie("E0003")}));
}

TYPED_TEST(Containers, LoseNothingWhenTwoProcessesAddAtOnce) {
  constexpr int kEach = 60;
  const Cookie made = this->made();
  const auto addAll = [&](char kind) {
    bool isGood = true;
    for (int number = 1; number <= kEach; ++number) {
      const std::string object = kind + std::to_string(1000 + number);
      isGood = this->manager.add(made, {cookie(object.c_str())}) && isGood;
    }
    return isGood;
  };
  const pid_t child = fork();
  if (child == 0) _exit(addAll('E') ? 0 : 1);
  EXPECT_TRUE(addAll('S'));
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(status, 0);
  this->manager.reload(made);
  EXPECT_EQ(this->manager.contents(made).size(), 2u * kEach);
  EXPECT_EQ(listFresh(this->scene.project.folder)->size(), 1u) << "locks or temporary files stay";
}

TYPED_TEST(Containers, AreChangedAfterAStationDiedInTheMiddleOfAChange) {
  const Cookie made = this->made();
  this->scene.write(this->scene.project.folder + "/." + text(made) + ".json.lock", "");
  EXPECT_TRUE(this->manager.add(made, {cookie("E0001")}));
}

TYPED_TEST(Containers, RefuseAChangeWhileAnotherStationHoldsTheLock) {
  const Cookie made = this->made();
  const std::string lock = this->scene.project.folder + "/." + text(made) + ".json.lock";
  const Kv::Ptr<iFile> held = this->scene.os.fileManager().openFile(
      wideText(lock), eFileReadWrite, eFileCreate, eFileShareNone, eFileNoFlags);
  ASSERT_TRUE(held && held->isOpen());
  const Result<std::size_t> added = this->manager.add(made, {cookie("E0001")});
  ASSERT_FALSE(added);
  EXPECT_EQ(added.error().code, ErrorCode::eHeld);
  EXPECT_EQ(this->listener.notes, Notes{});
}

TYPED_TEST(Containers, AreAnnouncedAsDestroyedAndTheirFileRemoved) {
  const Cookie made = this->made();
  ASSERT_TRUE(this->manager.discard(made));
  EXPECT_FALSE(existsFresh(this->fileOf(made)));
  EXPECT_FALSE(this->manager.holds(made));
  EXPECT_EQ(this->listener.notes, Notes{text(made) + " 04"});
  EXPECT_EQ(this->scene.events.changes, Notes{this->event(made, "destroyed local")});
}

TYPED_TEST(Containers, LeaveTheirNameToOthersWhenTheyAreDestroyed) {
  ASSERT_TRUE(this->manager.discard(this->made("Rushes")));
  EXPECT_TRUE(this->manager.create("Rushes"));
}

TYPED_TEST(Containers, DestroyedElsewhereAreGoneHere) {
  const Cookie made = this->made();
  ASSERT_TRUE(removeFileAt(this->fileOf(made)));
  const RemoteChangeScope remote;
  this->manager.destroy(made, "");
  this->manager.destroy(made, "");
  EXPECT_FALSE(this->manager.holds(made));
  EXPECT_EQ(this->scene.events.changes, Notes{this->event(made, "destroyed remote")});
}

// A message may be forged, or here before the share shows that the file is gone.
TYPED_TEST(Containers, SaidToBeDestroyedStayWhileTheirFileIsThere) {
  DelayedRereadRun run;
  const Cookie made = this->made();
  const std::string bytes = this->scene.read(this->fileOf(made));
  this->scene.events.changes.clear();
  {
    const RemoteChangeScope remote;
    this->manager.destroy(made, "");
  }
  EXPECT_TRUE(this->manager.holds(made));
  EXPECT_EQ(this->scene.read(this->fileOf(made)), bytes);
  EXPECT_EQ(this->scene.events.changes, Notes{});
  ASSERT_TRUE(removeFileAt(this->fileOf(made)));
  run.finish();
  EXPECT_FALSE(this->manager.holds(made));
  EXPECT_EQ(this->scene.events.changes, Notes{this->event(made, "destroyed remote")});
}

TYPED_TEST(Containers, AreNotBroughtBackByAChangeAfterTheyWereDestroyedElsewhere) {
  const Cookie made = this->made();
  ASSERT_TRUE(removeFileAt(this->fileOf(made)));
  const Result<std::size_t> added = this->manager.add(made, {cookie("E0001")});
  ASSERT_FALSE(added);
  EXPECT_EQ(added.error().code, ErrorCode::eNotFound);
  EXPECT_FALSE(existsFresh(this->fileOf(made)));
}

TYPED_TEST(Containers, MadeElsewhereAreLoadedByTheFirstReload) {
  const Cookie made(TypeParam::kCookie, false);
  this->scene.write(this->fileOf(made), R"({"name": "New", "contents": ["E0001"]})");
  const RemoteChangeScope remote;
  this->manager.reload(made);
  EXPECT_EQ(this->manager.contents(made), CookieVec{cookie("E0001")});
  EXPECT_EQ(this->scene.events.changes, Notes{this->event(made, "created remote")});
  EXPECT_EQ(this->listener.notes, Notes{text(made) + " 80"});
}

TYPED_TEST(Containers, RewrittenElsewhereShowTheNewNameAndContents) {
  const Cookie made = this->made("Old");
  this->scene.write(this->fileOf(made), R"({"name": "New", "contents": ["E0007"]})");
  this->manager.reload(made);
  std::vector<NamedObject> found;
  this->manager.findByName("Old", found);
  EXPECT_TRUE(found.empty());
  this->manager.findByName("New", found);
  EXPECT_EQ(found.size(), 1u);
  EXPECT_EQ(this->scene.events.changes, Notes{this->event(made, "reloaded local")});
}

TYPED_TEST(Containers, KeepMembersOfTheirFileThatThisStationDoesNotKnow) {
  const Cookie made = this->made();
  this->scene.write(
      this->fileOf(made),
      R"({"name": "A", "colour": {"r": 1.0}, "contents": [], "n": 123456789012345678901})");
  this->manager.reload(made);
  ASSERT_TRUE(this->manager.add(made, {cookie("E0001")}));
  EXPECT_EQ(*parseJson(this->scene.read(this->fileOf(made))),
            *parseJson(R"({"name": "A", "colour": {"r": 1.0}, "contents": ["E0001"],
                           "n": 123456789012345678901})"));
}

TYPED_TEST(Containers, WithABrokenFileAreReportedAndLeftAlone) {
  const char* const rows[] = {"",
                              "{",
                              "[]",
                              "null",
                              "\"x\"",
                              R"({"contents": []})",
                              R"({"name": 5, "contents": []})",
                              R"({"name": "x"})",
                              R"({"name": "x", "contents": {}})",
                              R"({"name": "x", "contents": [5]})",
                              R"({"name": "x", "contents": ["no cookie"]})",
                              "\xFF\xFE",
                              R"({"name": "x", "cont)"};
  const Cookie made(TypeParam::kCookie, false);
  for (const char* row : rows) {
    SCOPED_TRACE(row);
    this->scene.events.lines.clear();
    this->scene.write(this->fileOf(made), row);
    typename TestFixture::Manager later;
    this->scene.enter(later);
    EXPECT_FALSE(later.holds(made));
    EXPECT_TRUE(this->scene.events.loggedThat(this->fileOf(made)))
        << ::testing::PrintToString(this->scene.events.lines);
    EXPECT_EQ(this->scene.read(this->fileOf(made)), row);
  }
}

TYPED_TEST(Containers, BrokenWhileShownStayAsTheyWereAndAreNotWrittenOver) {
  const Cookie made = this->made();
  ASSERT_TRUE(this->manager.add(made, {cookie("E0001")}));
  this->listener.notes.clear();
  this->scene.write(this->fileOf(made), "{\"name\": \"Ru");
  this->manager.reload(made);
  EXPECT_EQ(this->manager.contents(made), CookieVec{cookie("E0001")});
  EXPECT_TRUE(this->scene.events.loggedThat(text(made)));
  const Result<std::size_t> added = this->manager.add(made, {cookie("E0002")});
  ASSERT_FALSE(added);
  EXPECT_EQ(added.error().code, ErrorCode::eBadContent);
  EXPECT_EQ(this->scene.read(this->fileOf(made)), "{\"name\": \"Ru");
  EXPECT_EQ(this->listener.notes, Notes{});
}

TYPED_TEST(Containers, TakeAnyNameThatCanBeTyped) {
  const std::string rows[] = {"two words",
                              "\"quoted\" 'too'",
                              "Gr\xC3\xBC\xC3\x9F"
                              "e",
                              "5 \xE2\x82\xAC",
                              std::string(300, 'n'),
                              "a/b",
                              "../up",
                              ".hidden",
                              "back\\slash",
                              "P0001"};
  for (const std::string& row : rows) {
    SCOPED_TRACE(row);
    const Result<Cookie> made = this->manager.create(row);
    ASSERT_TRUE(made) << made.error().message;
    typename TestFixture::Manager later;
    this->scene.enter(later);
    ASSERT_TRUE(later.find(*made));
    EXPECT_EQ(later.find(*made)->name, row);
  }
}

TYPED_TEST(Containers, RefuseANameThatIsEmptyOrInUse) {
  this->made("Rushes");
  EXPECT_EQ(this->manager.create("").error().code, ErrorCode::eUsage);
  const Result<Cookie> again = this->manager.create("Rushes");
  ASSERT_FALSE(again);
  EXPECT_EQ(again.error().code, ErrorCode::eExists);
  EXPECT_NE(again.error().message.find("Rushes"), std::string::npos);
  EXPECT_EQ(this->listener.notes, Notes{});
}

TYPED_TEST(Containers, CannotHoldThemselves) {
  const Cookie made = this->made();
  EXPECT_EQ(this->manager.add(made, {cookie("E0001"), made}).error().code, ErrorCode::eUsage);
  EXPECT_TRUE(this->manager.contents(made).empty());
  EXPECT_FALSE(StationScene::read(this->fileOf(made)).find("E0001") != std::string::npos);
}

TYPED_TEST(Containers, AreNotMadeOrChangedWithoutAProject) {
  const Cookie made = this->made();
  this->manager.leave();
  EXPECT_FALSE(this->manager.holds(made));
  EXPECT_EQ(this->manager.create("B").error().code, ErrorCode::eNoProject);
  EXPECT_EQ(this->manager.add(made, {}).error().code, ErrorCode::eNotFound);
  this->manager.reload(made);
  this->manager.destroy(made, "");
  EXPECT_TRUE(existsFresh(this->fileOf(made)));
  EXPECT_EQ(this->manager.fileOf(made), "");
}

TYPED_TEST(Containers, FollowTheFolderWhenAllIsReadAgain) {
  const Cookie kept = this->made("Kept");
  const Cookie gone = this->made("Gone");
  const Cookie fresh(TypeParam::kCookie, false);
  ASSERT_TRUE(removeFileAt(this->fileOf(gone)));
  this->scene.write(this->fileOf(fresh), R"({"name": "Fresh", "contents": []})");
  this->manager.readAllAgain();
  EXPECT_TRUE(this->manager.holds(kept) && this->manager.holds(fresh));
  EXPECT_FALSE(this->manager.holds(gone));
  EXPECT_EQ(this->scene.events.changes,
            (Notes{this->event(fresh, "created local"), this->event(gone, "destroyed local")}));
}

TYPED_TEST(Containers, AThousandAreEnteredWithinASecond) {
  for (int number = 1; number <= 1000; ++number) {
    const Cookie one(
        UUID{{1, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)}},
        TypeParam::kCookie[0]);
    this->scene.write(this->fileOf(one), R"({"name": "x", "contents": ["E0001"]})");
  }
  const auto start = std::chrono::steady_clock::now();
  this->scene.enter(this->manager);
  const auto took = std::chrono::steady_clock::now() - start;
  EXPECT_EQ(this->manager.state().elements().size(), 1000u);
  EXPECT_LT(took, kSlowdown * std::chrono::seconds(1));
}

TEST(ContainerFiles, OfBinsAndRacksLieInTheProjectsFolder) {
  StationScene scene;
  Bins bins;
  EXPECT_TRUE(getFileNameForLogGroup(cookie("G0001"), L"", Cookie()).empty());
  scene.enter(bins);
  EXPECT_EQ(utf8Text(getFileNameForLogGroup(cookie("B0001"), L"", Cookie())),
            scene.fileOf("B0001"));
  EXPECT_EQ(utf8Text(getFileNameForLogGroup(cookie("G0001"), L"", cookie("P0002"))),
            scene.scratch / "P0002/G0001.json");
}

TEST(ContainerFiles, OfMediaBinsAreBins) {
  StationScene scene;
  scene.write(scene.fileOf("M0001"), R"({"name": "Media", "contents": []})");
  scene.write(scene.fileOf("B0001"), R"({"name": "Rack", "contents": []})");
  scene.write(scene.project.folder + "/G0001.json.bak", "{");
  Bins bins;
  scene.enter(bins);
  EXPECT_TRUE(bins.holds(cookie("M0001")));
  EXPECT_EQ(bins.state().elements().size(), 1u);
  EXPECT_TRUE(scene.events.lines.empty());
}

}  // namespace
