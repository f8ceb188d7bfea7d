#include "tests/lab/Facility.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <set>
#include <thread>
#include <utility>

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;
constexpr auto kPatienceWithPeers = std::chrono::seconds(60);
constexpr auto kPause = std::chrono::milliseconds(50);

/// A machine number that no station of the lab has.
constexpr const char* kNobody = "1";

void add(std::map<std::string, int>& sum, const std::map<std::string, int>& counts) {
  for (const auto& [message, count] : counts) sum[message] += count;
}

/// How two tallies differ.
std::string compared(const std::map<std::string, int>& due, const std::map<std::string, int>& came,
                     const std::string& who) {
  std::map<std::string, int> over = came;
  for (const auto& [message, count] : due) over[message] -= count;
  std::string told;
  for (const auto& [message, count] : over) {
    if (count != 0)
      told += who + " has " + std::to_string(count) + " too many of " + message + "\n";
  }
  return told;
}

std::set<std::string> namesIn(const std::string& folder) {
  std::set<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    names.insert(entry.path().filename());
  }
  return names;
}

/// What machines show otherwise than `view`.
std::string differences(const std::string& who, const ProjectView& view,
                        const std::vector<Workstation*>& machines) {
  std::string told;
  for (Workstation* const machine : machines) {
    const std::string difference = view.differenceFrom(machine->view());
    if (!difference.empty()) told += who + " (-) and " + machine->name() + " (+):\n" + difference;
  }
  return told;
}

}  // namespace

Facility::Facility() {
  std::filesystem::create_directory(folder_ / "projects");
  ::setenv("XDG_CONFIG_HOME", (folder_ / "config").c_str(), 1);  // none of this user's
  ::setenv("XDG_STATE_HOME", (folder_ / "state").c_str(), 1);
}

Network& Facility::network() {
  const std::string number = std::to_string(networks_.size() + 1);
  networks_.push_back({"switch" + number, "10.77." + number + "."});
  const std::string& bridge = networks_.back().bridge;
  switches_.ip("link add " + bridge + " type bridge forward_delay 0 mcast_snooping 0\nlink set " +
               bridge + " up");
  return networks_.back();
}

Workstation& Facility::workstation(const std::string& host,
                                   std::initializer_list<Network*> networks) {
  Workstation::Setup setup;
  setup.host = host;
  return workstation(std::move(setup), networks);
}

Workstation& Facility::workstation(Workstation::Setup setup,
                                   std::initializer_list<Network*> networks) {
  setup.projects = folder_ / "projects";
  machines_.push_back(std::make_unique<Workstation>(std::move(setup)));
  for (Network* network : networks) plug(*machines_.back(), *network);
  return *machines_.back();
}

void Facility::open() {
  for (const auto& machine : machines_) machine->switchOn();
  for (const auto& machine : machines_) machine->waitUntilReady();
  machines_.front()->run("project create Film");
  for (const auto& machine : machines_) machine->enter("Film");
}

std::vector<Workstation*> Facility::running() const {
  std::vector<Workstation*> found;
  for (const auto& machine : machines_) {
    if (machine->isOn()) found.push_back(machine.get());
  }
  return found;
}

std::string Facility::difference(std::chrono::seconds limit) {
  const auto deadline = Clock::now() + limit;
  std::string told = differenceNow();
  while (!told.empty() && Clock::now() < deadline) {
    // No event says that views agree; they are asked again until they do, or the limit is over.
    std::this_thread::sleep_for(kPause);
    told = differenceNow();
  }
  return told.empty() ? differenceFromFolder() : told;
}

std::chrono::duration<double> Facility::timeToAgree(std::chrono::seconds limit) {
  const auto start = Clock::now();
  while (!differenceNow().empty() && Clock::now() < start + limit) {
    std::this_thread::sleep_for(kPause);
  }
  return Clock::now() - start;
}

std::map<std::string, std::vector<Workstation*>> Facility::byProject() const {
  std::map<std::string, std::vector<Workstation*>> groups;
  for (Workstation* const machine : running()) groups[machine->project()].push_back(machine);
  return groups;
}

