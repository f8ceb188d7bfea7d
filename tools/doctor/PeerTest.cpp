#include "tools/doctor/PeerTest.h"

#include <poll.h>
#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "station/base/Strings.h"
#include "station/net/ListenerSocket.h"
#include "station/net/UdpBroadcaster.h"
#include "station/os/SharedFiles.h"
#include "station/seal/Seals.h"
#include "tools/doctor/Check.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kLetterPauseMicroseconds = 50'000;
constexpr auto kTimeToReadAnswers = std::chrono::seconds(3);
constexpr std::chrono::milliseconds kAtOnce(0);

/// A greeted trial may take so long to answer.
constexpr auto kTimeToAnswer = std::chrono::seconds(5);

/// The time for waiting and all steps, beyond the patience.
constexpr auto kPeerLimit = std::chrono::seconds(150);
constexpr auto kPeerPatience = std::chrono::seconds(60);

bool isSameName(const std::string& one, const std::string& other) {
  return ::strcasecmp(one.c_str(), other.c_str()) == 0;
}

Findings named(const char* check, Findings findings) {
  for (Finding& finding : findings) finding.check = check;
  return findings;
}

void append(Findings& all, Findings more) {
  for (Finding& finding : more) all.push_back(std::move(finding));
}

}  // namespace

PeerTestSide sideOf(const DoctorFacts& facts) {
  PeerTestSide side{facts.station.host, facts.station.user, {}, facts.port, {}, {}};
  // Differs between machines even where they have the same name, as copies of an image do.
  if (const auto id = readFresh("/proc/sys/kernel/random/boot_id")) side.machine = *id;
  if (const auto mount = mountOfFolder(facts)) {
    side.mount = mount->type + " from " + mount->source;
    side.breakers = lockBreakersOf(*mount);
  }
  return side;
}

JsonValue objectOf(const PeerTestSide& side) {
  JsonValue breakers = JsonValue::array();
  for (const std::string& option : side.breakers) breakers.append(option);
  return JsonValue::object({{"host", side.host},
                            {"user", side.user},
                            {"machine", side.machine},
                            {"port", side.port},
                            {"mount", side.mount},
                            {"breakers", std::move(breakers)}});
}

PeerTestSide sideOf(const JsonValue& letter) {
  PeerTestSide side{letter["host"].asString(),    letter["user"].asString(),
                    letter["machine"].asString(), static_cast<int>(letter["port"].asLong()),
                    letter["mount"].asString(),   {}};
  for (const JsonValue& option : letter["breakers"].elements()) {
    side.breakers.push_back(option.asString());
  }
  return side;
}

PeerTest::PeerTest(const DoctorFacts& facts, const ProbeFolder& folder, Options wishes)
    : facts_(facts),
      folder_(folder),
      wishes_(std::move(wishes)),
      self_(korvel::sideOf(facts)),
      mail_(folder, newTrialId()) {}

bool PeerTest::isWished(const PeerTestSide& side) const {
  if (!wishes_.other.empty()) return isSameName(side.host, wishes_.other);
  return side.machine != self_.machine || !isSameName(side.host, self_.host);
}

/// Greets suitable trials that it has not greeted yet; whether there were any.
bool PeerTest::greetNewcomers() {
  bool hasGreeted = false;
  for (const std::string& id : mail_.writersOf("here")) {
    if (known_.count(id) != 0) continue;
    const auto letter = mail_.await(id, "here", kAtOnce);
    if (!letter) continue;
    known_[id] = korvel::sideOf(*letter);
    if (!isWished(known_[id])) continue;
    mail_.post("greets-" + id);
    hasGreeted = true;
  }
  return hasGreeted;
}

/// Agrees with one trial that greets this one, and stays with it: of three trials, two must not
/// wait for the same third.
void PeerTest::choose() {
  for (const std::string& id : mail_.writersOf("greets-" + mail_.ownId())) {
    if (!otherId_.empty() || known_.count(id) == 0 || !isWished(known_[id])) continue;
    otherId_ = id;
    mail_.post("agrees-" + id);
  }
}

/// True once both trials have agreed with each other. Files that a killed trial left behind neither
/// greet nor agree.
bool PeerTest::agree() {
  mail_.post("here", objectOf(self_));
  auto deadline = Clock::now() + wishes_.patience;
  for (;;) {
    // A trial that came just before the deadline still gets the time to answer.
    if (greetNewcomers()) deadline = std::max(deadline, Clock::now() + kTimeToAnswer);
    choose();
    if (!otherId_.empty() && mail_.writersOf("agrees-" + mail_.ownId()).count(otherId_) != 0) {
      return true;
    }
    if (Clock::now() >= deadline) return false;
    ::usleep(kLetterPauseMicroseconds);
  }
}

