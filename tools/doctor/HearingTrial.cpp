#include <poll.h>
#include <unistd.h>

#include "station/base/Strings.h"
#include "station/net/DatagramReader.h"
#include "station/net/ListenerSocket.h"
#include "station/net/SenderSocket.h"
#include "tools/doctor/Check.h"
#include "tools/doctor/PeerTest.h"

namespace korvel {

namespace {

constexpr int kDatagrams = 10;
constexpr unsigned kPauseMicroseconds = 20'000;
constexpr int kMillisecondsAfterwards = 500;

/// What one side heard of the other's datagrams.
struct Hearing {
  bool canListen = true;
  int heard = 0;
};

JsonValue letterOf(const Hearing& hearing) {
  return JsonValue::object({{"can_listen", hearing.canListen}, {"heard", hearing.heard}});
}

void sendAll(const Pair& pair) {
  SenderSocket sender;
  Interfaces interfaces;
  std::vector<Ipv4> addresses;
  for (const std::string& word : pair.facts.station.sendTo) {
    if (const auto address = parseIpv4(word)) addresses.push_back(*address);
  }
  const std::string bytes = trialDatagram(pair.mail.ownId());
  for (int count = 0; count < kDatagrams; ++count) {
    for (const Destination& destination : interfaces.destinations(addresses)) {
      sender.send(destination, static_cast<std::uint16_t>(pair.facts.port), bytes);
    }
    ::usleep(kPauseMicroseconds);
  }
}

/// Over several networks in common each may come more than once.
int countFrom(const std::string& id, const ListenerSocket& listener) {
  DatagramReader reader;
  const std::string wanted = trialDatagram(id);
  int heard = 0;
  pollfd readable{listener.descriptor(), POLLIN, 0};
  while (heard < kDatagrams && ::poll(&readable, 1, kMillisecondsAfterwards) == 1) {
    const int count = reader.read(listener.descriptor());
    if (count <= 0) break;
    for (int index = 0; index < count; ++index) {
      if (reader.at(static_cast<std::size_t>(index)).bytes == wanted) ++heard;
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

Finding judge(const Pair& pair, const Hearing& own, const Hearing& others) {
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
  Hearing own;
  const auto listener = ListenerSocket::open(pair.facts.station.listen, pair.facts.port);
  own.canListen = static_cast<bool>(listener);
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

}  // namespace korvel
