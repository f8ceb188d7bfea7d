#include "station/project/DelayedReread.h"

#include <linux/magic.h>

#include "station/containers/Containers.h"
#include "tests/support/ContainerListener.h"
#include "tests/support/DelayedRereadRun.h"
#include "tests/support/StationScene.h"

using namespace korvel;

namespace {

using Notes = std::vector<std::string>;

TEST(DelayedRereadTest, AMessageIsFollowedByTwoLooksThatCountAsRemote) {
  DelayedRereadRun run;
  Notes looks;
  const auto note = [&looks] {
    looks.emplace_back(currentOrigin() == Origin::eRemote ? "remote" : "local");
  };
  {
    const RemoteChangeScope remote;
    DelayedReread::arrange("bin", note);
  }
  EXPECT_EQ(looks, Notes{});
  run.finish();
  EXPECT_EQ(looks, (Notes{"remote", "remote"}));
}

TEST(DelayedRereadTest, ManyMessagesOfOneObjectAreFollowedByTheLooksOfTheLast) {
  DelayedRereadRun run;
  int looks = 0;
  for (int message = 0; message < 100; ++message) {
    const RemoteChangeScope remote;
    DelayedReread::arrange("bin", [&looks] { ++looks; });
  }
  run.finish();
  EXPECT_EQ(looks, 2);
}

TEST(DelayedRereadTest, MoreObjectsThanOneTaskLooksAtAreAllLookedAt) {
  DelayedRereadRun run;
  int looks = 0;
  for (int object = 0; object < 130; ++object) {
    const RemoteChangeScope remote;
    DelayedReread::arrange("bin " + std::to_string(object), [&looks] { ++looks; });
  }
  run.finish();
  EXPECT_EQ(looks, 260);
}

TEST(DelayedRereadTest, WhatTheUserDoesIsNotFollowedByALook) {
  DelayedRereadRun run;
  int looks = 0;
  DelayedReread::arrange("bin", [&looks] { ++looks; });
  run.finish();
  EXPECT_EQ(looks, 0);
}

TEST(DelayedRereadTest, LooksAreMadeWhereAFolderMayStillShowWhatWas) {
  EXPECT_EQ(DelayedReread::delaysOn(EXT4_SUPER_MAGIC).size(), 0u);
  EXPECT_EQ(DelayedReread::delaysOn(NFS_SUPER_MAGIC).size(), 0u);
  EXPECT_EQ(DelayedReread::delaysOn(SMB2_SUPER_MAGIC).size(), 2u);
  EXPECT_EQ(DelayedReread::delaysIn("/no such folder").size(), 2u);
  EXPECT_EQ(DelayedReread::delaysIn("/proc").size(), 2u) << "a kind that nobody has measured";
}

TEST(DelayedRereadTest, WithoutDelaysNothingIsLookedAt) {
  HostThread thread;
  DelayedReread looks(thread, {});
  int made = 0;
  {
    const RemoteChangeScope remote;
    DelayedReread::arrange("bin", [&made] { ++made; });
  }
  thread.runPending();
  EXPECT_EQ(made, 0);
}

TEST(DelayedRereadTest, WithoutThemNothingIsArranged) {
  const RemoteChangeScope remote;
  DelayedReread::arrange("bin", [] { FAIL(); });
}

/// A share that still shows the old files when messages come.
class LateContainersTest : public testing::Test {
 protected:
  LateContainersTest() {
    scene.write(scene.fileOf("G0001"), R"({"name": "Old", "contents": []})");
    scene.write(scene.fileOf("F0001"), R"({"name": "Old", "filter": "a"})");
    scene.enter(bins);
    scene.enter(filters);
  }

  /// The messages that both were rewritten.
  void messagesCome() {
    const RemoteChangeScope remote;
    bins.reload(bin);
    filters.reInit();
    scene.events.changes.clear();
    listener.notes.clear();
  }

  const Cookie bin = cookie("G0001");
  StationScene scene;
  DelayedRereadRun run;
  Bins bins;
  Filters filters;
  ContainerListener<BinData> listener{bins};
};

TEST_F(LateContainersTest, ABinWhoseOldFileWasReadIsShownAsItIs) {
  messagesCome();
  scene.write(scene.fileOf("G0001"), R"({"name": "New", "contents": []})");
  run.finish();
  EXPECT_EQ(bins.find(bin)->name, "New");
  EXPECT_EQ(scene.events.changes, Notes{"bin G0001 reloaded remote"});
}

TEST_F(LateContainersTest, WhatIsFoundLateIsNotAnnouncedAsAChange) {
  messagesCome();
  scene.write(scene.fileOf("G0001"), R"({"name": "New", "contents": []})");
  run.finish();
  EXPECT_EQ(listener.notes, Notes{"G0001 08"});
}

TEST_F(LateContainersTest, WhatStayedAsItWasIsNotToldOf) {
  messagesCome();
  run.finish();
  EXPECT_EQ(scene.events.changes, Notes{});
  EXPECT_EQ(listener.notes, Notes{});
}

TEST_F(LateContainersTest, FiltersThatTheFolderDidNotShowYetAreShown) {
  messagesCome();
  scene.write(scene.fileOf("F0001"), R"({"name": "Old", "filter": "b"})");
  scene.write(scene.fileOf("F0002"), R"({"name": "Another", "filter": "c"})");
  run.finish();
  std::ranges::sort(scene.events.changes);
  EXPECT_EQ(scene.events.changes,
            (Notes{"filter F0001 reloaded remote", "filter F0002 created remote"}));
}

TEST_F(LateContainersTest, AProjectThatWasLeftMeanwhileIsNotLookedAt) {
  messagesCome();
  scene.write(scene.fileOf("G0001"), R"({"name": "New", "contents": []})");
  bins.leave();
  filters.leave();
  run.finish();
  EXPECT_EQ(scene.events.changes, Notes{});
}

}  // namespace