std::string Facility::differenceNow() {
  std::string told;
  for (const auto& [project, machines] : byProject()) {
    told += differences(machines.front()->name(), machines.front()->view(), machines);
  }
  return told;
}

std::string Facility::differenceFromFolder() {
  Workstation reader({folder_ / "projects", "READER", {}, 0, {}});
  reader.switchOn();
  std::string told;
  for (const auto& [project, machines] : byProject()) {
    reader.enter(project);
    reader.openAllEdits();
    const ProjectView read = reader.view();
    told += differences("the folder", read, machines);
    if (read.filed() != cookiesAmong(namesIn(folder_ / ("projects/" + read.project())))) {
      told += "the folder of " + project + " holds other files\n";
    }
  }
  return told;
}

void Facility::reenter() {
  for (Workstation* const machine : running()) {
    machine->run("project leave");
    machine->enter(machine->project());
    machine->openAllEdits();
  }
}

// What waits for a file, which may be gone again, is overtaken by a marker, and told a second
// later.
std::string Facility::notOnce(Strangers strangers) {
  constexpr std::chrono::seconds kLongestWait(20);
  sendMarkers();
  const auto deadline = Clock::now() + kLongestWait;
  std::string told = notOnceNow(strangers);
  while (!told.empty() && Clock::now() < deadline) {
    std::this_thread::sleep_for(kPause);
    told = notOnceNow(strangers);
  }
  return told;
}

std::string Facility::notOnceNow(Strangers strangers) {
  std::string told;
  for (const Workstation* const receiver : running()) {
    std::map<std::string, int> due;
    for (const Workstation* const sender : peersOf(*receiver)) add(due, sender->messages("sent"));
    std::map<std::string, int> came = receiver->messages("received");
    if (strangers == Strangers::eSend) {
      std::erase_if(came, [&due](const auto& each) { return !due.contains(each.first); });
    }
    told += compared(due, came, receiver->name());
  }
  return told;
}

std::vector<Workstation*> Facility::peersOf(const Workstation& machine) const {
  std::vector<Workstation*> peers = running();
  std::erase_if(peers, [&machine](const Workstation* other) {
    return other == &machine || other->port() != machine.port();
  });
  return peers;
}

void Facility::awaitHearing() {
  const auto deadline = Clock::now() + kPatienceWithPeers;
  while (!allHear(std::chrono::milliseconds(200))) {
    ASSERT_LT(Clock::now(), deadline) << "not every station hears every other one";
  }
  sendMarkers();
  for (Workstation* const machine : running()) machine->countFromNow();
}

// Datagrams of one sender arrive in order: what a marker does not overtake is there when it is.
void Facility::sendMarkers() {
  EXPECT_TRUE(allHear(kPatienceWithPeers)) << "not every station hears every other one";
}

bool Facility::allHear(std::chrono::milliseconds limit) {
  const std::string words = "marker" + std::to_string(++markers_);
  const auto deadline = Clock::now() + limit;
  for (Workstation* const machine : running()) {
    machine->run(std::string("request ") + kNobody + " " + words);
  }
  for (Workstation* const machine : running()) {
    for (std::size_t heard = 0; heard < peersOf(*machine).size(); ++heard) {
      const auto left = std::max<Clock::duration>(deadline - Clock::now(), {});
      if (!machine->station().waitFor("received", {{"data", words}}, left)) return false;
    }
  }
  return true;
}

long Facility::droppedCount() const {
  long count = 0;
  for (const Workstation* const machine : running()) {
    for (const JsonValue& event : machine->station().events("network")) {
      count += event["dropped"].asLong();
    }
  }
  return count;
}

std::size_t Facility::sentCount() const {
  std::size_t count = 0;
  for (const Workstation* const machine : running()) {
    count += machine->station().events("sent").size();
  }
  return count;
}

LineCounts Facility::counts() const {
  LineCounts sum;
  for (const auto& machine : machines_) {
    for (const auto& cable : machine->cables()) {
      const LineCounts counts = cable->counts();
      sum.passed += counts.passed;
      sum.lost += counts.lost;
      sum.doubled += counts.doubled;
      sum.late += counts.late;
    }
  }
  return sum;
}

}  // namespace korvel
