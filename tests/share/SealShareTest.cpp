#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <deque>
#include <fstream>
#include <future>
#include <iterator>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "tests/share/SharedStations.h"
#include "tests/support/LoopbackSender.h"

using namespace korvel;

namespace {

/// Hears every datagram on the stations' port, as anybody on the network can.
class Eavesdropper {
 public:
  explicit Eavesdropper(int port) : socket_(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    const int yes = 1;
    ::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    sockaddr_in here{};
    here.sin_family = AF_INET;
    here.sin_port = htons(static_cast<std::uint16_t>(port));
    EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&here), sizeof here), 0);
  }
  Eavesdropper(const Eavesdropper&) = delete;
  Eavesdropper& operator=(const Eavesdropper&) = delete;
  ~Eavesdropper() { ::close(socket_); }

  /// The next datagram that holds `part`; empty when none comes within a minute.
  [[nodiscard]] std::string next(const std::string& part) const {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (std::chrono::steady_clock::now() < deadline) {
      pollfd wait{socket_, POLLIN, 0};
      if (::poll(&wait, 1, 1000) != 1) continue;
      std::array<char, 65536> bytes{};
      const ssize_t size = ::recv(socket_, bytes.data(), bytes.size(), 0);
      const std::string datagram(bytes.data(), size > 0 ? static_cast<std::size_t>(size) : 0);
      if (datagram.find(part) != std::string::npos) return datagram;
    }
    return {};
  }

 private:
  int socket_;
};

/// Stations on a share with keys.
class SealShareTest : public SharedStations {
 protected:
  ProgramRun keys(std::vector<std::string> words) {
    words.insert(words.begin(), {KV_SHARE, "keys", folder_ / "projects"});
    return runProgram(words);
  }

  /// Makes a key; its identifier.
  std::string addKey() {
    const ProgramRun made = keys({"add", "--json"});
    EXPECT_EQ(made.status, 0) << made.errors;
    return (*parseJson(made.output))["id"].asString();
  }

  /// Words to all, from somebody who has no key.
  void shout(const std::string& text) {
    EXPECT_TRUE(stranger_.send({"d", "10", project_, "BEN", "<All>", text}));
  }

  void say(StationProcess& station, const std::string& text) {
    run(station, "say <All> \"" + text + "\"");
  }

  LoopbackSender stranger_{port_};
};

TEST_F(SealShareTest, OfKeysThatAreAddedAtOnceNoneIsLost) {
  constexpr std::size_t kAdders = 6;
  addKey();
  std::vector<std::future<std::string>> adders;
  for (std::size_t each = 0; each < kAdders; ++each) {
    adders.push_back(std::async(std::launch::async, [this] { return addKey(); }));
  }
  std::set<std::string> made;
  for (auto& adder : adders) made.insert(adder.get());
  std::set<std::string> kept;
  const auto listed = parseJson(keys({"list", "--json"}).output);
  for (const JsonValue& key : (*listed)["keys"].elements()) kept.insert(key["id"].asString());
  EXPECT_EQ(made.size(), kAdders);
  EXPECT_EQ(kept.size(), kAdders + 1);
  EXPECT_TRUE(std::ranges::includes(kept, made));
}

TEST_F(SealShareTest, WordsWithoutASealAreMarkedWhereOthersSeal) {
  addKey();
  startThree();
  say(*anna_, "lunch?");
  const JsonValue sealed = await(*carla_, "received", {{"data", "lunch?"}});
  EXPECT_FALSE(sealed["unverified"].asBool());
  shout("lunch is off");
  const JsonValue heard = await(*carla_, "received", {{"data", "lunch is off"}});
  EXPECT_TRUE(heard["unverified"].asBool());
  const JsonValue told = await(*carla_, "notification", {{"text", "lunch is off"}});
  EXPECT_TRUE(told["unverified"].asBool());
  EXPECT_TRUE(run(*carla_, "notifications").elements().back()["unverified"].asBool());
}

