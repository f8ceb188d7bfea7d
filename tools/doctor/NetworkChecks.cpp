#include "tools/doctor/Check.h"

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cstring>
#include <utility>

#include "station/base/Strings.h"
#include "station/net/ListenerSocket.h"
#include "station/net/UdpBroadcaster.h"
#include "station/os/SharedFiles.h"
#include "station/seal/KeyRing.h"
#include "station/seal/Seals.h"
#include "tools/base/ProcInfo.h"
#include "tools/base/ToolHost.h"
#include "tools/doctor/ProbeFolder.h"

namespace korvel {

namespace {

using Clock = std::chrono::steady_clock;

constexpr auto kNetworkLimit = std::chrono::seconds(10);
constexpr auto kTimeToReturn = std::chrono::seconds(2);
constexpr auto kTimeToList = std::chrono::seconds(8);

/// Folders of the firewall programs. They are run by their whole path and without a shell: this may
/// run as root, and the user's PATH must not decide what runs.
constexpr std::array kProgramFolders{"/usr/sbin/", "/sbin/", "/usr/bin/", "/bin/"};
constexpr std::size_t kLargestRuleset = std::size_t{16} << 20;

/// The file that names the tables of the older packet filter while it is in use.
constexpr const char* kLegacyTables = "/proc/net/ip_tables_names";

std::vector<Ipv4> addressesOf(const DoctorFacts& facts) {
  std::vector<Ipv4> addresses;
  for (const std::string& word : facts.station.sendTo) {
    if (const auto address = parseIpv4(word)) addresses.push_back(*address);
  }
  return addresses;
}

std::string placeOf(const Destination& destination, Interfaces& interfaces) {
  const std::string interface = interfaces.nameOf(destination.interface);
  return textOf(destination.address) + (interface.empty() ? "" : " over " + interface);
}

Findings lookInterfaces(const DoctorFacts&) {
  std::string text;
  for (const NetworkInterface& interface : readNetworkInterfaces()) {
    if (interface.isLoopback) continue;
    text += (text.empty() ? "" : ", ") + interface.name + " " + textOf(interface.address);
    if (interface.broadcast == Ipv4{}) text += " (cannot broadcast)";
  }
  if (!text.empty()) return {pass(text)};
  return {warn("no network is up but this machine's own",
               "connect the network, and give this machine an IPv4 address in it (ip address)")};
}

Findings lookDestinations(const DoctorFacts& facts) {
  Interfaces interfaces;
  Findings findings;
  for (const Destination& destination : interfaces.destinations(addressesOf(facts))) {
    const std::string text = "messages go to " + placeOf(destination, interfaces) + ", port " +
                             std::to_string(facts.port);
    if (destination.address.isLoopback()) {
      findings.push_back(warn(text + ": they stay on this machine",
                              "connect the network, or name the stations' network with --send-to"));
    } else {
      findings.push_back(pass(text));
    }
  }
  return findings;
}

/// The address from which a datagram to this destination leaves; an errno value where it cannot.
/// connect() on a UDP socket sends nothing: it asks the kernel for the route.
int routeTo(const Destination& destination, int port, Ipv4& from) {
  const Descriptor socket(::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  const int on = 1;
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(destination.address.value);
  // Without it the kernel refuses to connect to a broadcast address.
  ::setsockopt(socket.get(), SOL_SOCKET, SO_BROADCAST, &on, sizeof on);
  socklen_t size = sizeof address;
  if (::connect(socket.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      ::getsockname(socket.get(), reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    return errno;
  }
  from.value = ntohl(address.sin_addr.s_addr);
  return 0;
}

Findings lookRoutes(const DoctorFacts& facts) {
  Interfaces interfaces;
  Findings findings;
  for (const Destination& destination : interfaces.destinations(addressesOf(facts))) {
    // These datagrams leave by their interface, independent of routes.
    if (destination.address.isLimitedBroadcast() && destination.interface != 0) continue;
    Ipv4 from;
    const std::string name = placeOf(destination, interfaces);
    if (const int error = routeTo(destination, facts.port, from)) {
      findings.push_back(fail("there is no route to " + name + " (" + std::strerror(error) + ")",
                              "give this machine an address in that network, or a route to it (ip "
                              "route add), or send elsewhere with --send-to"));
    } else {
      findings.push_back(pass(name + " is reached from " + textOf(from)));
    }
  }
  return findings;
}

Findings lookPort(const DoctorFacts& facts) {
  const std::string port = "UDP port " + std::to_string(facts.port);
  // Read before this program opens the port, too.
  const auto users = usersOfPort(facts.port);
  const auto socket = ListenerSocket::open(facts.station.listen, facts.port);
  if (socket) {
    if (users.empty()) return {pass(port + " is free")};
    return {pass(port + " is shared with " + namesOf(users))};
  }
  if (socket.error().code != ErrorCode::eHeld) {
    return {fail(socket.error().message, "correct the station's options")};
  }
  const std::string holder = users.empty() ? "a program" : namesOf(users);
  return {fail(port + " is held by " + holder + ", which does not share it: nothing can be heard",
               "end that program, or set another port on every station (--port)")};
}

Findings lookListen(const DoctorFacts& facts) {
  const auto address = parseIpv4(facts.station.listen);
  if (!address || *address == Ipv4{} || address->isMulticast()) {
    return {pass("stations listen at all addresses")};
  }
  // The kernel delivers a broadcast only to sockets at all addresses or at that broadcast address.
  return {warn("a station that listens at " + facts.station.listen +
                   " hears no broadcasts, only what is sent to that address",
               "leave --listen out")};
}

Findings lookBuffer(const DoctorFacts& facts) {
  const auto text = readFresh(facts.largestBuffer);
  if (text) return judgeBuffer(std::strtol(text->c_str(), nullptr, 10));
  return {warn("the limit of socket buffers cannot be read from " + facts.largestBuffer,
               "see that net.core.rmem_max is 8388608 or more (sysctl net.core.rmem_max)")};
}

/// The output of a system program, both streams, up to a limit; a sentence where it is not
/// installed. The error stream tells the user why the rules cannot be read.
std::string outputOf(const std::string& program, std::vector<const char*> words) {
  for (const char* const folder : kProgramFolders) {
    const std::string path = folder + program;
    if (::access(path.c_str(), X_OK) != 0) continue;
    words.insert(words.begin(), path.c_str());
    words.push_back(nullptr);
    ChildProcess child([&](int pipe) {
      ::dup2(pipe, STDOUT_FILENO);
      ::dup2(pipe, STDERR_FILENO);
      ::execv(path.c_str(), const_cast<char* const*>(words.data()));
    });
    std::string text;
    const auto deadline = Clock::now() + kTimeToList;
    while (text.size() < kLargestRuleset &&
           child.read(deadline, text) == ChildProcess::Reading::eGot) {
    }
    return text;
  }
  return program + " is not installed\n";
}

Findings lookFirewall(const DoctorFacts& facts) {
  const auto tables = readFresh(kLegacyTables);
  // The file exists while the old filter is loaded, and only root may read it. Unread, it counts as
  // in use.
  const bool isLegacyThere = tables ? !tables->empty() : existsFresh(kLegacyTables);
  return judgeFirewall(outputOf("nft", {"-j", "list", "ruleset"}),
                       isLegacyThere ? outputOf("iptables-legacy-save", {}) : "", facts.port);
}

bool comesBack(const ListenerSocket& listener, const std::string& bytes) {
  DatagramReader reader;
  const auto deadline = Clock::now() + kTimeToReturn;
  while (Clock::now() < deadline) {
    pollfd readable{listener.descriptor(), POLLIN, 0};
    ::poll(&readable, 1, 100);
    const int count = reader.read(listener.descriptor());
    for (int index = 0; index < count; ++index) {
      if (reader.at(static_cast<std::size_t>(index)).bytes == bytes) return true;
    }
  }
  return false;
}

/// Sends to a destination and waits for the datagram. The kernel hands a broadcast back to its own
/// machine; a unicast to another machine does not come back.
Finding tryDestination(const DoctorFacts& facts, const ListenerSocket& listener,
                       const Destination& destination, const std::string& name) {
  SenderSocket sender;
  const std::string bytes = sealedForStations(facts, trialDatagram(newTrialId()));
  if (const int error = sender.send(destination, static_cast<std::uint16_t>(facts.port), bytes)) {
    return fail("a datagram to " + name + " did not leave (" + std::strerror(error) + ")",
                "see the network's and the firewall's lines above");
  }
  if (comesBack(listener, bytes)) return pass("a datagram to " + name + " came back to its sender");
  return fail("a datagram to " + name + " left, but was not heard here",
              "let UDP port " + std::to_string(facts.port) +
                  " in through this machine's firewall, and see that the address is the network's "
                  "broadcast address");
}

bool isHeardByItsSender(const Destination& destination, Interfaces& interfaces) {
  if (interfaces.isOwn(destination.address) || destination.address.isLimitedBroadcast())
    return true;
  for (const NetworkInterface& interface : readNetworkInterfaces()) {
    if (interface.broadcast == destination.address) return true;
  }
  return destination.address.isMulticast();
}

Findings lookOwn(const DoctorFacts& facts) {
  auto listener = ListenerSocket::open(facts.station.listen, facts.port);
  if (!listener) {
    return {fail("this machine hears nothing at port " + std::to_string(facts.port),
                 "see the port's line above")};
  }
  Interfaces interfaces;
  Findings findings;
  std::vector<Destination> groups;
  const auto destinations = interfaces.destinations(addressesOf(facts));
  for (const Destination& destination : destinations) {
    if (destination.address.isMulticast()) groups.push_back(destination);
  }
  listener->join(groups, interfaces);
  for (const Destination& destination : destinations) {
    const std::string name = placeOf(destination, interfaces);
    findings.push_back(isHeardByItsSender(destination, interfaces)
                           ? tryDestination(facts, *listener, destination, name)
                           : pass(name + " is another machine's: what is sent there does not come "
                                         "back"));
  }
  return findings;
}

Findings judgeWay(const JsonValue& rules, Way way, int port) {
  const FirewallRuling ruling = ruleOn(rules, way, port);
  const bool isLegacy = ruling.chain.starts_with(kLegacyFamily);
  const std::string what = std::string(way == Way::eIn ? "datagrams from" : "datagrams to") +
                           " other machines at UDP port " + std::to_string(port);
  switch (ruling.passage) {
    case Passage::eBlocked:
      return {fail(what + " are dropped by the rules of " + ruling.chain, ruling.remedy)};
    case Passage::eUnsure:
      return {warn(what + " may be dropped by the rules of " + ruling.chain,
                   (isLegacy ? "iptables-legacy-save" : "nft list chain " + ruling.chain) +
                       " shows them; if they do: " + ruling.remedy)};
    default:
      return {pass("no rule drops " + what)};
  }
}

/// Programs complain in a line; what is longer is no complaint.
std::string firstLineOf(const std::string& text) {
  constexpr std::size_t kMost = 200;
  return text.empty() ? "" : " (" + text.substr(0, std::min(text.find('\n'), kMost)) + ")";
}

}  // namespace

Findings judgeFirewall(const std::string& ruleset, const std::string& legacy, int port) {
  constexpr const char* kFix =
      "run this command as root, where nftables (or iptables-legacy-save) is installed; what "
      "passes is also seen with --with OTHER";
  const auto rules = parseJson(ruleset);
  const JsonValue older = rulesOfIptables(legacy);
  JsonValue items = rules ? (*rules)["nftables"] : JsonValue();
  if (!items.isArray()) {
    const std::string text = "could not read the firewall's rules";
    if (older.elements().empty()) return {warn(text + firstLineOf(ruleset), kFix)};
    items = JsonValue::array();
  }
  for (const JsonValue& each : older.elements()) items.append(each);
  const JsonValue all = JsonValue::object({{"nftables", std::move(items)}});
  Findings findings = judgeWay(all, Way::eIn, port);
  findings.push_back(judgeWay(all, Way::eOut, port).front());
  if (!legacy.empty() && older.elements().empty()) {
    findings.push_back(
        warn("could not read the rules of legacy iptables" + firstLineOf(legacy), kFix));
  }
  return findings;
}

Findings judgeBuffer(long largest) {
  const std::string text =
      "the system gives a socket up to " + std::to_string(largest) + " bytes of buffer";
  if (largest >= ListenerSocket::kBufferBytes) return {pass(text)};
  const std::string wanted = std::to_string(ListenerSocket::kBufferBytes);
  return {
      warn(text + "; in a flood of messages some are lost",
           "sysctl -w net.core.rmem_max=" + wanted + ", and keep it in /etc/sysctl.d/korvel.conf")};
}

std::string trialDatagram(const std::string& trial) { return "kv-doctor " + trial; }

std::string sealedForStations(const DoctorFacts& facts, const std::string& datagram) {
  auto ring = KeyRing::read(facts.station.projectsDirectory);
  if (!ring) return datagram;
  const StationSettings& station = facts.station;
  const auto sender = Seals::senderOf(station.user, station.host, station.machine);
  return Seals(SealPolicy::eAccept, std::move(*ring), sender).outgoing(datagram);
}

std::vector<Check> networkChecks(const DoctorFacts& facts) {
  using Look = Findings (*)(const DoctorFacts&);
  const auto check = [&facts](const char* name, Look look) {
    return Check{"network",       name,          Touches::eMachine,
                 Role::eOrdinary, kNetworkLimit, [&facts, look] { return look(facts); }};
  };
  return {check("interfaces", lookInterfaces), check("destinations", lookDestinations),
          check("routes", lookRoutes),         check("port", lookPort),
          check("listening", lookListen),      check("buffers", lookBuffer),
          check("firewall", lookFirewall),     check("own datagram", lookOwn)};
}

}  // namespace korvel
