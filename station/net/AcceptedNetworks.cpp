#include "station/net/AcceptedNetworks.h"

#include <algorithm>
#include <sstream>

#include "station/net/SendErrors.h"

namespace korvel {

namespace {

/// Beyond this many refused senders no further one is told.
constexpr std::size_t kMaxTold = 256;

std::string withoutBlanks(std::string word) {
  std::erase_if(word, [](char letter) { return letter == ' ' || letter == '\t'; });
  return word;
}

}  // namespace

AcceptedNetworks::AcceptedNetworks(const std::string& configured) {
  std::istringstream words(configured);
  for (std::string word; std::getline(words, word, ',');) {
    word = withoutBlanks(word);
    if (word.empty()) continue;
    takesAll_ = false;
    if (const auto network = parseIpv4Network(word)) {
      networks_.push_back(*network);
    } else {
      tellNetworkProblem("accept_networks names \"" + word +
                         "\", which is no network: write it like 192.168.1.0/24");
    }
  }
}

bool AcceptedNetworks::accepts(Ipv4 sender) {
  if (takesAll_) return true;
  const bool accepted = std::any_of(networks_.begin(), networks_.end(),
                                    [&](const auto& network) { return network.contains(sender); });
  if (!accepted) tellOnce(sender);
  return accepted;
}

void AcceptedNetworks::tellOnce(Ipv4 sender) {
  if (told_.size() >= kMaxTold || !told_.insert(sender).second) return;
  tellNetworkProblem("a sender refused: datagrams from " + textOf(sender) +
                     " are not taken, since accept_networks does not name its network");
}

}  // namespace korvel
