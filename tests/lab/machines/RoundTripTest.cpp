// What a network file system's server is asked, counted by the kernel that asks it.

#include <cstdio>
#include <map>
#include <sstream>
#include <thread>

#include "tests/lab/machines/NetFsTest.h"

using namespace korvel;

namespace {

constexpr int kProjects = 200;
constexpr int kEdits = 1000;

// Of a saved edit: the folder asked and listed, the file looked up, opened, read and closed. What
// was done to it is told from its history: that folder listed, and two versions looked up and read.
constexpr long kUntilShown = 8;
constexpr long kUntilTold = kUntilShown + 16;

class RoundTripTest : public NetFsTest {
 protected:
  RoundTripTest() {
    // The stations that every scenario starts would be counted, too.
    site_.endAll();
    ben_ = nullptr;
  }

  [[nodiscard]] std::string folder() const { return site_.projects("first"); }

  std::string onFirst(const std::string& script) { return site_.on("first", {"sh", "-c", script}); }

  /// Runs a script in the projects directory on the server, where other scenarios left theirs, and
  /// lets the files come to rest: younger ones are not kept by a cache.
  void fill(const std::string& script) {
    const std::string go = "cd " + site_.projects("server") + " && ";
    site_.on("server", {"bash", "-c", go + "rm -rf P* && " + script});
    site_.on("server", {"sleep", "3"});
    site_.on("server", {"bash", "-c", go + "for f in . P*; do : > $f/other; rm $f/other; done"});
  }

  /// Script lines that make so many projects, and edits in them.
  static std::string makingProjects(int count) {
    return "for n in $(seq " + std::to_string(count) +
           "); do printf -v p Pc0de%028x $n; mkdir -m 777 $p;"
           " echo \"{\\\"name\\\":\\\"Film $n\\\"}\" > $p/project.json; done";
  }

  static std::string makingEdits(int count) {
    return "edit=$(cat " KV_SAMPLES "/simple_cut.otio); for n in $(seq " + std::to_string(count) +
           "); do printf -v e Ec0de%028x $n; echo \"$edit\" > $p/$e.otio; done";
  }

  /// The machine as one that has never seen the share: nothing is kept by programs or the kernel.
  void forgetAll() {
    onFirst("rm -rf /run/home/.cache && sync && echo 3 > /proc/sys/vm/drop_caches");
  }

  using Counts = std::map<std::string, long>;

  /// How many operations of each kind the machine has sent to this server so far.
  Counts sent() {
    std::istringstream lines(onFirst("cat /proc/self/mountstats"));
    Counts counts;
    bool isHere = false;
    bool isCount = false;
    for (std::string line; std::getline(lines, line);) {
      if (line.starts_with("device ")) {
        isHere = line.find(" mounted on /media/" + GetParam() + " ") != std::string::npos;
        isCount = false;
      }
      if (line.find("per-op statistics") != std::string::npos) isCount = isHere;
      std::istringstream words(line);
      std::string operation;
      long count = 0;
      if (isCount && words >> operation >> count && operation.ends_with(':')) {
        counts[operation] += count;
      }
    }
    EXPECT_FALSE(counts.empty());
    return counts;
  }

  /// What was sent while the action ran; it must be at most `most`.
  void keeps(const std::string& what, const std::function<void()>& action, long most) {
    const Counts before = sent();
    action();
    long all = 0;
    std::string kinds;
    for (const auto& [operation, count] : sent()) {
      const auto earlier = before.find(operation);
      const long more = count - (earlier == before.end() ? 0 : earlier->second);
      // Files that were read come with the right to keep them, which the kernel gives back whenever
      // it likes: what ran before has caused that.
      if (operation != "DELEGRETURN:") all += more;
      if (more > 0) kinds += " " + operation + std::to_string(more);
    }
    std::printf("%s: %ld,%s\n", what.c_str(), all, kinds.c_str());
    EXPECT_LE(all, most) << what << kinds;
    shows(what + " " + std::to_string(all));
  }

  /// The same of a command to a station that was just started, whose start is over.
  void keepsAtStart(const std::string& what, const std::string& line, long most) {
    StationProcess& station = site_.start("first", "ANNA");
    run(station, "who");
    // Its note and its marker are written and looked at once more; nothing tells when that is over.
    rest(Seconds(4));
    keeps(
        what, [&] { run(station, line); }, most);
    site_.end(station);
  }
};

TEST_P(RoundTripTest, ProjectsAreListed) {
  fill(makingProjects(kProjects));
  forgetAll();
  keepsAtStart("list of 200 projects: first", "project list", 900);
  keepsAtStart("again", "project list", 230);
  const auto locks = [this] { onFirst(std::string(KV_SHARE) + " locks " + folder()); };
  forgetAll();
  keeps("kv-share locks: first", locks, 1450);
  keeps("again", locks, 230);
}

TEST_P(RoundTripTest, AProjectOfAThousandEditsIsEntered) {
  fill(makingProjects(1) + "; " + makingEdits(kEdits));
  forgetAll();
  keepsAtStart("first", "project enter \"Film 1\"", 3300);
  keepsAtStart("again", "project enter \"Film 1\"", 60);
}

TEST_P(RoundTripTest, NothingHappensInAnOpenProject) {
  fill(makingProjects(1));
  StationProcess& station = site_.start("first", "ANNA");
  run(station, "project enter \"Film 1\"");
  rest(Seconds(10));
  const auto wait = [] { std::this_thread::sleep_for(std::chrono::minutes(1)); };
  keeps("a minute", wait, 70);
}

TEST_P(RoundTripTest, AnotherSavesAnEdit) {
  fill(makingProjects(1));
  StationProcess& shown = site_.start("first", "ANNA");
  StationProcess& saving = site_.start("second", "BEN");
  run(shown, "project enter \"Film 1\"");
  run(saving, "project enter \"Film 1\"");
  const std::string edit = run(saving, "edit create Cut").asString();
  ASSERT_TRUE(shown.waitFor("received", {{"type_name", "EditCreated"}}, kSoon));
  const auto isListed = [&](const std::string& name) {
    return writeJson(run(shown, "edit list")).find(name) != std::string::npos;
  };
  const auto save = [&](const std::string& name) {
    run(saving, "edit save " + edit);
    EXPECT_TRUE(shown.waitFor("received", {{"type_name", "EditSaved"}}, kSoon));
    EXPECT_TRUE(seeks([&] { return isListed(name); }, kSoon).isSeen);
  };
  // With the watch's questions of the meantime. The history is read right after the edit: on a slow
  // machine before this program has asked whether that is shown.
  const long most = Site::pace() > 1 ? kUntilTold : kUntilShown;
  run(saving, "edit rename " + edit + " Cut2");
  rest(Seconds(10));
  keeps(
      "until it is shown", [&] { save("Cut2"); }, most);
  run(saving, "edit rename " + edit + " Cut3");
  rest(Seconds(10));
  const auto saveAndTell = [&] {
    save("Cut3");
    EXPECT_TRUE(shown.waitFor("happened", {{"name", "Cut3"}}, kSoon));
  };
  keeps("until what was done to it is told", saveAndTell, kUntilTold);
}

INSTANTIATE_TEST_SUITE_P(, RoundTripTest, testing::Values("nfs4"),
                         [](const auto& kind) { return kind.param; });

}  // namespace
