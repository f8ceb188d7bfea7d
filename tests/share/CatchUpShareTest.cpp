#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/support/BecomesTrue.h"
#include "tests/support/StationProcess.h"

using namespace korvel;

namespace {

std::string textOf(const std::map<std::string, std::string>& names) {
  std::string text;
  for (const auto& [cookie, name] : names)
    text.append(cookie).append(" ").append(name).append("\n");
  return text;
}

/// A station that makes, replaces and deletes edits and bins within milliseconds, and says nothing
/// of it.
class HastyWriter {
 public:
  explicit HastyWriter(std::string folder) : folder_(std::move(folder)) {}

  /// Does something to so many objects, some of them new ones.
  void work(int objects) {
    constexpr int kLongest = 60;  // milliseconds between two objects
    for (int count = 0; count < objects; ++count) {
      hurry(random(2) == 0 || cookies_.empty() ? newCookie() : cookies_[random(cookies_.size())]);
      std::this_thread::sleep_for(std::chrono::milliseconds(random(kLongest)));
    }
  }

  /// The cookies and names of all that is there.
  [[nodiscard]] std::string there() const { return textOf(there_); }

 private:
  std::size_t random(std::size_t below) { return random_() % below; }

  std::string newCookie() {
    std::array<char, 40> text{};
    const char* const kind = random(2) == 0 ? "E" : "G";
    std::snprintf(text.data(), text.size(), "%sc0de%028x", kind, static_cast<unsigned>(random_()));
    return cookies_.emplace_back(text.data());
  }

  void hurry(const std::string& cookie) {
    for (std::size_t count = 1 + random(6); count > 0; --count) {
      if (there_.contains(cookie) && random(2) == 0) {
        std::filesystem::remove(fileOf(cookie));
        there_.erase(cookie);
      } else {
        replace(cookie);
      }
      if (random(3) == 0) std::this_thread::sleep_for(std::chrono::milliseconds(random(8)));
    }
  }

  void replace(const std::string& cookie) {
    const std::string name = "Name-" + std::to_string(++names_);
    const bool isEdit = cookie.front() == 'E';
    std::ofstream(folder_ + "/elsewhere")
        << (isEdit ? R"({"OTIO_SCHEMA":"Timeline.1","metadata":{},"name":")" + name +
                         R"(","tracks":{"OTIO_SCHEMA":"Stack.1","children":[]}})"
                   : R"({"name":")" + name + R"(","contents":[]})");
    std::filesystem::rename(folder_ + "/elsewhere", fileOf(cookie));
    there_[cookie] = name;
  }

  [[nodiscard]] std::string fileOf(const std::string& cookie) const {
    return folder_ + "/" + cookie + (cookie.front() == 'E' ? ".otio" : ".json");
  }

  std::string folder_;
  std::mt19937 random_{20240531};
  std::vector<std::string> cookies_;
  std::map<std::string, std::string> there_;
  int names_ = 0;
};

