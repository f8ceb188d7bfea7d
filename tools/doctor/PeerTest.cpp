#include "tools/doctor/PeerTest.h"

#include <strings.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>

#include "station/base/Strings.h"
#include "station/os/SharedFiles.h"
#include "tools/doctor/Check.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr unsigned kPauseMicroseconds = 50'000;
constexpr auto kTimeToReadAnswers = std::chrono::seconds(3);
constexpr std::chrono::milliseconds kAtOnce(0);

/// How long one that is greeted may take to answer.
constexpr auto kTimeToAnswer = std::chrono::seconds(5);

/// What waiting and all steps may take together, beyond the patience.
constexpr auto kLimit = std::chrono::seconds(150);
constexpr auto kPatience = std::chrono::seconds(60);

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

/// Greets those that it wishes for and has not greeted yet; whether there were any.
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

/// Agrees with one that greets it.
void PeerTest::choose() {
  for (const std::string& id : mail_.writersOf("greets-" + mail_.ownId())) {
    if (!otherId_.empty() || known_.count(id) == 0 || !isWished(known_[id])) continue;
    otherId_ = id;
    mail_.post("agrees-" + id);
  }
}

/// Goes on when the one that it agrees with has agreed, too. What a killed trial left behind
/// neither greets nor agrees.
bool PeerTest::agree() {
  mail_.post("here", objectOf(self_));
  auto deadline = Clock::now() + wishes_.patience;
  for (;;) {
    if (greetNewcomers()) deadline = std::max(deadline, Clock::now() + kTimeToAnswer);
    choose();
    if (!otherId_.empty() && mail_.writersOf("agrees-" + mail_.ownId()).count(otherId_) != 0) {
      return true;
    }
    if (Clock::now() >= deadline) return false;
    ::usleep(kPauseMicroseconds);
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
  // The letters go with this: the other may still have to read the last one.
  mail_.post("ends");
  static_cast<void>(mail_.await(otherId_, "ends", kTimeToReadAnswers));
  return findings;
}

Check meetingCheck(const DoctorFacts& facts, const std::string& other,
                   std::optional<std::chrono::seconds> patience) {
  const auto look = [&facts, other, patience]() -> Findings {
    const auto mount = mountOfFolder(facts);
    const bool mayCome = !other.empty() || (mount && mount->isNetwork());
    const auto wait = patience.value_or(mayCome ? kPatience : std::chrono::seconds(0));
    if (wait.count() > 0) {
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
          kLimit + patience.value_or(kPatience),
          look};
}

}  // namespace korvel
