#pragma once

#include <chrono>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "station/base/Json.h"
#include "station/base/StationSettings.h"
#include "tools/base/ProcInfo.h"
#include "tools/doctor/ProbeFolder.h"
#include "tools/locks/LockList.h"

namespace korvel {

/// What a check waits for when it does not come to its end.
enum class Touches { eShare, eMachine };

/// Whether the checks of the share that follow make sense after it failed.
enum class Role { eOrdinary, eGate };

/// One check: a line of a table, and a small function that looks.
struct Check {
  const char* group;
  const char* name;
  Touches touches;
  Role role;
  std::chrono::milliseconds limit;
  std::function<Findings()> look;
};

/// Runs checks one after another and hands each finding to `take` as it comes. Each runs in a
/// process of its own, for its limit at most: one that hangs (a mount whose server is gone keeps
/// even `kill -9` waiting) is left to itself, and its finding says so. One that ends in any other
/// way than by its answer is a failure as well. After the share hung or a gate failed, what touches
/// the share is left out.
void runChecks(std::span<const Check> checks, const std::function<void(const Finding&)>& take);

/// What the checks look at: a station as it would be started here, and where the machine tells of
/// itself.
struct DoctorFacts {
  StationSettings station;
  int port = kDefaultPort;
  std::string mountInfo = "/proc/self/mountinfo";
  std::string largestBuffer = "/proc/sys/net/core/rmem_max";
  ExclusiveOpen open = openAsStationsDo;
};

// The checks, in the order in which they run. The facts must outlive them.

/// What a projects directory needs, tried as stations use it; the facts must outlive the checks.
std::vector<Check> shareChecks(const DoctorFacts& facts);

/// How much free space is little, and how much is none. Bytes; `files` are those that can still be
/// made, of `allFiles` (0 where the file system does not count them).
Findings judgeSpace(unsigned long long freeBytes, unsigned long long files,
                    unsigned long long allFiles);

/// The folder's group and its bits, by its mode.
Findings judgeGroup(unsigned mode, const std::string& path);

/// How far the machine's clock is before (positive) or behind the share's, in seconds.
Findings judgeClock(double seconds);

/// The same, as a new file in the projects directory shows it; nothing where none can be made.
std::optional<double> clockBeforeShares(const DoctorFacts& facts);

/// The mount that holds a folder, by the facts' mountinfo; nothing where it cannot be read.
std::optional<Mount> mountOfFolder(const DoctorFacts& facts);

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

/// The datagram with the share's seal, where it has a key that can be read: stations that require
/// seals would tell of an unsealed one as a stranger's.
std::string sealedForStations(const DoctorFacts& facts, const std::string& datagram);

/// The names that a station here would have, by which others know it; the facts must outlive the
/// checks.
std::vector<Check> stationChecks(const DoctorFacts& facts);

/// A user's or host's name (`what`).
Findings judgeName(const std::string& what, const std::string& name);

/// Whether messages to the user alone arrive: others choose recipients from userlist.dat and
/// address a station by its host's name in capitals, and only ASCII survives the list.
Findings judgeUser(const std::string& user, const std::string& host, const UserList& list);

/// Another station's clock.
struct StationClock {
  std::string station;  ///< "ANNA at SUITE1"
  double seconds = 0;   ///< before (positive) or behind this machine's
};

/// Whether the stations' clocks agree with this machine's as far as seals need it.
enum class ShareKeys { eNone, eUsed };
Findings judgeClocks(const std::vector<StationClock>& clocks, ShareKeys keys);

/// The lines of userlist.dat that are names of no station.
Findings judgeUserList(const UserList& list);

/// Whether another station has the user's name: by the age of the name's marker in seconds
/// (negative where there is none) and whether a station runs on this machine.
enum class StationHere { eRuns, eNone };
Findings judgeMarker(const std::string& user, long age, StationHere here);

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