TEST_F(SealShareTest, WhoUsesTheNameOfOneWhoSealsIsToldOfOnce) {
  addKey();
  startThree();
  say(*ben_, "lunch?");
  await(*carla_, "received", {{"data", "lunch?"}});
  shout("lunch is off");
  const JsonValue alarm = await(*carla_, "network", {});
  EXPECT_NE(alarm["problem"].asString().find("in the name of \"BEN\" bears no seal"),
            std::string::npos)
      << alarm["problem"].asString();
  shout("once more");
  await(*carla_, "received", {{"data", "once more"}});
  EXPECT_FALSE(carla_->waitFor("network", {}, StationProcess::Seconds(0)));
}

TEST_F(SealShareTest, ANameThatTwoSealingStationsUseIsTold) {
  addKey();
  startThree();
  StationProcess other({KV_STATION, folder_ / "projects", "BEN", "ELSEWHERE", 15, port_, {}});
  ASSERT_TRUE(other.waitUntilReady());
  say(*ben_, "lunch?");
  await(*carla_, "received", {{"data", "lunch?"}});
  EXPECT_TRUE(other.command("say <All> later")["ok"].asBool());
  const JsonValue alarm = await(*carla_, "network", {});
  EXPECT_NE(alarm["problem"].asString().find("\"BEN\" come from two stations"), std::string::npos)
      << alarm["problem"].asString();
}

TEST_F(SealShareTest, WithoutAKeyNothingIsMarkedAndNothingIsSealed) {
  startThree();
  const Eavesdropper network(port_);
  say(*anna_, "lunch?");
  EXPECT_TRUE(network.next("lunch?").ends_with('\xAC'));
  shout("lunch is off");
  EXPECT_FALSE(await(*carla_, "received", {{"data", "lunch is off"}})["unverified"].asBool());
}

TEST_F(SealShareTest, AStrictStationTakesWhatIsSealedAloneAndSaysWhatItLeavesOut) {
  addKey();
  startThree();
  StationProcess& dora = start("DORA", 14, {"--seal", "require"});
  run(dora, "project enter Film");
  for (int count = 0; count < 3; ++count) shout("lunch is off");
  const JsonValue told = await(dora, "network", {});
  EXPECT_NE(told["problem"].asString().find("not sealed"), std::string::npos)
      << told["problem"].asString();
  EXPECT_EQ(told["dropped"].asLong(), 3);
  say(*anna_, "lunch?");
  await(dora, "received", {{"data", "lunch?"}});
  EXPECT_FALSE(dora.waitFor("received", {{"data", "lunch is off"}}, StationProcess::Seconds(0)));
}

TEST_F(SealShareTest, TheToolsSealWhatTheySendWhereTheyReadTheKey) {
  addKey();
  startThree();
  StationProcess& dora = start("DORA", 14, {"--seal", "require"});
  run(dora, "project enter Film");
  const std::string projects = folder_ / "projects";
  const std::vector<std::string> way{"--port", std::to_string(port_), "--send-to",
                                     "127.255.255.255"};
  std::vector<std::string> words{KV_SHARE,         "send",     "user-message", "--source",
                                 "ADMIN",          "--target", "<All>",        "--data",
                                 "restart at six", "--keys",   projects};
  words.insert(words.end(), way.begin(), way.end());
  const ProgramRun sent = runProgram(words);
  EXPECT_NE(sent.output.find(" and a seal, to "), std::string::npos) << sent.output << sent.errors;
  EXPECT_FALSE(await(dora, "received", {{"data", "restart at six"}})["unverified"].asBool());
  words = {KV_SHARE, "doctor", projects,   "--user",   "ADMIN",
           "--host", "ADMIN",  "--config", "/dev/null"};
  words.insert(words.end(), way.begin(), way.end());
  const ProgramRun doctor = runProgram(words);
  EXPECT_NE(doctor.output.find("own datagram"), std::string::npos) << doctor.output;
  EXPECT_NE(doctor.output.find("clock agrees with those of 4 stations"), std::string::npos)
      << doctor.output;
  // Told as refused is the stranger alone.
  shout("lunch is off");
  await(dora, "network", {});
  EXPECT_FALSE(dora.waitFor("network", {}, StationProcess::Seconds(3)));
}