void PeerTest::compareNames(Findings& findings) const {
  const std::string both = self_.host + " and " + other().host;
  if (self_.machine != other().machine && isSameName(self_.host, other().host)) {
    findings.push_back(fail("both machines are called " + self_.host,
                            "give each a host name of its own (hostnamectl, or --host)"));
  }
  if (isSameName(self_.user, other().user)) {
    findings.push_back(
        fail(both + " have the same user name, " + self_.user + ": nobody can tell who holds what",
             "give each station a user name of its own (--user)"));
  }
  if (findings.empty()) findings.push_back(pass(both + " have names of their own"));
}

Findings PeerTest::nobodyCame() const {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(wishes_.patience).count();
  const std::string within = " within " + std::to_string(seconds) + " s";
  if (!wishes_.other.empty()) {
    return {fail(wishes_.other + " did not come to this folder" + within,
                 "run kv-share doctor on this folder there, with --with " + self_.host +
                     ", at the same time; if it ran, the two see different folders, or its host "
                     "name is another (hostname)")};
  }
  if (seconds == 0) return {};
  return {warn("no other machine ran the same command" + within +
                   ": whether locks lock between machines is not known",
               "run kv-share doctor on this folder on two machines within a minute")};
}

Findings PeerTest::hold() {
  if (!agree()) return named("meeting", nobodyCame());
  Pair pair{facts_, folder_, mail_, self_, other(), otherId_, wishes_.stepPatience};
  Findings findings;
  compareNames(findings);
  findings = named("names", std::move(findings));
  append(findings, named("datagrams", tryHearing(pair)));
  append(findings, named("exclusive open", tryLocks(pair)));
  // Ending removes the letters of this trial. Wait until the other trial has read the last one.
  mail_.post("ends");
  static_cast<void>(mail_.await(otherId_, "ends", kTimeToReadAnswers));
  return findings;
}

Check meetingCheck(const DoctorFacts& facts, const std::string& other,
                   std::optional<std::chrono::seconds> patience) {
  const auto look = [&facts, other, patience]() -> Findings {
    const auto mount = mountOfFolder(facts);
    const bool mayCome = !other.empty() || (mount && mount->isNetwork());
    const auto wait = patience.value_or(mayCome ? kPeerPatience : std::chrono::seconds(0));
    if (wait.count() > 0) {
      // Otherwise the command would be silent for a minute. Standard output is for findings alone.
      std::fprintf(stderr, "waiting for %s to run the same command, %ld s at most\n",
                   other.empty() ? "another machine" : shownText(other).c_str(),
                   static_cast<long>(wait.count()));
    }
    ProbeFolder folder(facts.station.projectsDirectory);
    if (auto made = folder.make(); !made) return {fail(made.error().message, "see rights, above")};
    return PeerTest(facts, folder, {other, wait}).hold();
  };
  return {"other machine",
          "meeting",
          Touches::eShare,
          Role::eOrdinary,
          kPeerLimit + patience.value_or(kPeerPatience),
          look};
}

