#include "station/net/NetworkService.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/net/ListenerSocket.h"
#include "station/net/UdpBroadcaster.h"
#include "station/net/UdpListener.h"

namespace korvel {

namespace {

constexpr Ipv4 kThisMachineAlone{0x7FFFFFFF};

/// The addresses of --send-to. A word that is no address is reported and left out. Where none is
/// left, messages stay on this machine: the user did not ask for them to go everywhere.
std::vector<Ipv4> configuredAddresses() {
  std::vector<Ipv4> addresses;
  for (const auto& word : settings().sendTo) {
    if (const auto address = parseIpv4(word)) {
      addresses.push_back(*address);
    } else {
      tellNetworkProblem("--send-to names " + inQuotes(word) +
                         ", which is no IPv4 address; nothing is sent there");
    }
  }
  if (addresses.empty() && !settings().sendTo.empty()) addresses.push_back(kThisMachineAlone);
  return addresses;
}

std::vector<Ipv4> multicastOf(std::vector<Ipv4> addresses) {
  std::erase_if(addresses, [](Ipv4 address) { return !address.isMulticast(); });
  return addresses;
}

std::string configured(const char* key) {
  const auto& config = settings().config;
  const auto found = config.find(key);
  return found == config.end() ? std::string() : found->second;
}

/// A limit of the configuration: messages a second, 0 for none. A text that is no number is
/// reported, and the limit stays as it is.
void readLimit(const std::string& key, SourceLimit& limit) {
  const auto& config = settings().config;
  const auto found = config.find(key);
  if (found == config.end()) return;
  const char* const end = found->second.data() + found->second.size();
  double rate = 0;
  const auto read = std::from_chars(found->second.data(), end, rate);
  if (read.ec != std::errc() || read.ptr != end || !(rate >= 0)) {
    return tellNetworkProblem(key + " is " + inQuotes(found->second) +
                              ", which is no number of messages a second; the usual limit stays");
  }
  // The burst grows and shrinks with the rate, so that the configuration needs one number only.
  const double usualSeconds = limit.atOnce / limit.perSecond;
  limit = {rate, std::max(1.0, rate * usualSeconds)};
}

SourceLimits configuredLimits() {
  SourceLimits limits;
  readLimit("receive_limit", limits.all);
  readLimit("receive_limit_words", limits.words);
  readLimit("receive_limit_requests", limits.requests);
  return limits;
}

}  // namespace

NetworkService::NetworkService(HostThread& hostThread)
    : NetworkService(hostThread, readNetworkInterfaces) {}

NetworkService::NetworkService(HostThread& hostThread, Interfaces::Reader reader)
    : hostThread_(hostThread),
      interfaces_(std::make_shared<Interfaces>(std::move(reader))),
      sender_(std::make_shared<SenderSocket>()),
      sendTo_(configuredAddresses()) {}

Kv::Ptr<iUDPBroadcaster> NetworkService::createUDPBroadcaster(int port) {
  return new UdpBroadcaster(port, sendTo_, sender_, interfaces_, observer_, seals_, hooks_.sent);
}

Kv::Ptr<iUDPListener> NetworkService::createUDPListener(int port, unsigned /*flags*/,
                                                        iNetMessageReceiver* receiver) {
  auto socket = ListenerSocket::open(settings().listen, port);
  if (!socket) {
    listening_ = socket.error();
    tellNetworkProblem(socket.error().message);
    // The station works on without messages: the folder watch finds changes, later.
    return new NullListener;
  }
  listening_ = {};
  UdpListener::Dependencies surroundings{hostThread_,
                                         interfaces_,
                                         sender_,
                                         multicastOf(sendTo_),
                                         AcceptedNetworks(configured("accept_networks")),
                                         observer_,
                                         configuredLimits(),
                                         hooks_,
                                         seals_,
                                         AcceptedStations(configured("accept_stations"))};
  return new UdpListener(std::move(*socket), std::move(surroundings), receiver);
}

}  // namespace korvel
