#include <gtest/gtest.h>

#include "ProjectShare/Receiver.h"
#include "host/base/Text.h"
#include "tests/fakes/FakeServices.h"
#include "tests/support/Cookies.h"
#include "tests/support/WireFields.h"

using namespace korvel;

namespace {

using ProjectSharing::Receiver;
using Lines = std::vector<std::string>;

constexpr const char* kSleep = "OS::sleepMilliseconds(100)";

ContainerModification change(ContainerModification::eValue value) {
  return ContainerModification(value);
}

class ReceiverApplyTest : public testing::Test {
 protected:
  ReceiverApplyTest() { host_.journal.clear(); }

  /// An edit that is open here and whose file exists.
  FakeEdit& openEdit() {
    host_.edits.openHere.insert("E0001");
    host_.files.put("/projects/P0001/E0001.otio", "");
    return host_.edits.add(kEdit);
  }

  FakeHost host_;
  FakePermissions permissions_;
};

TEST_F(ReceiverApplyTest, AFileThatIsThereIsNotWaitedFor) {
  host_.files.put("/a", "");
  EXPECT_TRUE(Receiver::waitForFile(L"/a"));
  EXPECT_EQ(host_.journal.lines(), Lines{"? fileExists(/a)"});
}

TEST_F(ReceiverApplyTest, AFileThatNeverComesIsLookedForTenTimesAndSaidInTheLogAlone) {
  EXPECT_FALSE(Receiver::waitForFile(L"/J\u00fcrgen"));
  EXPECT_EQ(host_.journal.count("? fileExists(/J\xC3\xBCrgen)"), 10);
  EXPECT_EQ(host_.journal.count(kSleep), 10);
  EXPECT_EQ(host_.journal.lines().back(), kSleep) << "the tenth look is followed by its sleep";
  EXPECT_EQ(host_.logLines, Lines{"log: Receiver::waitForFile( /J\xC3\xBCrgen ) failed\n"});
}

TEST_F(ReceiverApplyTest, AFileThatComesMeanwhileIsTaken) {
  host_.journal.onLine = [this](const std::string&) {
    if (host_.journal.count(kSleep) == 9) host_.files.put("/a", "");
  };
  EXPECT_TRUE(Receiver::waitForFile(L"/a"));
  EXPECT_EQ(host_.journal.count("? fileExists(/a)"), 10);
  EXPECT_EQ(host_.logLines, Lines{});
}

TEST_F(ReceiverApplyTest, AFileThatComesAfterTheTenthLookComesTooLate) {
  host_.journal.onLine = [this](const std::string&) {
    if (host_.journal.count(kSleep) == 10) host_.files.put("/a", "");
  };
  EXPECT_FALSE(Receiver::waitForFile(L"/a"));
}

TEST_F(ReceiverApplyTest, ALogCreatedElsewhereIsDescribedAsNewOnceItsFileIsThere) {
  host_.edits.add(kEdit);
  host_.journal.onLine = [this](const std::string& line) {
    if (line == kSleep) host_.files.put("/projects/P0001/E0001.otio", "");
  };
  Receiver::handleLogCreation(kEdit);
  EXPECT_EQ(
      host_.journal.lines(),
      (Lines{"? getFilenameForCookie(E0001, )", "? fileExists(/projects/P0001/E0001.otio)", kSleep,
             "? fileExists(/projects/P0001/E0001.otio)", "EditPtr::i_open(E0001, 0)",
             "EditModifier(E0001, ProjectShare)", "Edit::setChangeDescription(E0001, 55, true)",
             "announce(E0001, 55)", "EditModifier::release(E0001)", "EditPtr::i_close(E0001)"}));
}

TEST_F(ReceiverApplyTest, ALogWhoseFileNeverComesIsNotOpened) {
  host_.edits.add(kEdit);
  Receiver::handleLogCreation(kEdit);
  EXPECT_EQ(host_.journal.count("EditPtr::i_open(E0001, 0)"), 0);
  EXPECT_EQ(host_.logLines.size(), 1u);
}

TEST_F(ReceiverApplyTest, ALogThatCannotBeOpenedOrModifiedIsSkipped) {
  host_.files.put("/projects/P0001/E0001.otio", "");
  Receiver::handleLogCreation(kEdit);
  EXPECT_EQ(host_.journal.effects(), Lines{"EditPtr::i_open(E0001, 0)"});
  host_.edits.add(kEdit).canBeModified = false;
  host_.journal.clear();
  Receiver::handleLogCreation(kEdit);
  EXPECT_EQ(host_.journal.effects(),
            (Lines{"EditPtr::i_open(E0001, 0)", "EditModifier(E0001, ProjectShare)",
                   "EditPtr::i_close(E0001)"}));
  EXPECT_EQ(host_.logLines, Lines{});
}

TEST_F(ReceiverApplyTest, AnEditSavedElsewhereIsReloadedTakesItsOwnerAndIsNotDirty) {
  FakeEdit& edit = openEdit();
  edit.settings.values["OWNER"] = "J\xC3\x9CRGEN";
  edit.dirty = true;
  edit.pending = eModTrim;
  Receiver::handleLogModification(kEdit);
  EXPECT_EQ(host_.journal.effects(),
            (Lines{"EditPtr::i_open(E0001, 0)", "EditModifier(E0001, ProjectShare)",
                   "Edit::reOpen(E0001, /projects/P0001/E0001.otio)", "Edit::celCuesOff(E0001)",
                   "iPermissionsManager::setOwner(E0001, J\xC3\x9CRGEN, 0, false)",
                   "Edit::issueChangeNotification(E0001, 32;0;0;;)", "Edit::setDirty(E0001, false)",
                   "EditModifier::clearModifications(E0001)", "EditModifier::release(E0001)",
                   "EditPtr::i_close(E0001)"}));
}

TEST_F(ReceiverApplyTest, AnEditThatIsNotOpenHereIsNotTouched) {
  host_.edits.add(kEdit);
  Receiver::handleLogModification(kEdit);
  EXPECT_EQ(host_.journal.lines(), Lines{"? EditManager::isOpen(E0001)"});
}

TEST_F(ReceiverApplyTest, AReloadWaitsForThumbnailsWithoutLimit) {
  openEdit();
  host_.thumbnails.busyAnswers = 250;
  Receiver::handleLogModification(kEdit);
  EXPECT_EQ(host_.journal.count("OS::sleepMilliseconds(10)"), 250);
  const Lines& lines = host_.journal.lines();
  EXPECT_EQ(lines[1], "? ThumbnailRenderTaskQueue::isIdle()");
  EXPECT_EQ(lines[2], "OS::sleepMilliseconds(10)");
  EXPECT_EQ(lines[502], "EditPtr::i_open(E0001, 0)") << "only when it is idle";
}

TEST_F(ReceiverApplyTest, CelCuesAreShownAgainWhereTheyWereShown) {
  FakeEdit& edit = openEdit();
  edit.celCues = true;
  host_.journal.onLine = [&edit](const std::string& line) {
    if (line.rfind("Edit::reOpen", 0) == 0) edit.celCues = false;  // as a fresh edit has them
  };
  Receiver::handleLogModification(kEdit);
  EXPECT_EQ(host_.journal.count("Edit::celCuesOn(E0001)"), 1);
  EXPECT_EQ(host_.journal.count("Edit::celCuesOff(E0001)"), 0);
}

TEST_F(ReceiverApplyTest, AnEditWithoutAnOwnerGetsTheEmptyName) {
  openEdit();
  Receiver::handleLogModification(kEdit);
  EXPECT_EQ(host_.journal.count("iPermissionsManager::setOwner(E0001, , 0, false)"), 1);
}

TEST_F(ReceiverApplyTest, ALogGetsTheEmptyNameWhateverItsFileSays) {
  FakeEdit& log = openEdit();
  log.edit = false;
  log.settings.values["OWNER"] = "BOB";
  Receiver::handleLogModification(kEdit);
  EXPECT_EQ(host_.journal.count("iPermissionsManager::setOwner(E0001, , 1, false)"), 1);
}

TEST_F(ReceiverApplyTest, AnOpenEditThatCannotBeModifiedIsNotReloaded) {
  openEdit().canBeModified = false;
  Receiver::handleLogModification(kEdit);
  EXPECT_EQ(host_.journal.effects(),
            (Lines{"EditPtr::i_open(E0001, 0)", "EditModifier(E0001, ProjectShare)",
                   "EditPtr::i_close(E0001)"}));
}

TEST_F(ReceiverApplyTest, ABinRewrittenElsewhereIsReloadedOnceItsFileIsThere) {
  host_.journal.onLine = [this](const std::string& line) {
    if (line == kSleep) host_.files.put("/projects/P0001/G0002.json", "{}");
  };
  Receiver::handleContainerModification(kBin, change(ContainerModification::eRewritten));
  EXPECT_EQ(
      host_.journal.lines(),
      (Lines{"? getFileNameForLogGroup(G0002, , )", "? fileExists(/projects/P0001/G0002.json)",
             kSleep, "? fileExists(/projects/P0001/G0002.json)", "BinManager::reload(G0002)"}));
}

TEST_F(ReceiverApplyTest, ABinWhoseFileNeverComesIsNotReloadedAndSaidOnce) {
  Receiver::handleContainerModification(kBin, change(ContainerModification::eRewritten));
  EXPECT_EQ(host_.journal.effects(), Lines(10, kSleep));
  EXPECT_EQ(host_.logLines,
            Lines{"log: Receiver::waitForFile( /projects/P0001/G0002.json ) failed\n"});
}

TEST_F(ReceiverApplyTest, ContainersAreReloadedOrDestroyedByTheirKindWithoutWaiting) {
  const struct {
    const char* cookie;
    ContainerModification::eValue value;
    Lines effects;
  } rows[] = {
      {"G0002", ContainerModification::eReload, {"BinManager::reload(G0002)"}},
      {"M0002", ContainerModification::eReload, {"BinManager::reload(M0002)"}},
      {"B0002", ContainerModification::eReload, {"RackManager::reload(B0002)"}},
      {"G0002", ContainerModification::eDestroyed, {"BinManager::destroy(G0002, )"}},
      {"M0002", ContainerModification::eDestroyed, {"BinManager::destroy(M0002, )"}},
      {"B0002", ContainerModification::eDestroyed, {"RackManager::destroy(B0002, )"}},
      {"G0002", ContainerModification::eNothing, {}},
      {"B0002", ContainerModification::eNothing, {}},
      {"E0002", ContainerModification::eReload, {}},
      {"F0002", ContainerModification::eDestroyed, {}},
      {"g0002", ContainerModification::eReload, {}},
      {"", ContainerModification::eReload, {}},
  };
  for (const auto& row : rows) {
    host_.journal.clear();
    Receiver::handleContainerModification(Cookie(row.cookie, false), change(row.value));
    EXPECT_EQ(host_.journal.effects(), row.effects) << row.cookie << " " << row.value;
  }
}

TEST_F(ReceiverApplyTest, ARackDestroyedElsewhereIsDestroyedHereWithoutWaiting) {
  Receiver::handleContainerModification(kRack, change(ContainerModification::eDestroyed));
  EXPECT_EQ(host_.journal.lines(),
            (Lines{"? getFileNameForLogGroup(B0002, , )", "RackManager::destroy(B0002, )"}));
}

TEST_F(ReceiverApplyTest, ARackWaitsForItsLogGroupFile) {
  host_.files.put("/projects/P0001/B0002.json", "{}");
  Receiver::handleContainerModification(kRack, change(ContainerModification::eRewritten));
  EXPECT_EQ(host_.journal.lines(),
            (Lines{"? getFileNameForLogGroup(B0002, , )",
                   "? fileExists(/projects/P0001/B0002.json)", "RackManager::reload(B0002)"}));
}

TEST_F(ReceiverApplyTest, FiltersAreReadAgainForEveryValueAndWaitedForWhenRewritten) {
  const Cookie filter("F0003", false);
  for (const auto value : {ContainerModification::eNothing, ContainerModification::eReload,
                           ContainerModification::eDestroyed}) {
    host_.journal.clear();
    Receiver::handleFilterModification(filter, change(value));
    EXPECT_EQ(host_.journal.lines(), Lines{"ProjectFilterManager::reInit()"}) << value;
  }
  host_.files.put("/projects/P0001/F0003.json", "{}");
  host_.journal.clear();
  Receiver::handleFilterModification(filter, change(ContainerModification::eRewritten));
  EXPECT_EQ(host_.journal.lines(),
            (Lines{"? UserFilter::getFilterMetadataFileName(F0003)",
                   "? fileExists(/projects/P0001/F0003.json)", "ProjectFilterManager::reInit()"}));
}

TEST_F(ReceiverApplyTest, AFilterWhoseFileNeverComesIsNotReadAgain) {
  Receiver::handleFilterModification(Cookie("F0003", false),
                                     change(ContainerModification::eRewritten));
  EXPECT_EQ(host_.journal.count("ProjectFilterManager::reInit()"), 0);
  EXPECT_EQ(host_.logLines.size(), 1u);
}

/// Cookies of media files, as a station makes them from their paths.
class ReceiverMaterialTest : public ReceiverApplyTest {
 protected:
  Lines effectsOf(const std::string& text) {
    host_.journal.clear();
    host_.network.deliver(wire(text));
    return host_.journal.effects();
  }

