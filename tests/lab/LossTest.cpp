#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <memory>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "station/base/Strings.h"
#include "station/seal/Seals.h"
#include "tests/lab/LabTest.h"
#include "tests/share/ProgramRun.h"
#include "tests/support/BecomesTrue.h"

using namespace korvel;

namespace {

/// Three stations whose every cable is bad.
class LossTest : public LabTest {
 protected:
  void openWith(LineFaults faults) {
    for (const char* const host : {"ANNA", "BEN", "CARLA"}) {
      facility_.workstation(host, {&office_}).cable().degrade(faults);
      ++faults.seed;
    }
    facility_.open();
  }

  void losePercent(int percent) {
    openWith({.lost = percent});
    constexpr int kRounds = 3;
    for (int round = 0; round < kRounds || facility_.counts().lost == 0; ++round) {
      everyoneWorks(facility_);
    }
    EXPECT_GT(facility_.counts().lost, 0u);
    const std::string agreed = expectCatchingUp();
    shows(figures() + ", " + std::to_string(facility_.counts().lost) + " datagrams lost; " +
          agreed);
  }
};

TEST_F(LossTest, OnePercentIsLost) { losePercent(1); }

TEST_F(LossTest, TenPercentAreLost) { losePercent(10); }

TEST_F(LossTest, ThirtyPercentAreLost) { losePercent(30); }

TEST_F(LossTest, AllAreLost) { losePercent(100); }

/// BEN and CARLA ask ANNA for edits of hers in turn, and are refused or given.
TEST_F(LossTest, AsksAndAnswersArriveOnceThoughHalfIsLost) {
  openWith({.lost = 50});
  constexpr int kAsks = 8;
  const auto& machines = facility_.machines();
  Workstation* const anna = machines[0].get();
  for (int i = 0; i < kAsks; ++i) anna->run("edit create Cut" + std::to_string(i));
  expectCatchingUp();
  for (int i = 0; i < kAsks; ++i) {
    Workstation& asker = *machines[1 + i % 2];
    const std::string edit = "Cut" + std::to_string(i);
    asker.run("ask " + edit + " please");
    const auto asked = anna->station().waitFor("asked", {{"name", edit}}, std::chrono::minutes(1));
    ASSERT_TRUE(asked) << edit;
    anna->run("answer " + std::to_string((*asked)["number"].asLong()) +
              (i % 4 < 2 ? " give" : " no later"));
    const auto answered =
        asker.station().waitFor("answered", {{"name", edit}}, std::chrono::minutes(1));
    ASSERT_TRUE(answered) << edit;
    EXPECT_EQ((*answered)["answer"].asString(), i % 4 < 2 ? "give" : "no");
  }
  EXPECT_EQ(anna->station().events("asked").size(), kAsks);
  for (const int asker : {1, 2}) {
    EXPECT_EQ(machines[asker]->station().events("answered").size(), kAsks / 2) << asker;
  }
  EXPECT_TRUE(anna->run("asks").elements().empty());
  EXPECT_GT(facility_.counts().lost, 0u);
  shows(figures() + ", " + std::to_string(facility_.counts().lost) + " datagrams lost; " +
        std::to_string(kAsks) + " asks and as many answers came once each");
}

TEST_F(LossTest, AllDatagramsComeTwice) {
  openWith({.doubled = 100});
  everyoneWorks(facility_);
  everyoneGives(facility_);
  expectAgreement();
  EXPECT_GT(facility_.counts().doubled, 0u);
  shows(figures() + ", " + std::to_string(facility_.counts().doubled) + " datagrams doubled");
}

TEST_F(LossTest, DatagramsOvertakeEachOther) {
  openWith({.late = 30});
  everyoneWorks(facility_);
  expectAgreement();
  EXPECT_GT(facility_.counts().late, 0u);
  shows(figures() + ", " + std::to_string(facility_.counts().late) + " datagrams overtaken");
}

/// Hears at a machine, beside its station, what others' datagrams arrive there.
class Witness {
 public:
  explicit Witness(Workstation& machine) : machine_(machine) {
    machine.space().within([this] { open(); });
  }
  Witness(const Witness&) = delete;
  Witness& operator=(const Witness&) = delete;
  ~Witness() { ::close(socket_); }