namespace {

constexpr int kDatagrams = 10;
constexpr unsigned kMicrosecondsBetweenDatagrams = 20'000;
constexpr int kMillisecondsAfterwards = 500;

/// What one side heard of the other's datagrams.
struct PeerHearing {
  bool canListen = true;
  int heard = 0;
};

JsonValue letterOf(const PeerHearing& hearing) {
  return JsonValue::object({{"can_listen", hearing.canListen}, {"heard", hearing.heard}});
}

void sendAll(const Pair& pair) {
  SenderSocket sender;
  Interfaces interfaces;
  std::vector<Ipv4> addresses;
  for (const std::string& word : pair.facts.station.sendTo) {
    if (const auto address = parseIpv4(word)) addresses.push_back(*address);
  }
  const std::string bytes = sealedForStations(pair.facts, trialDatagram(pair.mail.ownId()));
  for (int count = 0; count < kDatagrams; ++count) {
    for (const Destination& destination : interfaces.destinations(addresses)) {
      sender.send(destination, static_cast<std::uint16_t>(pair.facts.port), bytes);
    }
    // A burst could overflow a buffer on the way and look like a firewall.
    ::usleep(kMicrosecondsBetweenDatagrams);
  }
}

/// Counts the other trial's datagrams. Over several common networks each may arrive more than once.
int countFrom(const std::string& id, const ListenerSocket& listener) {
  DatagramReader reader;
  const std::string wanted = trialDatagram(id);
  int heard = 0;
  pollfd readable{listener.descriptor(), POLLIN, 0};
  while (heard < kDatagrams && ::poll(&readable, 1, kMillisecondsAfterwards) == 1) {
    const int count = reader.read(listener.descriptor());
    if (count <= 0) break;
    for (int index = 0; index < count; ++index) {
      const Datagram datagram = reader.at(static_cast<std::size_t>(index));
      if (takeSealApart(datagram.bytes).text == wanted) ++heard;
    }
  }
  return std::min(heard, kDatagrams);
}

Finding deafFinding(const PeerTestSide& deaf, const PeerTestSide& heard) {
  const std::string port = std::to_string(deaf.port);
  return fail(
      heard.host + " hears " + deaf.host + ", but " + deaf.host + " does not hear " + heard.host,
      "on " + deaf.host + ", let UDP port " + port +
          " in through the firewall: a rule there drops what comes in (ufw allow " + port +
          "/udp; firewall-cmd --permanent --add-port=" + port +
          "/udp; kv-share doctor as root names the rule), or one on " + heard.host +
          " drops what goes out");
}

Finding judge(const Pair& pair, const PeerHearing& own, const PeerHearing& others) {
  const std::string both = pair.self.host + " and " + pair.other.host;
  if (pair.self.port != pair.other.port) {
    return fail(both + " use different ports, " + std::to_string(pair.self.port) + " and " +
                    std::to_string(pair.other.port),
                "set one port on every station (shared_projects_udp_port)");
  }
  for (const auto& [hearing, side] : {std::pair(own, pair.self), std::pair(others, pair.other)}) {
    if (!hearing.canListen) {
      return fail(
          side.host + " cannot listen at UDP port " + std::to_string(side.port),
          "end the program that has the port there: kv-share doctor on " + side.host + " names it");
    }
  }
  if (own.heard > 0 && others.heard > 0) {
    return pass(both + " hear each other: " + std::to_string(own.heard) + " and " +
                std::to_string(others.heard) + " of " + std::to_string(kDatagrams) + " datagrams");
  }
  if (own.heard > 0) return deafFinding(pair.other, pair.self);
  if (others.heard > 0) return deafFinding(pair.self, pair.other);
  return fail(
      both + " do not hear each other",
      "see that both are in one network (their destinations' lines name it), else name each "
      "other with --send-to; then see both firewalls, and whether the switch passes "
      "broadcasts");
}

}  // namespace

Findings tryHearing(Pair& pair) {
  PeerHearing own;
  const auto listener = ListenerSocket::open(pair.facts.station.listen, pair.facts.port);
  own.canListen = static_cast<bool>(listener);
  // Nobody sends before both listen, and nobody counts before both have sent: datagrams wait in the
  // socket's buffer.
  pair.mail.post("listens");
  if (!pair.mail.await(pair.otherId, "listens", pair.patience)) {
    return {fail(pair.other.host + " went away before it listened", "run both again")};
  }
  sendAll(pair);
  pair.mail.post("sent");
  if (!pair.mail.await(pair.otherId, "sent", pair.patience)) {
    return {fail(pair.other.host + " went away before it had sent", "run both again")};
  }
  if (listener) own.heard = countFrom(pair.otherId, *listener);
  pair.mail.post("heard", letterOf(own));
  const auto letter = pair.mail.await(pair.otherId, "heard", pair.patience);
  if (!letter) return {fail(pair.other.host + " did not say what it heard", "run both again")};
  return {judge(pair, own,
                {(*letter)["can_listen"].asBool(), static_cast<int>((*letter)["heard"].asLong())})};
}