/// Two stations on one projects directory. Neither hears the other's datagrams.
class CatchUpShareTest : public testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(anna.waitUntilReady());
    ASSERT_TRUE(ben.waitUntilReady());
    project = run(anna, "project create Film").asString();
    for (StationProcess* station : {&anna, &ben}) run(*station, "project enter Film");
  }

  /// Each has a port of its own, so that every datagram is lost for the other.
  [[nodiscard]] StationProcess::Options options(const std::string& user) const {
    return {KV_STATION, folder.path(), user, user, 0, freeUdpPort(), {}};
  }

  static JsonValue run(StationProcess& station, const std::string& line) {
    const JsonValue reply = station.command(line, std::chrono::minutes(2));
    EXPECT_TRUE(reply["ok"].asBool()) << line << ": " << writeJson(reply);
    return reply["result"];
  }

  /// Ben sees the change that anna made, without a message.
  void benFinds(const std::string& what, const std::string& how) {
    const auto found = ben.waitFor("changed", {{"what", what}, {"how", how}, {"origin", "folder"}},
                                   std::chrono::minutes(2));
    EXPECT_TRUE(found) << what << " " << how << ": " << ben.errorText();
  }

  /// Both come to show the same of the project, but for what is open or unsaved. That an edit was
  /// unsaved is read in a station's note, which follows the edit's file.
  void bothShowTheSame() {
    for (const char* part : {"edits", "bins", "racks", "filters", "media"}) {
      const auto shown = [part](StationProcess& station) {
        return writeJson(run(station, "state")[part]);
      };
      EXPECT_TRUE(becomesTrue([&] { return shown(anna) == shown(ben); }))
          << part << ": " << shown(anna) << " and " << shown(ben);
    }
    EXPECT_EQ(ben.events("received").size(), 0u);
  }

  /// Seconds until ben shows the files that there are, and no others; at most two minutes.
  double timeUntilShown(const HastyWriter& writer) {
    const auto begin = std::chrono::steady_clock::now();
    const auto passed = [&] {
      return std::chrono::duration<double>(std::chrono::steady_clock::now() - begin).count();
    };
    while (shownBy(ben) != writer.there() && passed() < 20) {
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return passed();
  }

  /// The cookies and names of a station's edits and bins.
  static std::string shownBy(StationProcess& station) {
    const JsonValue state = run(station, "state");
    std::map<std::string, std::string> names;
    for (const char* part : {"edits", "bins"}) {
      for (const JsonValue& each : state[part].elements()) {
        names[each["cookie"].asString()] = each["name"].asString();
      }
    }
    return textOf(names);
  }

  ScratchFolder folder;
  std::string project;
  StationProcess anna{options("ANNA")};
  StationProcess ben{options("BEN")};
};

TEST_F(CatchUpShareTest, AnEditIsFollowedFromItsMakingToItsEnd) {
  run(anna, "edit create Cut");
  benFinds("edit", "created");
  run(anna, "edit rename Cut New");
  run(anna, "edit save New");
  benFinds("edit", "refreshed");
  run(anna, "edit give New CARLA --force");
  benFinds("edit", "refreshed");
  bothShowTheSame();
  run(anna, "edit create Second");
  benFinds("edit", "created");
  run(anna, "edit delete Second");
  benFinds("edit", "destroyed");
  bothShowTheSame();
}

TEST_F(CatchUpShareTest, AnOpenEditIsReadAgainWhenItWasSavedElsewhere) {
  run(anna, "edit create Cut");
  benFinds("edit", "created");
  run(ben, "edit open Cut");
  run(anna, "edit rename Cut New");
  run(anna, "edit save New");
  benFinds("edit", "reloaded");
  EXPECT_EQ(run(ben, "edit show New")["name"].asString(), "New");
}

TEST_F(CatchUpShareTest, TheStateCountsWhatWatchingAsksOfTheShare) {
  const JsonValue before = run(ben, "state")["watch"];
  run(anna, "edit create Cut");
  benFinds("edit", "created");
  const JsonValue after = run(ben, "state")["watch"];
  for (const char* what : {"asked", "listed", "read"}) {
    EXPECT_GT(after[what].asDouble(), before[what].asDouble()) << what;
  }
  run(ben, "project leave");
  const JsonValue left = run(ben, "state");
  EXPECT_EQ(left.find("watch"), nullptr);
}

TEST_F(CatchUpShareTest, AStationMayBeToldNeverToAskTheFolder) {
  StationProcess::Options deaf = options("CARLA");
  deaf.more = {"--set", "watch_seconds=0"};
  StationProcess carla(deaf);
  ASSERT_TRUE(carla.waitUntilReady());
  run(carla, "project enter Film");
  const JsonValue state = run(carla, "state");
  EXPECT_EQ(state["project"]["name"].asString(), "Film") << writeJson(state);
  EXPECT_EQ(state.find("watch"), nullptr);
}

#ifndef KV_SANITIZED  // whose own threads wake, too

/// How often a process's threads have gone to sleep by themselves.
long sleepsOf(pid_t process) {
  long sleeps = 0;
  for (const auto& each :
       std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
    std::ifstream status(each.path() / "status");
    for (std::string word; status >> word;) {
      long count = 0;
      if (word == "voluntary_ctxt_switches:" && status >> count) sleeps += count;
    }
  }
  return sleeps;
}

