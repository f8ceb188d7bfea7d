#include <unistd.h>

#include <chrono>
#include <fstream>
#include <map>
#include <thread>

#include "tests/share/SharedStations.h"
#include "tests/support/LoopbackSender.h"
#include "tests/support/Slowdown.h"

using namespace korvel;

namespace {

constexpr int kSenders = 3;
constexpr int kMessagesEach = 33'334;

/// Follows a station's event file: what was received of whom, and what is told to be dropped.
class EventTally {
 public:
  explicit EventTally(const std::string& path) : path_(path) {}

  /// Reads what was written since the last time.
  void readOn() {
    if (!file_.is_open()) file_.open(path_);
    file_.clear();
    for (std::string line; std::getline(file_, line); pending_.clear()) {
      pending_ += line;
      if (file_.eof()) return;  // the rest of the line is yet to come
      if (const Result<JsonValue> event = parseJson(pending_)) count(*event);
    }
  }

  long received = 0;
  long dropped = 0;
  bool hasEntered = false;
  bool isInOrder = true;

 private:
  void count(const JsonValue& event) {
    const std::string& name = event["event"].asString();
    hasEntered = hasEntered || event["line"].asString() == "project enter Film";
    if (name == "network") dropped += event["dropped"].asLong();
    if (name != "received") return;
    ++received;
    if (event["type"].asLong() != 10) return;
    long& last = last_.try_emplace(event["source"].asString(), -1).first->second;
    const long number = std::stol(event["data"].asString());
    isInOrder = isInOrder && number > last;
    last = number;
  }

  std::string path_;
  std::ifstream file_;
  std::string pending_;
  std::map<std::string, long> last_;
};

class FloodTest : public SharedStations {
 protected:
  FloodTest() : SharedStations("/dev/shm") {}

  /// Reads events until `done` or the time is over.
  template <typename Condition>
  bool readUntil(Condition done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(60) * kSlowdown;
    for (; !done(); tally_.readOn()) {
      if (std::chrono::steady_clock::now() > deadline) return false;
      ::usleep(20'000);
    }
    return true;
  }

  [[nodiscard]] std::string openProject() const {
    for (const auto& entry : std::filesystem::directory_iterator(folder_ / "projects"))
      if (entry.path().filename().string()[0] == 'P') return entry.path().filename().string();
    return {};
  }

  std::string events_ = folder_ / "events";
  EventTally tally_{events_};
};

void flood(int port, int sender, long& taken) {
  const LoopbackSender socket(port);
  const std::string name = "S" + std::to_string(sender);
  for (int i = 0; i < kMessagesEach; ++i)
    taken += socket.send({"d", "10", "", name, "NOBODY", std::to_string(i)});
}

TEST_F(FloodTest, AStrangerFillsTheLogWithAThousandLinesAndIsCounted) {
  const std::string log = folder_ / "log";
  StationProcess::Options options{KV_STATION, folder_ / "projects", "ANNA", "ANNA", 11, port_, {}};
  options.more = {"--events", events_, "--log", log, "--set", "log_incoming_net_messages=1"};
  StationProcess station(options);
  station.type("project create Film");
  station.type("project enter Film");
  ASSERT_TRUE(readUntil([this] { return tally_.hasEntered; })) << station.errorText();

  const LoopbackSender socket(port_);
  for (int i = 0; i < 2000; ++i) {
    ASSERT_TRUE(socket.send({"d", "2", openProject(), "E0001"}));
  }
  const auto content = [&log] {
    std::ifstream file(log);
    return std::string(std::istreambuf_iterator<char>(file), {});
  };
  ASSERT_TRUE(readUntil([&] {
    return content().find(" more like this, of messages from 127.0.0.1:") != std::string::npos;
  })) << content().substr(0, 2000);
  const std::string text = content();
  EXPECT_NE(text.find("fill the log: from here on their lines are counted"), text.npos);
  EXPECT_LT(std::count(text.begin(), text.end(), '\n'), 1700);
}

TEST_F(FloodTest, AHundredThousandMessagesDuringAWaitForAFileArriveInOrderOrAreTold) {
  StationProcess::Options options{KV_STATION, folder_ / "projects", "ANNA", "ANNA", 11, port_, {}};
  // What is looked at is the queue: that one source may send less is tested elsewhere.
  options.more = {"--events", events_, "--set", "receive_limit=0"};
  StationProcess station(options);
  station.type("project create Film");
  station.type("project enter Film");
  ASSERT_TRUE(readUntil([this] { return tally_.hasEntered; })) << station.errorText();

  // The station waits a second for this bin's file, which never comes.
  ASSERT_TRUE(LoopbackSender(port_).send({"d", "7", openProject(), "G0001", "1"}));
  std::array<long, kSenders> taken{};
  std::vector<std::thread> senders;
  for (int i = 0; i < kSenders; ++i)
    senders.emplace_back(
        [this, i, &taken] { flood(port_, i, taken[static_cast<std::size_t>(i)]); });
  for (std::thread& sender : senders) sender.join();

  const long sent = 1 + taken[0] + taken[1] + taken[2];
  EXPECT_EQ(sent, 1 + kSenders * kMessagesEach);
  EXPECT_TRUE(readUntil([&] { return tally_.received + tally_.dropped >= sent; }));
  EXPECT_EQ(tally_.received + tally_.dropped, sent) << tally_.dropped << " told as dropped";
  EXPECT_TRUE(tally_.isInOrder);
  EXPECT_GT(tally_.received, 1000);
}

}  // namespace