  /// Takes what waits; how many datagrams.
  int drain() {
    int count = 0;
    for (std::array<char, 65536> bytes;; ++count) {
      sockaddr_in from{};
      socklen_t size = sizeof from;
      const ssize_t length = ::recvfrom(socket_, bytes.data(), bytes.size(), MSG_DONTWAIT,
                                        reinterpret_cast<sockaddr*>(&from), &size);
      if (length < 0) return count;
      std::array<char, INET_ADDRSTRLEN> address{};
      ::inet_ntop(AF_INET, &from.sin_addr, address.data(), address.size());
      if (machine_.cable().address() != address.data()) {
        note({bytes.data(), static_cast<std::size_t>(length)}, address.data());
      }
    }
  }

  void startOver() {
    drain();
    sealed_.clear();
    plain_.clear();
    keys_.clear();
    machine_.countFromNow();
  }

  /// What arrived and the station did not take, or took without that it arrived; with `onlySealed`
  /// it takes nothing else.
  std::string difference(bool onlySealed) {
    drain();
    std::map<std::string, int> left = machine_.messages("received");
    for (auto& [text, count] : left) count = -count;
    for (const auto& [text, count] : sealed_) left[text] += count;
    if (!onlySealed) {
      for (const auto& [text, count] : plain_) left[text] += count;
    }
    std::string told;
    for (const auto& [text, count] : left) {
      if (count == 0) continue;
      told += machine_.name() + (count > 0 ? " lost " : " invented ") + text + "\n";
    }
    return told;
  }

  [[nodiscard]] int sealedCount() const { return sum(sealed_); }
  [[nodiscard]] int plainCount() const { return sum(plain_); }

  /// Whether a plain datagram arrived that holds these words.
  bool heard(const std::string& words) {
    drain();
    const std::string digits = hexText(words);
    return std::ranges::any_of(
        plain_, [&digits](const auto& each) { return each.first.find(digits) != each.first.npos; });
  }

  /// Whether the latest seals of so many others were made with this key.
  bool sawKey(const std::string& key, std::size_t others) {
    drain();
    return keys_.size() == others &&
           std::ranges::all_of(keys_, [&key](const auto& each) { return each.second == key; });
  }

