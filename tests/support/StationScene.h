#pragma once

#include <fstream>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include "station/base/StationSettings.h"
#include "station/base/Strings.h"
#include "station/os/HostOS.h"
#include "station/os/SharedFiles.h"
#include "station/project/iProjectPart.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/LoopNetwork.h"
#include "tests/support/RecordedEvents.h"

namespace korvel {

/// A projects directory with one open project in it, and the station's services that documents
/// need.
class StationScene {
 public:
  StationScene() : os(network) {
    StationSettings made;
    made.projectsDirectory = scratch.path();
    made.user = "anna";
    made.host = "suite1";
    made.machine = 12;
    installSettings(std::move(made));
    project.cookie = Cookie("P0001", false);
    project.name = "Film";
    project.folder = scratch / "P0001";
    (void)makeFolder(project.folder);
  }

  /// Lets a part load the project as it is on the disk now.
  void enter(iProjectPart& part) const { part.enter(project, *listFresh(project.folder)); }

  [[nodiscard]] std::string fileOf(const std::string& cookie) const {
    return project.folder + '/' + cookie + ".json";
  }
  static void write(const std::string& path, const std::string& bytes) {
    std::ofstream(path, std::ios::binary) << bytes;
  }
  static std::string read(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>()};
  }

  ScratchFolder scratch;
  RecordedEvents events;
  LoopNetwork network;
  HostOS os;
  OpenProject project;
};

inline std::string text(const Cookie& cookie) { return utf8Text(cookie.asString()); }
inline Cookie cookie(const char* text) { return Cookie(text, false); }

}  // namespace korvel
