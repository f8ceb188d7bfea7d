#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <string>
#include <thread>

#include "station/os/SharedFiles.h"
#include "station/project/ProjectFolder.h"
#include "station/watch/StationNote.h"
#include "station/wire/MessageTable.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/StationProcess.h"

using namespace korvel;

namespace {

/// Stations on one projects directory that hear no datagram of each other.
class PresenceShareTest : public testing::Test {
 protected:
  [[nodiscard]] StationProcess::Options options(const std::string& user,
                                                const std::string& host) const {
    return {KV_STATION, folder.path(), user, host, 0, freeUdpPort(), {}};
  }

  static JsonValue run(StationProcess& station, const std::string& line) {
    const JsonValue reply = station.command(line, std::chrono::minutes(2));
    EXPECT_TRUE(reply["ok"].asBool()) << line << ": " << writeJson(reply);
    return reply["result"];
  }

  static std::optional<JsonValue> await(StationProcess& station, const StationProcess::Keys& keys) {
    return station.waitFor("presence", keys, std::chrono::minutes(2));
  }

  ScratchFolder folder;
  StationProcess anna{options("ANNA", "ANNA")};
};

/// A station of BEN's that is no program: its note, and messages from its port.
class GhostStation {
 public:
  GhostStation(const std::string& projects, int port)
      : folder_(notesFolder(projects)), socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const int yes = 1;
    EXPECT_EQ(::setsockopt(socket_, SOL_SOCKET, SO_BROADCAST, &yes, sizeof yes), 0);
    sockaddr_in own{};
    own.sin_family = AF_INET;
    socklen_t size = sizeof own;
    EXPECT_EQ(::bind(socket_, reinterpret_cast<sockaddr*>(&own), size), 0);
    EXPECT_EQ(::getsockname(socket_, reinterpret_cast<sockaddr*>(&own), &size), 0);
    to_.sin_family = AF_INET;
    to_.sin_port = htons(static_cast<std::uint16_t>(port));
    to_.sin_addr.s_addr = inet_addr("127.255.255.255");
    note_.id = StationFile::newId();
    note_.user = note_.host = "BEN";
    note_.port = ntohs(own.sin_port);
    note_.since = timeForRecord();
    std::filesystem::create_directories(folder_);  // the first station makes it after its start
    const std::string lock = noteLock(folder_, note_.id);
    lock_ = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    struct flock whole {};
    whole.l_type = F_WRLCK;
    EXPECT_EQ(::fcntl(lock_, F_OFD_SETLK, &whole), 0);
    tellSent(0);
  }
  ~GhostStation() {
    ::close(socket_);
    ::close(lock_);
  }

  void send() const {
    const std::string message = std::string(kWireVersion) + kFieldSeparator + "of no type";
    EXPECT_GT(::sendto(socket_, message.data(), message.size(), 0,
                       reinterpret_cast<const sockaddr*>(&to_), sizeof to_),
              0);
  }

  /// Says that it sent so many messages since it started.
  void tellSent(long count) {
    note_.sent = count;
    EXPECT_TRUE(writeAtomically(folder_ + "/" + note_.id + ".json", noteText(note_)));
  }

 private:
  std::string folder_;
  int socket_;
  int lock_ = -1;
  sockaddr_in to_{};
  StationNote note_;
};

TEST_F(PresenceShareTest, AStationIsSeenComingWorkingAndGoing) {
  ASSERT_TRUE(anna.waitUntilReady());
  StationProcess ben(options("BEN", "BEN"));
  ASSERT_TRUE(ben.waitUntilReady());
  ASSERT_TRUE(await(anna, {{"how", "came"}, {"user", "BEN"}}));
  EXPECT_EQ(run(anna, "wait presence how=came")["user"].asString(), "BEN");
  run(ben, "project create Film");
  run(ben, "project enter Film");
  ASSERT_TRUE(await(anna, {{"how", "changed"}, {"project", "Film"}}));
  run(ben, "edit create Cut");
  run(ben, "edit open Cut");
  run(ben, "edit rename Cut New");
  std::optional<JsonValue> changed;
  do {
    changed = await(anna, {{"how", "changed"}, {"user", "BEN"}});
    ASSERT_TRUE(changed);
  } while ((*changed)["unsaved"].elements().empty());
  const JsonValue who = run(anna, "who");
  ASSERT_EQ(who.elements().size(), 2u);
  EXPECT_TRUE(who.elements()[0]["self"].asBool());
  EXPECT_EQ(who.elements()[1]["user"].asString(), "BEN");
  EXPECT_EQ(who.elements()[1]["state"].asString(), "here");
  EXPECT_EQ(ben.quit(), 0);
  ASSERT_TRUE(await(anna, {{"how", "went"}, {"user", "BEN"}}));
  EXPECT_EQ(run(anna, "who --all").elements().size(), 1u);
}

