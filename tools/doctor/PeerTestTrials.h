#pragma once

#include <string>

#include "tools/doctor/PeerTest.h"

namespace korvel {

/// Two machines that have met, from the view of one of them.
struct Pair {
  const DoctorFacts& facts;
  const ProbeFolder& folder;
  FileMailbox& mail;
  PeerTestSide self;
  PeerTestSide other;
  std::string otherId;
  std::chrono::milliseconds patience;  ///< for each step

  /// Whether this one goes first where one must.
  [[nodiscard]] bool isFirst() const { return mail.ownId() < otherId; }
};

/// Who hears whom.
Findings tryHearing(Pair& pair);

/// Whether an exclusive open on one machine excludes the other, in both orders, and is free after
/// its holder was killed.
Findings tryLocks(Pair& pair);

}  // namespace korvel
