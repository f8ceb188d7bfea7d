#include "tests/lab/machines/NetFsTest.h"

#include <map>
#include <set>
#include <sstream>
#include <thread>

using namespace korvel;

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kPause = std::chrono::milliseconds(10);

/// A project's name that no other scenario uses.
std::string nextProject() {
  static int count = 0;
  return "Film" + std::to_string(++count);
}

}  // namespace

NetFsTest::NetFsTest()
    : site_(GetParam()),
      anna_(site_.start("first", "ANNA")),
      ben_(&site_.start("second", "BEN")),
      project_(nextProject()) {}

NetFsTest::Seen NetFsTest::seeks(const std::function<bool()>& question, Seconds limit) {
  const auto begin = Clock::now();
  const auto elapsed = [begin] { return Clock::now() - begin; };
  bool isSeen = question();
  while (!isSeen && elapsed() < limit * Site::pace()) {
    // Nothing tells of what another machine's cache shows; it is asked again, up to the limit.
    std::this_thread::sleep_for(kPause);
    isSeen = question();
  }
  using std::chrono::milliseconds;
  return {isSeen, static_cast<int>(std::chrono::duration_cast<milliseconds>(elapsed()).count())};
}

void NetFsTest::rest(Seconds duration) { std::this_thread::sleep_for(duration * Site::pace()); }

bool NetFsTest::canEnter(StationProcess& station) {
  const JsonValue reply = station.command("project enter " + project_);
  refusal_ = reply["error"].asString();
  return reply["ok"].asBool();
}

void NetFsTest::annaEnters(const std::string& kindOption) {
  run(anna_, "project create " + project_ + " " + kindOption);
  run(anna_, "project enter " + project_);
}

std::string NetFsTest::lockSeen(StationProcess& station) {
  const JsonValue all = run(station, "project list");
  for (const JsonValue& each : all.elements()) {
    if (each["name"].asString() == project_) return each["lock"].asString();
  }
  return {};
}

std::string NetFsTest::holderSeen(StationProcess& station) {
  const JsonValue all = run(station, "project list");
  for (const JsonValue& each : all.elements()) {
    if (each["name"].asString() == project_) return each["owner"].asString();
  }
  return {};
}

std::string NetFsTest::difference() {
  const ProjectView annas(run(anna_, "state"));
  return annas.differenceFrom(ProjectView(run(*ben_, "state")));
}

NetFsTest::Seen NetFsTest::agrees() {
  return seeks([this] { return difference().empty(); }, Seconds(10));
}

void NetFsTest::expectAgreement() {
  EXPECT_TRUE(agrees().isSeen) << "anna (-) and ben (+):\n" << difference();
  EXPECT_EQ(viewOfFolder().differenceFrom(viewOf(anna_)), "") << "the folder (-) and anna (+)";
}

void NetFsTest::expectAgreementInTurn(std::initializer_list<StationProcess*> stations) {
  std::map<std::string, ProjectView> views;
  for (StationProcess* station : stations) {
    views.emplace(station->options().user, viewInTurn(*station));
  }
  const ProjectView folder = viewOfFolder();
  for (const auto& [user, view] : views) {
    EXPECT_EQ(folder.differenceFrom(view), "") << "the folder (-) and " << user << " (+)";
  }
}

/// With the clips of all its edits.
ProjectView NetFsTest::viewOf(StationProcess& station) {
  const JsonValue edits = run(station, "edit list");
  for (const JsonValue& edit : edits.elements()) {
    run(station, "edit open " + edit["cookie"].asString());
  }
  return ProjectView(run(station, "state"));
}

ProjectView NetFsTest::viewInTurn(StationProcess& station) {
  EXPECT_TRUE(seeks([&] { return canEnter(station); }, kSoon).isSeen) << refusal_;
  ProjectView view = viewOf(station);
  run(station, "project leave");
  return view;
}

/// What a station on the server's own disk shows that reads all of it now.
ProjectView NetFsTest::viewOfFolder() {
  StationProcess& reader = site_.start("server", "READER");
  ProjectView view = viewInTurn(reader);
  site_.end(reader);
  const std::string folder = site_.projects("server") + "/" + view.project();
  std::istringstream lines(site_.on("server", {"ls", "-A", folder}));
  std::set<std::string> files;
  for (std::string name; std::getline(lines, name);) files.insert(name);
  EXPECT_EQ(view.filed(), cookiesAmong(files)) << "shown, and in the folder";
  return view;
}

void NetFsTest::shows(const std::string& what) {
  shown_ += (shown_.empty() ? "" : "; ") + what;
  RecordProperty("shows", shown_);
}

void NetFsTest::shows(const std::string& what, const Seen& seen) {
  shows(what + (seen.isSeen ? " after " : " not within ") + std::to_string(seen.milliseconds) +
        " ms");
}