  static std::string named(const char* name) { return Cookie(name, true).asString().str(); }

  Kv::Ptr<Receiver> receiver_{new Receiver};
};

TEST_F(ReceiverMaterialTest, AddedMaterialIsKnownByItsLocalPathAndTheCookieOfItsName) {
  const struct {
    const char* network;
    const char* local;
    const char* name;
  } rows[] = {
      {"//store/rushes/a.mov", "/media/a.mov", "a"},
      {"//store/rushes/day 1/b.tar.gz", "/media/day 1/b.tar.gz", "b"},
      {"//store/rushes/day.1/shot.mov", "/media/day.1/shot.mov", "day"},
      {"//store/rushes/.hidden/shot.mov", "/media/.hidden/shot.mov", ""},
      {"//store/rushes/plain", "/media/plain", "plain"},
      {"//elsewhere/c.mov", "//elsewhere/c.mov", "c"},
      {"//store/rushes/V0001.mov", "/media/V0001.mov", "V0001"},
      {"//store/rushes/J\xC3\xBCrgen.mov", "/media/J\xC3\xBCrgen.mov", "J\xC3\xBCrgen"},
      {"", "", ""},
  };
  for (const auto& row : rows) {
    const std::string added =
        "SystemCache::addFile(" + named(row.name) + ", " + row.local + ", false)";
    EXPECT_EQ(effectsOf("d|8|P0001|" + std::string(row.network) + "|"), Lines{added});
  }
}

TEST_F(ReceiverMaterialTest, RemovedMaterialIsClosedByThePlayerAndTheReaderBeforeItIsForgotten) {
  EXPECT_EQ(effectsOf("d|9|P0001|//store/rushes/day.1/shot.mov|"),
            (Lines{"PlayFileCache::remove(/media/day.1/shot.mov)",
                   "FileReaderResource::clearRequestCache(/media/day.1/shot.mov)",
                   "SystemCache::removeFile(" + named("day") + ", false, 3)"}));
}

}  // namespace