TEST_F(SealShareTest, AFloodOfWordsWithoutSealsTakesNoPlaceFromSealedOnes) {
  addKey();
  startThree();
  std::deque<LoopbackSender> strangers;
  for (int each = 0; each < 5; ++each) strangers.emplace_back(port_);
  for (const LoopbackSender& stranger : strangers) {
    for (int number = 0; number < 80; ++number) {
      ASSERT_TRUE(stranger.send({"d", "10", project_, "MALLORY", "<All>", "buy"}));
    }
  }
  say(*anna_, "lunch?");
  await(*carla_, "received", {{"data", "lunch?"}});
  const JsonValue told = await(*carla_, "network", {});
  EXPECT_NE(told["problem"].asString().find("words without a seal"), std::string::npos)
      << told["problem"].asString();
  const auto all = carla_->events("received");
  const auto bought = std::ranges::count_if(
      all, [](const JsonValue& each) { return each["data"].asString() == "buy"; });
  EXPECT_LT(bought, 300) << "of 400";
}

TEST_F(SealShareTest, OnlyTheStationsThatTheConfigurationNamesAreHeard) {
  addKey();
  startThree();
  StationProcess& dora = start("DORA", 14, {"--set", "accept_stations=CARLA, anna"});
  run(dora, "project enter Film");
  for (const char* const each : {"ANNA", "BEN"}) await(dora, "presence", {{"user", each}});
  say(*ben_, "lunch?");
  shout("lunch is off");
  const JsonValue told = await(dora, "network", {});
  EXPECT_NE(told["problem"].asString().find("(BEN) sends is not taken"), std::string::npos)
      << told["problem"].asString();
  await(dora, "audit", {{"what", "refused"}});
  say(*anna_, "supper?");
  await(dora, "received", {{"data", "supper?"}});
  for (const char* const words : {"lunch?", "lunch is off"}) {
    EXPECT_FALSE(dora.waitFor("received", {{"data", words}}, StationProcess::Seconds(0))) << words;
  }
}

TEST_F(SealShareTest, ARecordedMessageIsNotTakenAgainAndAChangedOneNever) {
  addKey();
  startThree();
  const Eavesdropper network(port_);
  say(*anna_, "lunch?");
  await(*carla_, "received", {{"data", "lunch?"}});
  const std::string recorded = network.next("lunch?");
  ASSERT_FALSE(recorded.empty());
  EXPECT_FALSE(recorded.ends_with('\xAC'));
  std::string changed = recorded;
  changed.replace(changed.find("lunch?"), 6, "supper");
  EXPECT_TRUE(stranger_.sendBytes(recorded));
  EXPECT_TRUE(stranger_.sendBytes(changed));
  const JsonValue told = await(*carla_, "network", {});
  EXPECT_NE(told["problem"].asString().find("pretends"), std::string::npos);
  settle(*carla_);
  EXPECT_FALSE(carla_->waitFor("received", {{"data", "lunch?"}}, StationProcess::Seconds(0)));
  EXPECT_FALSE(carla_->waitFor("received", {{"data", "supper"}}, StationProcess::Seconds(0)));
}

TEST_F(SealShareTest, ARotationLosesNoMessage) {
  const std::string first = addKey();
  startThree();
  StationProcess& dora = start("DORA", 14, {"--seal", "require"});
  StationProcess& plain = start("EMIL", 15, {"--seal", "off"});
  const Eavesdropper network(port_);
  int said = 0;
  const auto allHear = [&] {
    const std::string text = "number " + std::to_string(++said);
    say(*anna_, text);
    for (StationProcess* each : {carla_, &dora, &plain}) await(*each, "received", {{"data", text}});
    return network.next(text);
  };
  const std::string before = allHear();
  const std::string second = addKey();
  allHear();
  // A key is used when all have read it, and not before.
  constexpr auto kBetweenWords = std::chrono::milliseconds(100);  // more is taken of nobody
  EXPECT_NE(keys({"use", second}).status, 0);
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(3);
  while (keys({"use", second}).status != 0 && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(kBetweenWords);
    allHear();
  }
  const auto keyIn = [](const std::string& datagram) {
    constexpr std::size_t kFromEnd = 56;
    return datagram.substr(datagram.size() - kFromEnd, 8);
  };
  std::string now = allHear();
  for (int tries = 0; tries < 600 && keyIn(now) == keyIn(before); ++tries) {
    std::this_thread::sleep_for(kBetweenWords);
    now = allHear();
  }
  EXPECT_NE(keyIn(now), keyIn(before));
  EXPECT_EQ(keys({"remove", first}).status, 0);
  for (int count = 0; count < 20; ++count) allHear();
}