 private:
  void open() {
    constexpr int kStationsPort = 27015;
    const int yes = 1;
    const int buffer = 64 << 20;
    sockaddr_in here{};
    here.sin_family = AF_INET;
    here.sin_port = htons(kStationsPort);
    socket_ = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    ::setsockopt(socket_, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
    ::setsockopt(socket_, SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer);
    EXPECT_EQ(::bind(socket_, reinterpret_cast<const sockaddr*>(&here), sizeof here), 0);
  }

  void note(const std::string& datagram, const std::string& sender) {
    const SealedText parts = takeSealApart(datagram);
    ++(parts.seal ? sealed_ : plain_)[hexText(parts.text)];
    if (parts.seal) keys_[sender] = parts.seal->keyText();
  }

  static int sum(const std::map<std::string, int>& counts) {
    int all = 0;
    for (const auto& [text, count] : counts) all += count;
    return all;
  }

  Workstation& machine_;
  int socket_ = -1;
  std::map<std::string, int> sealed_;  ///< texts as hexadecimal digits
  std::map<std::string, int> plain_;
  std::map<std::string, std::string> keys_;  ///< of the latest seal, by the sender's address
};

/// Words from one station to another.
struct Words {
  std::size_t to = 0;  ///< the machine
  std::string text;
};

/// How often a machine's user was shown these words.
long timesShown(const Workstation& machine, const std::string& text) {
  return std::ranges::count_if(machine.station().events("said"), [&text](const JsonValue& each) {
    return each["text"].asString() == text && !each["own"].asBool();
  });
}

TEST_F(LossTest, WordsThatArriveAreShownOnceEach) {
  openWith({.lost = 30, .doubled = 30});
  constexpr int kEach = 12;
  const auto& machines = facility_.machines();
  std::vector<std::unique_ptr<Witness>> witnesses;
  for (const auto& each : machines) witnesses.push_back(std::make_unique<Witness>(*each));
  std::vector<Words> sent;
  for (int i = 0; i < kEach; ++i) {
    for (std::size_t from = 0; from < machines.size(); ++from) {
      const std::size_t to = (from + 1 + static_cast<std::size_t>(i % 2)) % machines.size();
      sent.push_back({to, "Word " + std::to_string(i) + " of " + machines[from]->host() + "."});
      machines[from]->run("say " + machines[to]->host() + " \"" + sent.back().text + "\"");
    }
  }
  const auto wrong = [&] {
    std::string told;
    for (const auto& [to, text] : sent) {
      const long times = timesShown(*machines[to], text);
      if (times == (witnesses[to]->heard(text) ? 1 : 0)) continue;
      told += text + " was shown " + std::to_string(times) + " times.\n";
    }
    return told;
  };
  for (int tries = 0; !wrong().empty() && tries < 60; ++tries) {
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
  }
  EXPECT_EQ(wrong(), "");
  const auto shown = std::ranges::count_if(
      sent, [&](const Words& each) { return timesShown(*machines[each.to], each.text) == 1; });
  EXPECT_GT(shown, 0);
  EXPECT_GT(facility_.counts().lost, 0u);
  EXPECT_GT(facility_.counts().doubled, 0u);
  shows(figures() + ", " + std::to_string(shown) + " of " + std::to_string(sent.size()) +
        " words arrived, and each was shown once");
}

/// PETRA's station knows nothing of asks and conversations: it sends words and shows what it gets.
TEST_F(LossTest, BetweenOursAndAPlainOneWordsAreShownOnceEachAndAsksAreWords) {
  openWith({.lost = 30, .doubled = 30});
  constexpr int kEach = 12;
  Workstation& anna = *facility_.machines()[0];
  Workstation& petras = *facility_.machines()[2];
  Witness atAnnas(anna);
  Witness atPetras(petras);
  anna.run("user add PETRA");
  const auto numbered = [](const char* words, int i) { return words + std::to_string(i) + "."; };
  for (int i = 0; i < kEach; ++i) {
    petras.space().within([&] {
      const ProgramRun sent = runProgram({KV_SHARE, "send", "user-message", "--source", "PETRA",
                                          "--target", "ANNA", "--data", numbered("Hers ", i)});
      EXPECT_EQ(sent.status, 0) << sent.errors;
    });
    anna.run("say PETRA \"" + numbered("Own ", i) + "\"");
    const std::string cut = "Cut" + std::to_string(i);
    anna.run("edit create " + cut);
    anna.run("edit save " + cut);
    anna.run("edit give " + cut + " PETRA --force");
    anna.run("ask " + cut + " please");
  }
  const auto isAsItArrived = [&] {
    for (int i = 0; i < kEach; ++i) {
      const std::string words = numbered("Hers ", i);
      if (timesShown(anna, words) != (atAnnas.heard(words) ? 1 : 0)) return false;
    }
    return true;
  };
  EXPECT_TRUE(becomesTrue(isAsItArrived));
  int shown = 0;
  int own = 0;
  int asks = 0;
  for (int i = 0; i < kEach; ++i) {
    shown += timesShown(anna, numbered("Hers ", i)) == 1;
    own += atPetras.heard(numbered("Own ", i));
    asks += atPetras.heard("ANNA asks for the edit \"Cut" + std::to_string(i) + "\": please [ask ");
  }
  EXPECT_GT(shown, 0);
  EXPECT_GT(own, 0);
  EXPECT_GT(asks, 0);
  const std::string all = " of " + std::to_string(kEach);
  shows(figures() + ", " + std::to_string(shown) + all + " words of a plain station arrived and " +
        "were shown once each; " + std::to_string(own) + all + " came to it, and " +
        std::to_string(asks) + all + " asks, as words");
}

/// Four stations seal their messages, and one of these takes sealed ones alone. Two more are plain.
class RotationTest : public LossTest {
 protected:
  static constexpr const char* kStrict = "DORA";

