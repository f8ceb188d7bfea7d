#pragma once

#include <string>

#include "station/base/Json.h"

namespace korvel {

/// Which datagrams are asked about: those of the stations' port that come in, or that go out.
enum class Way { eIn, eOut };

enum class Passage {
  eOpen,
  eBlocked,
  eUnsure,  ///< some rule that may concern them could not be understood
};

/// What a firewall does with the stations' datagrams, and where.
struct FirewallRuling {
  Passage passage = Passage::eOpen;
  std::string chain;   ///< the chain that drops, or may: "inet filter input"
  std::string remedy;  ///< the command that lets them through
};

/// What rules do with a new broadcast datagram to a UDP port, by a ruleset as `nft -j list ruleset`
/// writes it. Follows jumps; takes every address and interface (but loopback's) for possible.
FirewallRuling ruleOn(const JsonValue& ruleset, Way way, int port);

}  // namespace korvel
