#pragma once

#include <string>

#include "ProjectShare/ProjectSharing.h"
#include "host/net/iNetworkService.h"
#include "station/os/HostOS.h"
#include "tests/fakes/ScratchFolder.h"

/// A projects directory with one project, and the plug-in's guard of it in front of the host's real
/// file manager. One object a process.
class BenchShare {
 public:
  static BenchShare& instance();

  [[nodiscard]] std::string projectFolder() const;
  [[nodiscard]] const Cookie& project() const { return project_; }
  [[nodiscard]] ProjectShare& share() { return share_; }

  /// Puts files into the projects directory, of which the first ones are markers of active users,
  /// and takes them away again.
  void fill(int files, int markers) const;
  void clear(int files, int markers) const;

 private:
  class NoNetwork : public iNetworkService {
   public:
    Kv::Ptr<iUDPBroadcaster> createUDPBroadcaster(int) override { return {}; }
    Kv::Ptr<iUDPListener> createUDPListener(int, unsigned, iNetMessageReceiver*) override {
      return {};
    }
  };

  BenchShare();
  [[nodiscard]] std::string file(int number, int markers) const;

  ScratchFolder folder_{"/dev/shm"};  // no disk is measured where that can be had
  Cookie project_ = Cookie::create(CookieTypeProject);
  NoNetwork network_;
  HostOS os_{network_};
  ProjectShare share_;
};
