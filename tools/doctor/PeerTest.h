#pragma once

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "tools/doctor/Check.h"
#include "tools/doctor/ProbeFolder.h"

namespace korvel {

/// What one machine tells the other of itself.
struct PeerTestSide {
  std::string host;
  std::string user;
  std::string machine;  ///< tells machines apart, whatever they are called
  int port = 0;
  std::string mount;                  ///< "nfs from server:/p"
  std::vector<std::string> breakers;  ///< mount options for which locks do not lock
};

PeerTestSide sideOf(const DoctorFacts& facts);
JsonValue objectOf(const PeerTestSide& side);
PeerTestSide sideOf(const JsonValue& letter);

/// A trial of two machines that run `kv-share doctor` on one folder at the same time. Each writes
/// that it is here; the two that agree on each other then prove, in the same steps on both sides,
/// what one machine alone cannot:
///
///     hear     each sends datagrams and counts the other's
///     lock-1   the machine with the lower id holds a file, the other tries it; the holder is
///     killed lock-2   the other way round
///
/// Both end with the same findings, since each learns the other's results.
class PeerTest {
 public:
  struct Options {
    std::string other;                   ///< the host to meet; empty: any other machine
    std::chrono::milliseconds patience;  ///< how long to wait for it
    std::chrono::milliseconds stepPatience = std::chrono::seconds(20);
  };

  /// The facts and the folder must outlive it.
  PeerTest(const DoctorFacts& facts, const ProbeFolder& folder, Options wishes);

  /// Waits for the other and runs the trial. No findings where no host was named and the patience
  /// is 0.
  Findings hold();

 private:
  [[nodiscard]] bool isWished(const PeerTestSide& side) const;
  [[nodiscard]] const PeerTestSide& other() const { return known_.at(otherId_); }
  bool greetNewcomers();
  void choose();
  bool agree();
  void compareNames(Findings& findings) const;
  [[nodiscard]] Findings nobodyCame() const;

  const DoctorFacts& facts_;
  const ProbeFolder& folder_;
  Options wishes_;
  PeerTestSide self_;
  std::map<std::string, PeerTestSide> known_;  ///< the trials in the folder, by id
  std::string otherId_;                        ///< the one that this agreed with
  FileMailbox mail_;
};

/// The trial as a check. Without a patience it waits a minute for a named host, or on a network
/// file system; on a disk of this machine it meets only who is there already.
Check meetingCheck(const DoctorFacts& facts, const std::string& other,
                   std::optional<std::chrono::seconds> patience);

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

/// Whether each machine receives the datagrams of the other.
Findings tryHearing(Pair& pair);

/// Whether an exclusive open on one machine excludes the other, in both orders, and is free after
/// its holder was killed.
Findings tryLocks(Pair& pair);

}  // namespace korvel