  void openAll() {
    LineFaults faults{.lost = 10};
    for (const auto& [host, policy] :
         std::vector<std::pair<std::string, std::string>>{{"ANNA", "accept"},
                                                          {"BEN", "accept"},
                                                          {"CARLA", "accept"},
                                                          {kStrict, "require"},
                                                          {"EMIL", "off"},
                                                          {"FRED", "off"}}) {
      Workstation::Setup setup;
      setup.host = host;
      setup.more = {"--seal", policy};
      Workstation& machine = facility_.workstation(std::move(setup), {&office_});
      machine.cable().degrade(faults);
      ++faults.seed;
      witnesses_.push_back(std::make_unique<Witness>(machine));
    }
    facility_.open();
    // Stations read the keys every five seconds from their start on: now not all at the same time.
    for (const std::size_t late : {std::size_t{1}, std::size_t{3}}) {
      std::this_thread::sleep_for(kApart);
      Workstation& machine = *facility_.machines()[late];
      machine.cutPower();
      machine.switchOn();
      machine.enter("Film");
    }
    while (drainAll() > 0) std::this_thread::sleep_for(kQuiet);
    for (const auto& witness : witnesses_) witness->startOver();
  }

  /// Whether each of the four is known to seal with this key.
  bool allUse(const std::string& key) {
    constexpr std::size_t kOthers = 3;
    return witnesses_[0]->sawKey(key, kOthers) && witnesses_[1]->sawKey(key, kOthers);
  }

  int drainAll() {
    int count = 0;
    for (const auto& witness : witnesses_) count += witness->drain();
    return count;
  }

  ProgramRun keys(std::vector<std::string> words) {
    words.insert(words.begin(), {KV_SHARE, "keys", facility_.folderOf("")});
    return runProgram(words);
  }

  std::string addKey() {
    const ProgramRun made = keys({"add", "--json"});
    EXPECT_EQ(made.status, 0) << made.errors;
    return (*parseJson(made.output))["id"].asString();
  }

  /// Works on until `isSo`, a minute at most.
  template <typename Condition>
  void workUntil(Condition isSo) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!isSo()) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline);
      for (const auto& machine : facility_.machines()) {
        machine->run("bin create \"" + machine->newName("Dailies") + "\"");
      }
      drainAll();
    }
  }

  std::string difference() {
    std::string told;
    for (std::size_t each = 0; each < witnesses_.size(); ++each) {
      told += witnesses_[each]->difference(facility_.machines()[each]->host() == kStrict);
    }
    return told;
  }

  /// Every station took what arrived at its machine, once.
  void expectNothingLost() {
    std::string told = difference();
    for (int tries = 0; !told.empty() && tries < 60; ++tries) {
      std::this_thread::sleep_for(kQuiet);
      told = difference();
    }
    EXPECT_EQ(told, "");
  }

  static constexpr std::chrono::milliseconds kQuiet{500};
  static constexpr std::chrono::milliseconds kApart{1700};
  std::vector<std::unique_ptr<Witness>> witnesses_;
};

TEST_F(RotationTest, OfWhatArrivesNothingIsLostWhileTheKeyIsChanged) {
  const std::string first = addKey();
  openAll();
  everyoneWorks(facility_);
  expectNothingLost();
  EXPECT_TRUE(allUse(first));
  const std::string second = addKey();
  everyoneWorks(facility_);
  workUntil([&] { return keys({"use", second}).status == 0; });
  workUntil([&] { return allUse(second); });
  EXPECT_EQ(keys({"remove", first}).status, 0);
  everyoneWorks(facility_);
  expectNothingLost();
  EXPECT_TRUE(allUse(second));
  const std::string agreed = expectCatchingUp();
  int sealed = 0;
  int plain = 0;
  for (const auto& witness : witnesses_) {
    sealed += witness->sealedCount();
    plain += witness->plainCount();
  }
  EXPECT_GT(facility_.counts().lost, 0U);
  EXPECT_GT(plain, 0);
  shows(figures() + "; " + std::to_string(facility_.counts().lost) +
        " datagrams lost on the way, " + std::to_string(sealed) + " sealed and " +
        std::to_string(plain) + " plain ones arrived and were taken; " + agreed);
}

}  // namespace
