#pragma once

#include <utility>

#include "station/Station.h"
#include "tests/support/StationScene.h"

namespace korvel {

/// A station on an empty projects directory that was made and not started: all of its parts, no
/// plug-in, and a network that keeps what would be sent.
class IdleStation {
 public:
  IdleStation() = default;

  ScratchFolder scratch;
  RecordedEvents events;

 private:
  const bool isInstalled_ = install(scratch.path());

  static bool install(const std::string& projects) {
    StationSettings made;
    made.projectsDirectory = projects;
    made.user = "anna";
    made.host = "suite1";
    made.machine = 12;
    made.recovery = projects + "/.recovery";
    installSettings(std::move(made));
    return true;
  }

 public:
  Station station;
  LoopNetwork network;
  HostOS os{network};
};

}  // namespace korvel
