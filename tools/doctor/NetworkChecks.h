#pragma once

#include "tools/doctor/Check.h"
#include "tools/doctor/DoctorFacts.h"

namespace korvel {

/// What stations' datagrams need of this machine; the facts must outlive the checks. Sends a few
/// datagrams that no station takes for a message.
std::vector<Check> networkChecks(const DoctorFacts& facts);

/// What `nft -j list ruleset` wrote (or its complaint) and, where the older packet filter is in
/// use, `iptables-legacy-save`, for a port.
Findings judgeFirewall(const std::string& ruleset, const std::string& legacy, int port);

/// The system's limit of a socket's buffer, in bytes.
Findings judgeBuffer(long largest);

/// A datagram of a trial: stations drop it, since it is no message.
std::string trialDatagram(const std::string& trial);

}  // namespace korvel