TEST_F(SealShareTest, TheCommandForKeysSaysWhatItDidAndWhatIsWrong) {
  EXPECT_NE(keys({"list"}).output.find("no keys"), std::string::npos);
  const std::string id = addKey();
  EXPECT_NE(keys({"list"}).output.find(id), std::string::npos);
  EXPECT_EQ(keys({"list"}).output.find("warning"), std::string::npos);
  EXPECT_EQ(keys({"remove", id}).status, 1) << "in use";
  EXPECT_NE(keys({"remove", id}).errors.find("--force"), std::string::npos);
  EXPECT_EQ(keys({"use"}).status, 2);
  EXPECT_EQ(keys({"burn"}).status, 2);
  EXPECT_EQ(keys({"list", id}).status, 2);
  EXPECT_EQ(keys({"use", "nobody"}).status, 1);
  EXPECT_EQ(keys({"remove", id.substr(0, 4), "--force"}).status, 0);
}

TEST_F(SealShareTest, WhoDidWhatIsInAnAuditLogThatShowsWhetherItWasChanged) {
  const std::string file = folder_ / "audit.log";
  const std::string key = addKey();
  StationProcess& dora = start("DORA", 21, {"--audit", file});
  StationProcess& emil = start("EMIL", 22);
  run(dora, "project create Film");
  run(dora, "project enter Film");
  const std::string edit = run(dora, "edit create \"Opening titles\"").asString();
  run(dora, "edit rename " + edit + " Titles");
  run(dora, "edit save " + edit);
  run(dora, "edit restore " + edit + " 1");
  run(dora, "edit delete " + edit);
  run(dora, "trash restore " + edit);
  run(dora, "edit give " + edit + " EMIL --force");
  const std::string bin = run(dora, "bin create Dailies").asString();
  run(dora, "bin destroy " + bin);
  run(dora, "trash empty");
  run(emil, "request 21 identify");
  await(dora, "audit", {{"what", "command"}});
  ASSERT_EQ(keys({"add", "--audit", file}).status, 0);

  std::ifstream lines(file);
  std::vector<std::string> did;
  for (std::string line; std::getline(lines, line);) {
    did.push_back((*parseJson(line))["what"].asString());
  }
  std::erase(did, "keys");  // at a moment of its own
  EXPECT_EQ(did, (std::vector<std::string>{"started", "version", "deleted", "restored", "owner",
                                           "deleted", "emptied", "command", "key"}));
  const ProgramRun whole = runProgram({KV_SHARE, "audit", "verify", file});
  EXPECT_EQ(whole.status, 0) << whole.output << whole.errors;
  EXPECT_NE(whole.output.find("records, each as it was written; the last has the hash "),
            std::string::npos);
  std::ifstream again(file);
  std::string text(std::istreambuf_iterator<char>(again), {});
  text.replace(text.find("EMIL"), 4, "OTTO");
  std::ofstream(file) << text;
  const ProgramRun changed = runProgram({KV_SHARE, "audit", "verify", file});
  EXPECT_EQ(changed.status, 1);
  EXPECT_NE(changed.output.find("does not follow from the line before"), std::string::npos);
}

TEST_F(SealShareTest, AnAuditLogThatCannotBeWrittenIsNoStart) {
  const ProgramRun refused = runProgram(
      {KV_STATION, "--projects", folder_ / "projects", "--audit", folder_ / "missing/audit.log"});
  EXPECT_EQ(refused.status, 2);
  EXPECT_NE(refused.errors.find("missing/audit.log: "), std::string::npos) << refused.errors;
}

}  // namespace