void expectToRest(pid_t process) {
  // What was written is looked at once more when it is at rest.
  std::this_thread::sleep_for(std::chrono::seconds(8));
  const long before = sleepsOf(process);
  constexpr int kSeconds = 20;
  std::this_thread::sleep_for(std::chrono::seconds(kSeconds));
  EXPECT_LE(sleepsOf(process) - before, 2 * kSeconds);
}

TEST_F(CatchUpShareTest, AnIdleStationWakesTwiceASecondAtMost) {
  run(anna, "edit create Cut");
  benFinds("edit", "created");
  expectToRest(ben.pid());
}

TEST_F(CatchUpShareTest, AnIdleWindowWakesTwiceASecondAtMost) {
  ::setenv("QT_QPA_PLATFORM", "offscreen", 1);
  StationProcess::Options windowed = options("CARLA");
  windowed.more = {"--gui"};
  StationProcess carla(windowed);
  if (!carla.waitUntilReady()) {
    ASSERT_NE(carla.errorText().find("--gui: the window"), std::string::npos) << carla.errorText();
    GTEST_SKIP() << "this build has no window";
  }
  run(carla, "project enter Film");
  expectToRest(carla.pid());
}

#endif

TEST_F(CatchUpShareTest, BinsRacksAndFiltersAreFollowed) {
  run(anna, "edit create Cut");
  for (const std::string word : {"bin", "rack"}) {
    run(anna, word + " create Rushes");
    benFinds(word, "created");
    run(anna, word + " add Rushes Cut");
    benFinds(word, "reloaded");
  }
  run(anna, "filter create Unused uses=0");
  benFinds("filter", "created");
  run(anna, "filter change Unused uses=1");
  benFinds("filter", "reloaded");
  bothShowTheSame();
  run(anna, "bin destroy Rushes");
  benFinds("bin", "destroyed");
  run(anna, "rack destroy Rushes");
  benFinds("rack", "destroyed");
  run(anna, "filter destroy Unused");
  benFinds("filter", "destroyed");
  bothShowTheSame();
}

TEST_F(CatchUpShareTest, MediaIsFollowed) {
  const std::string file = folder / "a.mov";
  std::ofstream(file) << "media";
  run(anna, "media add " + file);
  benFinds("media", "added");
  bothShowTheSame();
  run(anna, "media remove " + file);
  benFinds("media", "removed");
  bothShowTheSame();
}

TEST_F(CatchUpShareTest, RoomsAreFollowed) {
  run(anna, "room create Sound");
  benFinds("room", "refreshed");
  run(anna, "room enter Sound");
  benFinds("room", "refreshed");
  EXPECT_EQ(run(ben, "state")["rooms"].elements().at(0)["state"].asString(), "held");
  run(anna, "room leave");
  benFinds("room", "refreshed");
}

TEST_F(CatchUpShareTest, WhatIsReplacedAndDeletedInQuickSuccessionIsShownAsItIsInTheEnd) {
  constexpr int kRounds = 10;
  constexpr int kFiles = 20;       // a round
  constexpr double kLongest = 10;  // seconds; a look comes at the latest 2 s after the one before
  HastyWriter writer(folder / project);
  double longest = 0;
  for (int round = 0; round < kRounds && longest < kLongest; ++round) {
    writer.work(kFiles);
    longest = std::max(longest, timeUntilShown(writer));
  }
  RecordProperty("longest_milliseconds", static_cast<int>(longest * 1000));
  EXPECT_LT(longest, kLongest) << shownBy(ben) << "but there is\n"
                               << writer.there() << ben.errorText();
}

TEST_F(CatchUpShareTest, AStationThatWasStoppedFindsWhatHappenedMeanwhile) {
  ben.signal(SIGSTOP);
  run(anna, "edit create Cut");
  run(anna, "bin create Rushes");
  ben.signal(SIGCONT);
  benFinds("edit", "created");
  benFinds("bin", "created");
  bothShowTheSame();
}

}  // namespace
