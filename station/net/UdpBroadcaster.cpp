#include "station/net/UdpBroadcaster.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "station/base/Events.h"

namespace korvel {

namespace {

/// What a user can do about a failed send.
std::string remedyFor(int error, int port) {
  switch (error) {
    case ENETUNREACH:
    case ENETDOWN:
    case EHOSTUNREACH:
    case EADDRNOTAVAIL:
    case ENODEV:
    case ENXIO:
      return "check that the network is connected, or name other destinations with --send-to";
    case EPERM:
    case EACCES:
      return "allow outgoing datagrams to UDP port " + std::to_string(port) +
             " in this machine's firewall";
    case EAGAIN:
    case ENOBUFS:
      return "the network is slower than the messages come; other stations see the change when "
             "they read the project again";
    default:
      return "look into the system's log";
  }
}

bool contains(const std::vector<Destination>& list, const Destination& wanted) {
  return std::find(list.begin(), list.end(), wanted) != list.end();
}

}  // namespace

UdpBroadcaster::UdpBroadcaster(int port, std::vector<Ipv4> addresses,
                               std::shared_ptr<SenderSocket> socket,
                               std::shared_ptr<Interfaces> interfaces,
                               std::shared_ptr<iTrafficObserver> observer)
    : port_(port),
      addresses_(std::move(addresses)),
      socket_(std::move(socket)),
      interfaces_(std::move(interfaces)),
      observer_(std::move(observer)) {}

void UdpBroadcaster::broadcast(const LightweightString<char>& text) {
  if (!canCarry(text.view())) return;
  const auto destinations = interfaces_->destinations(addresses_);
  std::vector<Failure> failures;
  std::size_t left = sendTo(destinations, text.view(), failures);
  if (!failures.empty()) left += followMachine(destinations, text.view(), failures);
  for (const Failure& failure : failures) tell(failure);
  if (observer_) observer_->reached(failures.empty() && left > 0);
  if (left == 0) return;
  if (observer_) observer_->sent();
  events().sent(text.str());
}

bool UdpBroadcaster::canCarry(std::string_view text) {
  if (port_ < 1 || port_ > 65535) {
    problems_.failed("port", "nothing can be sent to port " + std::to_string(port_) +
                                 ": set shared_projects_udp_port to a number from 1 to 65535");
    return false;
  }
  if (text.size() <= SenderSocket::kMaxBytes) return true;
  tellNetworkProblem(
      "a message of " + std::to_string(text.size()) + " bytes was not sent: a datagram carries " +
          std::to_string(SenderSocket::kMaxBytes) + " at most; use a shorter text or name",
      1);
  return false;
}

std::size_t UdpBroadcaster::sendTo(const std::vector<Destination>& destinations,
                                   std::string_view text, std::vector<Failure>& failures) {
  std::size_t left = 0;
  for (const Destination& destination : destinations) {
    const int error = socket_->send(destination, static_cast<std::uint16_t>(port_), text);
    if (error != 0) {
      failures.push_back({destination, error});
      continue;
    }
    ++left;
    if (problems_.areThere()) problems_.succeeded(nameOf(destination));
  }
  return left;
}

std::size_t UdpBroadcaster::followMachine(const std::vector<Destination>& tried,
                                          std::string_view text, std::vector<Failure>& failures) {
  interfaces_->reread();
  const auto now = interfaces_->destinations(addresses_);
  std::vector<Destination> fresh;
  for (const Destination& destination : now) {
    if (!contains(tried, destination)) fresh.push_back(destination);
  }
  std::erase_if(failures,
                [&](const Failure& failed) { return !contains(now, failed.destination); });
  return sendTo(fresh, text, failures);
}

std::string UdpBroadcaster::nameOf(const Destination& destination) const {
  std::string name = textOf(destination.address) + " port " + std::to_string(port_);
  const std::string interface = interfaces_->nameOf(destination.interface);
  return interface.empty() ? name : name + " over " + interface;
}

void UdpBroadcaster::tell(const Failure& failure) {
  const std::string name = nameOf(failure.destination);
  problems_.failed(name, "a message could not be sent to " + name + " (" +
                             std::strerror(failure.error) +
                             "): " + remedyFor(failure.error, port_));
}

}  // namespace korvel
