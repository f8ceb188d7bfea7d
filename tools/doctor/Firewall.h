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

/// The family of the items below.
inline constexpr const char* kLegacyFamily = "iptables";

/// The rules of the older packet filter, by what `iptables-legacy-save` writes, as a list of the
/// items that a ruleset of nftables has, of the family "iptables". A condition that is not
/// understood may or may not hold. Empty for anything else.
JsonValue rulesOfIptables(const std::string& saved);

}  // namespace korvel