TEST_F(PresenceShareTest, AKilledStationIsGoneWithoutGoodbye) {
  ASSERT_TRUE(anna.waitUntilReady());
  StationProcess ben(options("BEN", "BEN"));
  ASSERT_TRUE(ben.waitUntilReady());
  ASSERT_TRUE(await(anna, {{"how", "came"}, {"user", "BEN"}}));
  ben.kill9();
  EXPECT_EQ(run(anna, "who").elements().size(), 1u);
  const JsonValue all = run(anna, "who --all");
  ASSERT_EQ(all.elements().size(), 2u);
  EXPECT_EQ(all.elements()[1]["state"].asString(), "gone without goodbye");
  EXPECT_TRUE(await(anna, {{"how", "went"}, {"state", "gone without goodbye"}}));
}

TEST_F(PresenceShareTest, WhoWasKilledAndCameBackIsNotGone) {
  ASSERT_TRUE(anna.waitUntilReady());
  StationProcess killed(options("BEN", "BEN"));
  ASSERT_TRUE(killed.waitUntilReady());
  ASSERT_TRUE(await(anna, {{"how", "came"}, {"user", "BEN"}}));
  killed.kill9();
  StationProcess ben(options("BEN", "BEN"));
  ASSERT_TRUE(ben.waitUntilReady());
  ASSERT_TRUE(await(anna, {{"how", "came"}, {"user", "BEN"}}));
  const JsonValue all = run(anna, "who --all");
  ASSERT_EQ(all.elements().size(), 2u) << writeJson(all);
  EXPECT_EQ(all.elements()[1]["state"].asString(), "here");
  EXPECT_EQ(run(ben, "who --all").elements().size(), 2u);
  EXPECT_EQ(ben.quit(), 0);
  EXPECT_TRUE(becomesTrue([this] { return run(anna, "who --all").elements().size() == 1; }))
      << writeJson(run(anna, "who --all"));
}

TEST_F(PresenceShareTest, TwoStationsOfTheSameUserAreBothTold) {
  const auto isTold = [](const StationProcess& station) {
    return station.errorText().find("Another station has the same user name: ") !=
           std::string::npos;
  };
  StationProcess again(options("ANNA", "OTHER"));
  ASSERT_TRUE(anna.waitUntilReady());
  ASSERT_TRUE(again.waitUntilReady());
  EXPECT_TRUE(becomesTrue([&] { return isTold(anna); })) << anna.errorText();
  EXPECT_TRUE(becomesTrue([&] { return isTold(again); })) << again.errorText();
  const std::string why = run(anna, "state")["health"]["why"].asString();
  EXPECT_NE(why.find("Another station has the same user name"), std::string::npos) << why;
}

TEST_F(PresenceShareTest, ChangesWithoutMessagesAreToldAsBeingCutOff) {
  ASSERT_TRUE(anna.waitUntilReady());
  StationProcess ben(options("BEN", "BEN"));
  ASSERT_TRUE(ben.waitUntilReady());
  ASSERT_TRUE(await(anna, {{"how", "came"}, {"user", "BEN"}}));
  run(ben, "project create Film");
  run(ben, "project enter Film");
  run(anna, "project enter Film");
  for (const char* name : {"One", "Two", "Three"}) {
    run(ben, std::string("edit create ") + name);
    ASSERT_TRUE(anna.waitFor("changed", {{"how", "created"}, {"origin", "folder"}},
                             std::chrono::minutes(2)));
  }
  const auto health = anna.waitFor("health", {{"network", "bad"}}, std::chrono::minutes(2));
  ASSERT_TRUE(health);
  EXPECT_NE((*health)["why"].asString().find("You seem to be cut off"), std::string::npos);
  EXPECT_EQ(run(anna, "state")["health"]["network"].asString(), "bad");
  EXPECT_EQ(run(anna, "state")["health"]["share"].asString(), "good");
}

TEST_F(PresenceShareTest, LostMessagesAreCountedByWhatTheirSenderSaysThatHeSent) {
  const int port = freeUdpPort();
  StationProcess carla({KV_STATION, folder.path(), "CARLA", "CARLA", 0, port, {}});
  ASSERT_TRUE(carla.waitUntilReady());
  GhostStation ben(folder.path(), port);
  ASSERT_TRUE(await(carla, {{"how", "came"}, {"user", "BEN"}}));
  std::this_thread::sleep_for(
      std::chrono::seconds(14));  // until his counts are known to be at rest
  ben.send();
  ben.tellSent(8);  // seven of them were lost on their way
  const auto told = carla.waitFor("network", {{"dropped", "7"}}, std::chrono::minutes(2));
  ASSERT_TRUE(told);
  EXPECT_TRUE(
      (*told)["problem"].asString().starts_with("7 messages of BEN's station were lost at "))
      << (*told)["problem"].asString();
  const auto health = carla.waitFor("health", {{"up_to_date", "slow"}}, std::chrono::minutes(2));
  ASSERT_TRUE(health);
  EXPECT_NE((*health)["why"].asString().find("7 messages of BEN's station"), std::string::npos);
}

}  // namespace
