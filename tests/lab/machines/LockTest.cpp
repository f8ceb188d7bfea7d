// Who may enter, between machines: private projects, rooms, and what becomes of them when a station
// or its machine dies.

#include "tests/lab/machines/NetFsTest.h"

using namespace korvel;

namespace {

class LockTest : public NetFsTest {
 protected:
  static JsonValue roomSeen(StationProcess& station) {
    const JsonValue rooms = run(station, "room list");
    return rooms.elements().empty() ? JsonValue() : rooms.elements()[0];
  }

  /// So that there is something to show, and to lose.
  void annaMakesThings() {
    const std::string edit = run(anna_, "edit create Cut").asString();
    run(anna_, "bin create Dailies");
    run(anna_, "bin add Dailies " + edit);
    run(anna_, "filter create Night dark");
  }

  /// What whoever looks after the server does about the locks of a machine that is gone.
  void clearLocksOfTheDead() const {
    if (GetParam() == "nfs3") {
      site_.on("server", {"sh", "-c", "echo /media/disk > /proc/fs/nfsd/unlock_filesystem"});
    } else {
      site_.on("server", {"sh", "-c",
                          "PATH=$PATH:/usr/sbin:/usr/bin; kill $(smbstatus -s /run/smb.conf -p | "
                          "awk -v dead=$(awk '$2 == \"first\" {print $1}' /etc/hosts) "
                          "'$4 == dead {print $1}')"});
    }
  }
};

TEST_P(LockTest, APrivateProjectIsOneMachinesAlone) {
  annaEnters("--private");
  shows("name seen", seeks([this] { return holderSeen(*ben_) == "ANNA"; }, kSoon));
  EXPECT_EQ(holderSeen(*ben_), "ANNA");
  EXPECT_FALSE(canEnter(*ben_));
  EXPECT_NE(refusal_.find("ANNA"), std::string::npos) << refusal_;
  annaMakesThings();
  const ProjectView annas(run(anna_, "state"));
  run(anna_, "project leave");
  const Seen entered = seeks([this] { return canEnter(*ben_); }, kSoon);
  shows("entered once left", entered);
  ASSERT_TRUE(entered.isSeen) << refusal_;
  EXPECT_EQ(annas.differenceFrom(ProjectView(run(*ben_, "state"))), "");
  EXPECT_FALSE(canEnter(anna_));
  expectAgreementInTurn({ben_, &anna_});
}

TEST_P(LockTest, OfTwoThatEnterAtOnceOneGetsIn) {
  annaEnters("--private");
  annaMakesThings();
  run(anna_, "project leave");
  EXPECT_TRUE(seeks([this] { return lockSeen(*ben_) == "free"; }, kSoon).isSeen);
  int won = 0;
  for (int round = 0; round < 20; ++round) {
    for (StationProcess* station : {&anna_, ben_}) station->type("project enter " + project_);
    int inside = 0;
    for (StationProcess* station : {&anna_, ben_}) {
      const auto reply = station->waitFor("reply", {}, kSoon);
      ASSERT_TRUE(reply);
      if ((*reply)["ok"].asBool()) ++inside;
    }
    EXPECT_LE(inside, 1) << "in round " << round;
    won += inside;
    for (StationProcess* station : {&anna_, ben_}) station->command("project leave");
  }
  shows("20 rounds, " + std::to_string(won) + " won, none by both");
  EXPECT_GT(won, 0);
  expectAgreementInTurn({&anna_, ben_});
}

TEST_P(LockTest, ARoomIsOneMachinesAlone) {
  annaEnters("");
  run(*ben_, "project enter " + project_);
  run(anna_, "room create Sound");
  run(anna_, "room enter Sound");
  const auto isSeen = [this] { return roomSeen(*ben_)["by"].asString() == "ANNA"; };
  shows("name seen", seeks(isSeen, kSoon));
  EXPECT_TRUE(isSeen()) << writeJson(roomSeen(*ben_));
  const JsonValue refused = ben_->command("room enter Sound");
  EXPECT_FALSE(refused["ok"].asBool());
  EXPECT_NE(refused["error"].asString().find("ANNA"), std::string::npos) << writeJson(refused);
  run(anna_, "room leave");
  const auto enters = [this] { return ben_->command("room enter Sound")["ok"].asBool(); };
  const Seen entered = seeks(enters, kSoon);
  shows("entered once left", entered);
  EXPECT_TRUE(entered.isSeen);
  run(*ben_, "room leave");
  expectAgreement();
}

TEST_P(LockTest, AKilledHolderIsFollowed) {
  annaEnters("--private");
  annaMakesThings();
  const ProjectView annas(run(anna_, "state"));
  EXPECT_FALSE(canEnter(*ben_));
  site_.kill9(anna_);
  const Seen entered = seeks([this] { return canEnter(*ben_); }, kSoon);
  shows("free", entered);
  ASSERT_TRUE(entered.isSeen) << refusal_;
  EXPECT_EQ(annas.differenceFrom(ProjectView(run(*ben_, "state"))), "");
  EXPECT_EQ(holderSeen(*ben_), "BEN");
  expectAgreementInTurn({ben_});
}

TEST_P(LockTest, AHolderWhoseMachineDiedIsFollowed) {
  const bool isFreedByItself = GetParam() == "nfs4" || GetParam() == "gluster";
  annaEnters("--private");
  annaMakesThings();
  const ProjectView annas(run(anna_, "state"));
  EXPECT_FALSE(canEnter(*ben_));
  site_.cut("first");
  // What is not freed by itself is not waited for any longer on slow machines.
  const Seconds limit(isFreedByItself ? 60 : 15 / Site::pace());
  Seen entered = seeks([this] { return canEnter(*ben_); }, limit);
  shows("free by itself", entered);
  EXPECT_EQ(entered.isSeen, isFreedByItself);
  if (!isFreedByItself) {
    EXPECT_NE(refusal_.find("ANNA"), std::string::npos) << refusal_;
    clearLocksOfTheDead();
    entered = seeks([this] { return canEnter(*ben_); }, kSoon);
    shows("an administrator clears its locks on the server: free", entered);
  }
  EXPECT_TRUE(entered.isSeen) << refusal_;
  if (entered.isSeen) {
    EXPECT_EQ(annas.differenceFrom(ProjectView(run(*ben_, "state"))), "");
    expectAgreementInTurn({ben_});
  }
  site_.restore("first");
}

INSTANTIATE_TEST_SUITE_P(, LockTest, testing::Values("nfs4", "nfs3", "smb", "gluster"),
                         [](const auto& kind) { return kind.param; });

/// Mounts on which each machine locks for itself alone.
class MountWithoutLocksTest : public LockTest {};

TEST_P(MountWithoutLocksTest, TwoMachinesHoldOneProject) {
  annaEnters("--private");
  annaMakesThings();
  EXPECT_TRUE(canEnter(*ben_)) << refusal_;
  StationProcess& carla = site_.start("first", "CARLA");
  EXPECT_FALSE(canEnter(carla));
  expectAgreementInTurn({&anna_, ben_});
  shows("both machines hold it; a second station on the first machine is refused");
}

INSTANTIATE_TEST_SUITE_P(, MountWithoutLocksTest, testing::Values("nfs3-nolock", "smb-nobrl"),
                         [](const auto& kind) {
                           return kind.param.substr(0, kind.param.find('-'));
                         });

}  // namespace
