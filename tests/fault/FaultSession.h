#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "tests/fakes/ScratchFolder.h"
#include "tests/fault/MappedFaultControl.h"
#include "tests/support/StationProcess.h"

namespace korvel {

/// What happens to which operation of a session.
struct Fault {
  std::uint64_t at = 0;  ///< the operation's number, from 1; 0 for none
  FaultAction action = FaultAction::eNone;
  int number = 0;              ///< the errno value of eFail
  std::string operation = {};  ///< operations of this name alone are counted, "open"; empty for all
  std::string path = {};       ///< and of those the ones with this in their path
};

/// What a session with a fault came to.
struct FaultOutcome {
  bool isMet = false;                 ///< whether the session had so many operations
  std::uint64_t operations = 0;       ///< how many it had
  std::string what;                   ///< the operation met: "write /dev/shm/..."
  std::string command;                ///< the command during which it was met
  std::string said;                   ///< what that command then failed with; empty when it did not
  std::vector<std::string> told;      ///< what the log told the user meanwhile
  std::vector<std::string> leftOver;  ///< temporary files that stayed
  std::vector<std::string> problems;  ///< what should not have been; empty when all is well
};

/// A station in a process of its own that is led through a whole session (projects, a lock, edits,
/// a bin, a rack, filters, media, rooms, an owner) while one of its file operations is met by a
/// fault. Each session has a projects directory of its own.
///
/// A command that fails must say why and of what, and is given again, which must work. Afterwards
/// every file is looked at, and another station enters and works.
class FaultSession {
 public:
  /// Leads a session without a fault first, with which the others are compared.
  FaultSession();
  FaultSession(const FaultSession&) = delete;
  FaultSession& operator=(const FaultSession&) = delete;
  ~FaultSession();

  FaultOutcome run(const Fault& fault);

  /// How many operations a session without a fault has.
  [[nodiscard]] std::uint64_t operations() const { return operations_; }

 private:
  using Station = StationProcess;

  [[nodiscard]] std::unique_ptr<Station> startStation() const;
  bool startFaulty();
  void lead();
  bool give(const std::string& line);
  void checkComplaint(const std::string& line, const std::string& said);
  void checkFiles();
  void lookAgain();
  void enterAndWork(Station& station, const JsonValue& project);
  JsonValue mustWork(Station& station, const std::string& line);
  static JsonValue whatIsShown(JsonValue state);
  [[nodiscard]] std::string normal(const JsonValue& value) const;
  void complain(const std::string& problem) { outcome_.problems.push_back(problem); }

  MappedFaultControl mapped_;
  FaultControl& control_ = *mapped_;
  int port_ = freeUdpPort();
  Fault fault_;
  std::unique_ptr<ScratchFolder> folder_;
  ScratchFolder stateFolder_;
  std::unique_ptr<Station> station_;  ///< the one that the fault meets
  FaultOutcome outcome_;
  std::string state_;     ///< what it showed before it left the project
  std::string expected_;  ///< what it shows when there is no fault
  std::uint64_t operations_ = 0;
};

}  // namespace korvel
