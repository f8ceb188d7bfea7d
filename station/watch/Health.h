#pragma once

#include <chrono>
#include <cstddef>
#include <memory>
#include <string>

#include "station/base/HostThread.h"
#include "station/base/Json.h"
#include "station/watch/CatchUp.h"
#include "station/watch/Presence.h"
#include "station/watch/StationNote.h"

namespace korvel {

class UnsavedEdits;

/// How well something works, the worst last.
enum class HealthLevel { eGood, eSlow, eBad };

/// What is known when health is judged.
struct HealthFacts {
  ShareAnswer share;
  std::chrono::steady_clock::time_point now;
  bool hasSendFailed = false;
  std::size_t others = 0;       ///< stations alive beside this one
  std::size_t unannounced = 0;  ///< changes found in the folder since a message came last
  std::string missing = {};     ///< what may be missing since messages were lost, in sentences
  std::string namesake = {};    ///< which other station has this one's name, in sentences
  std::string unkept = {};      ///< why unsaved changes are not kept; empty while they are
};

/// Whether the share answers, the network works, what is shown is what the folder holds, and
/// unsaved changes are kept.
struct HealthState {
  HealthLevel share = HealthLevel::eGood;
  HealthLevel network = HealthLevel::eGood;
  HealthLevel upToDate = HealthLevel::eGood;
  HealthLevel unsaved = HealthLevel::eGood;
  std::string why;  ///< in sentences; empty where all is good

  bool operator==(const HealthState&) const = default;
};

HealthState judgeHealth(const HealthFacts& facts);

/// As `state` and the event "health" show it.
JsonValue shownHealth(const HealthState& state);

/// Judges this station's health every two seconds and tells of each change as an event "health".
/// Host thread. One object a process.
class Health {
 public:
  Health(HostThread& host, const CatchUp& catchUp, const Presence& presence,
         const UnsavedEdits& unsaved, std::shared_ptr<const TrafficCounts> traffic);
  Health(const Health&) = delete;
  Health& operator=(const Health&) = delete;
  ~Health();

  [[nodiscard]] HealthState now() const;

  /// Whether the share keeps a question waiting that is asked on another thread. Who asked it now
  /// would wait as well, and nothing could be told meanwhile.
  [[nodiscard]] bool isShareSilent() const;

 private:
  void postJudgement();
  void noteMessages();

  HostThread& host_;
  const CatchUp& catchUp_;
  const Presence& presence_;
  const UnsavedEdits& unsaved_;
  std::shared_ptr<const TrafficCounts> traffic_;
  HealthState told_;
  long heard_ = 0;                                         ///< messages, when one came last
  std::size_t foundThen_ = 0;                              ///< changes found by then
  std::shared_ptr<int> alive_ = std::make_shared<int>(0);  ///< what posted tasks hold weakly
};

}  // namespace korvel