namespace {

using std::chrono::milliseconds;

constexpr auto kTimeToFree = std::chrono::seconds(10);

/// The result of one order of holding and trying.
struct Round {
  bool isHeld = false;   ///< the holder got the file
  bool isTaken = false;  ///< the other got it at the same time
  long freeAfter = -1;   ///< milliseconds after the kill; -1 for not within the limit
  std::string problem;   ///< why there was no trial at all
};

JsonValue letterOf(const Round& round) {
  return JsonValue::object({{"held", round.isHeld},
                            {"taken", round.isTaken},
                            {"free_after", round.freeAfter},
                            {"problem", round.problem}});
}

Round roundOf(const JsonValue& letter) {
  return {letter["held"].asBool(), letter["taken"].asBool(), letter["free_after"].asLong(-1),
          letter["problem"].asString()};
}

Round lost(const Pair& pair) {
  Round round;
  round.problem = pair.other.host + " went away during the trial";
  return round;
}

/// Holds the file until the other has tried it, then kills the holder.
Round hold(Pair& pair, const std::string& name) {
  // The lower id of the two: both sides name the same file.
  const ProbeFile file(pair.folder.file(std::min(pair.mail.ownId(), pair.otherId), name));
  LockHolder holder(pair.facts.open, file.path());
  Round round;
  round.isHeld = holder.isHolding();
  if (!round.isHeld) round.problem = refusalText(holder.problem());
  pair.mail.post(name + "-held", letterOf(round));
  if (!round.isHeld) return round;
  if (!pair.mail.await(pair.otherId, name + "-tried", pair.patience)) return lost(pair);
  holder.kill();
  pair.mail.post(name + "-killed");
  const auto result = pair.mail.await(pair.otherId, name + "-free", pair.patience + kTimeToFree);
  return result ? roundOf(*result) : lost(pair);
}

/// Tries the file while the other holds it, and again after the holder was killed.
Round tryWhileHeld(Pair& pair, const std::string& name) {
  const std::string path = pair.folder.file(std::min(pair.mail.ownId(), pair.otherId), name);
  const auto held = pair.mail.await(pair.otherId, name + "-held", pair.patience);
  if (!held) return lost(pair);
  Round round = roundOf(*held);
  if (!round.isHeld) return round;
  {
    // Closed before the other trial is told: a file that was wrongly taken must not stay held.
    const OpenOutcome outcome = pair.facts.open(path);
    round.isTaken = outcome.problem == eFileError::eNone;
    if (!round.isTaken && outcome.problem != eFileError::eHeld) {
      round.problem = refusalText(outcome.problem);
    }
  }
  pair.mail.post(name + "-tried");
  if (!pair.mail.await(pair.otherId, name + "-killed", pair.patience)) return lost(pair);
  const auto free = timeUntilFree(pair.facts.open, path, kTimeToFree);
  if (free) round.freeAfter = free->count();
  pair.mail.post(name + "-free", letterOf(round));
  return round;
}

/// Names the mount option that breaks locks, or else what to look for.
std::string fixFor(const Pair& pair) {
  std::string fix;
  for (const PeerTestSide* const side : {&pair.self, &pair.other}) {
    if (side->breakers.empty()) continue;
    fix += (fix.empty() ? "on " : "; on ") + side->host + ", mount it without " +
           joined(side->breakers, " and ");
  }
  if (!fix.empty()) return fix + "; a lock counts between machines only if every one sends it";
  return "no option of either mount says why (" + pair.self.host + ": " + pair.self.mount + "; " +
         pair.other.host + ": " + pair.other.mount +
         "): see that both mount the same export of one server, and that the server passes locks "
         "on";
}

Findings judge(const Pair& pair, const Round& round, const std::string& holder,
               const std::string& other) {
  const std::string held = "while " + holder + " holds a file, ";
  if (!round.problem.empty()) {
    return {fail(held + "the trial failed: " + round.problem, fixFor(pair))};
  }
  if (round.isTaken) {
    return {fail("locks do not lock: " + held + other + " takes it, too", fixFor(pair))};
  }
  if (round.freeAfter < 0) {
    return {pass(held + other + " is refused"),
            warn("10 s after the program on " + holder + " that held it was killed, " + other +
                     " is still refused",
                 "wait for the server's lease (NFSv4: 90 s unless set otherwise); if it stays so, "
                 "clear the server's locks")};
  }
  return {pass(held + other + " is refused, and gets it " + std::to_string(round.freeAfter) +
               " ms after the holder was killed")};
}

}  // namespace

Findings tryLocks(Pair& pair) {
  Findings findings;
  for (const char* const name : {"lock-1", "lock-2"}) {
    const bool isHolder = pair.isFirst() == (std::string(name) == "lock-1");
    const Round round = isHolder ? hold(pair, name) : tryWhileHeld(pair, name);
    const std::string& holder = isHolder ? pair.self.host : pair.other.host;
    const std::string& other = isHolder ? pair.other.host : pair.self.host;
    for (Finding& finding : judge(pair, round, holder, other)) {
      findings.push_back(std::move(finding));
    }
  }
  return findings;
}

}  // namespace korvel
