#pragma once

#include <optional>
#include <string>

#include "ProjectShare/ProjectShare.h"
#include "station/os/HostOS.h"
#include "station/project/Projects.h"
#include "tests/fakes/ScratchFolder.h"
#include "tests/support/LoopNetwork.h"

namespace korvel {

/// The plug-in's classes in front of the host's real file manager, with a project open in a
/// projects directory on memory. One object a process.
class BenchShare {
 public:
  static BenchShare& instance();

  [[nodiscard]] const Cookie& project() const { return project_; }
  [[nodiscard]] ProjectShare& share() { return share_; }

  /// A folder on memory for a measurement's files, and one on the disk; nothing where all that can
  /// be written to is memory.
  [[nodiscard]] const std::string& memory() const { return memory_.path(); }
  [[nodiscard]] std::optional<std::string> disk() const;

  /// Makes a folder the projects directory from now on; with a folder for the project in it.
  void use(const std::string& projectsDirectory);

  /// The project's folder in the directory in use.
  [[nodiscard]] std::string projectFolder() const;

  /// The name of the file system that holds a path: "ext4".
  static std::string fileSystemOf(const std::string& path);

 private:
  BenchShare();

  ScratchFolder memory_{"/dev/shm"};
  ScratchFolder disk_;
  Cookie project_ = Cookie::create(CookieTypeProject);
  LoopNetwork network_;
  HostOS os_{network_};
  Projects projects_;
  ProjectShare share_;
};

}  // namespace korvel
