#pragma once

#include <string>

#include "station/base/Json.h"

namespace korvel {

/// The family of the items below.
inline constexpr const char* kLegacyFamily = "iptables";

/// The rules of the older packet filter, by what `iptables-legacy-save` writes, as a list of the
/// items that a ruleset of nftables has, of the family "iptables". A condition that is not
/// understood may or may not hold. Empty for anything else.
JsonValue rulesOfIptables(const std::string& saved);

}  // namespace korvel
